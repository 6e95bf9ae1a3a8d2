// Changing arrays and partitions: the exact commands run (through recording shims), what their
// exit statuses make of the result, and the size arithmetic.
#include <syslog.h>

#include <filesystem>
#include <string>
#include <vector>

#include "kovasdk/disk.h"
#include "kovasdk/error.h"
#include "kovasdk/partition.h"
#include "kovasdk/raid.h"
#include "raid/raid_fake.h"
#include "support/sandbox.h"

namespace kova::test {
namespace {

using Commands = std::vector<std::string>;

class RaidChange : public SandboxTest {
  protected:
    PKLIBSZLIST devices(std::initializer_list<const char *> paths) {
        PKLIBSZLIST list = PslKLIBSzListAlloc(0);
        for (const char *p : paths)
            KLIBSzListPush(&list, p);
        lists_.push_back(list);
        return list;
    }
    void TearDown() override {
        for (PKLIBSZLIST l : lists_)
            KLIBSzListFree(l);
    }
    // The mdadm and sfdisk commands only (dd writes its zeros for real, inside the sandbox).
    Commands commands() { return storage_.commands(); }
    // Layout 1 or 2 on a disk, as the partition tool lists it.
    void partitioned(const std::string &disk, int layout) {
        if (layout == 1) {
            storage_.set_partition(disk, 1, 63, 1574307, 0xfd);
            storage_.set_partition(disk, 2, 1574370, 787185, 0xfd);
            storage_.set_partition(disk, 3, 2634660, 5000000, 0xfd);
        } else {
            storage_.set_partition(disk, 1, 63, 4980087, 0xfd);
            storage_.set_partition(disk, 2, 4980150, 1044225, 0xfd);
            storage_.set_partition(disk, 3, 6281415, 5000000, 0xfd);
        }
    }

    FakeStorage storage_;
    std::vector<PKLIBSZLIST> lists_;
};

TEST_F(RaidChange, CreateCommands) {
    ASSERT_EQ(0,
              RAIDCreate("/dev/md2", RAID_LEVEL_RAID5, 3, 0, devices({"/dev/sda3", "/dev/sdb3"})));
    ASSERT_EQ(0, RAIDCreate("/dev/md3", RAID_LEVEL_RAID0, 1, 0, devices({"/dev/sdc3"})));
    write_file(path("/tmp/volume.16"), "");
    ASSERT_EQ(0, RAIDCreate("/dev/md4", RAID_LEVEL_RAID1, 2, 1,
                            devices({"/dev/sdd3", "/dev/sde3", "/dev/sdf3"})));
    EXPECT_EQ((Commands{"mdadm -C /dev/md2 -amd -R -l5 -n3 -x0 /dev/sda3 /dev/sdb3 missing",
                        "mdadm -C /dev/md3 -amd -R -l0 -f -n1 /dev/sdc3",
                        "mdadm -C /dev/md4 -amd -R -l1 -n2 -x1 -z 16777216 /dev/sdd3 /dev/sde3 "
                        "/dev/sdf3"}),
              commands());

    // Refused before anything runs: as many spares as devices, too many devices, bad level.
    storage_.clear_commands();
    EXPECT_EQ(-1,
              RAIDCreate("/dev/md2", RAID_LEVEL_RAID5, 3, 2, devices({"/dev/sda3", "/dev/sdb3"})));
    EXPECT_EQ(-1,
              RAIDCreate("/dev/md2", RAID_LEVEL_RAID1, 1, 0, devices({"/dev/sda3", "/dev/sdb3"})));
    EXPECT_EQ(-1, RAIDCreate("/dev/md2", 7, 2, 0, devices({"/dev/sda3", "/dev/sdb3"})));
    EXPECT_TRUE(raised(ERR_BAD_PARAMETERS));
    EXPECT_TRUE(commands().empty());

    storage_.set_status("mdadm", {1});
    LogCapture log;
    EXPECT_EQ(-1, RAIDCreate("/dev/md2", RAID_LEVEL_RAID6, 4, 0, devices({"/dev/sda3"})));
    EXPECT_TRUE(log.mentions(LOG_ERR, "Failed to do 'mdadm -C "));
    // A device name is one shell word, whatever it holds.
    storage_.set_status("mdadm", {0});
    storage_.clear_commands();
    ASSERT_EQ(0, RAIDAdd("/dev/md2", "/dev/sdq3; touch /tmp/owned"));
    EXPECT_FALSE(file_exists("/tmp/owned"));
    EXPECT_EQ(1u, commands().size());
}

TEST_F(RaidChange, AssembleGrowStopAndWipe) {
    RAID_SB sb{};
    snprintf(sb.szMdPath, sizeof sb.szMdPath, "/dev/md2");
    snprintf(sb.szUUID, sizeof sb.szUUID, "aa:bb:cc:dd");
    storage_.set_status("mdadm", {1});
    // Neither exit status is judged.
    EXPECT_EQ(0, RAIDAssemble(&sb, devices({"/dev/sda3", "/dev/sdb3"})));
    EXPECT_EQ(-1, RAIDAssemble(&sb, devices({})));
    storage_.set_status("mdadm", {0});
    EXPECT_EQ(0, RAIDDevCountChange("/dev/md2", 4));
    EXPECT_EQ(0, RAIDExpand("/dev/md2", 4194240));
    EXPECT_EQ((Commands{"mdadm /dev/md2 -A -u aa:bb:cc:dd --run /dev/sda3 /dev/sdb3",
                        "mdadm --run /dev/md2", "mdadm --grow /dev/md2 -n 4",
                        "mdadm --grow /dev/md2 -z 4194240"}),
              commands());
    LogCapture log;
    EXPECT_EQ(-1, RAIDDevCountChange("/dev/md2", 0));
    EXPECT_TRUE(log.mentions(LOG_ERR, "Bad parameters: diskCount=0 "));
    EXPECT_EQ(-1, RAIDExpand("/dev/md2", 0));
    storage_.set_status("mdadm", {3});
    EXPECT_EQ(-1, RAIDDevCountChange("/dev/md2", 5));
    EXPECT_TRUE(log.mentions(LOG_ERR, "mdadm failed to grow /dev/md2, disk count=5, errno=3"));

    // Remove: stop, then wipe every member; the last wipe decides the wipe's result.
    storage_.add_array(
        2, {{"sda3", "in_sync", "0"}, {"sdb3", "in_sync", "1"}, {"sdc3", "in_sync", "2"}});
    PRAID_INFO info = nullptr;
    storage_.set_status("mdadm", {0});
    ASSERT_EQ(1, RAIDInfoGet("/dev/md2", &info));
    storage_.clear_commands();
    storage_.set_status("mdadm", {0, 1, 1, 0});
    EXPECT_EQ(0, RAIDRemove(info));
    EXPECT_EQ((Commands{"mdadm -S /dev/md2", "mdadm --zero-superblock /dev/sdc3",
                        "mdadm --zero-superblock /dev/sdb3", "mdadm --zero-superblock /dev/sda3"}),
              commands());
    storage_.set_status("mdadm", {0, 0, 1});
    EXPECT_EQ(-1, RAIDCleanSuperblock(info));
    storage_.set_status("mdadm", {1, 1, 0});
    EXPECT_EQ(0, RAIDCleanSuperblock(info));
    // A stop that fails wipes nothing.
    storage_.clear_commands();
    storage_.set_status("mdadm", {1});
    EXPECT_EQ(-1, RAIDRemove(info));
    EXPECT_EQ(1u, commands().size());
    RAIDInfoFree(info);
}

TEST_F(RaidChange, CheckedAddAndSizes) {
    FakeArray one;
    one.size_kib = 1000;
    storage_.add_array(2, {{"sda3", "in_sync", "0"}, {"sdb3", "in_sync", "1"}}, one);
    storage_.add_disk("sda3", 8388608);
    storage_.add_disk("sdb3", 8388700);
    storage_.add_disk("sdc3", 1999);  // (1,024,000 + 256) >> 9 = 2000 sectors needed
    storage_.add_disk("sdd3", 2000);
    EXPECT_EQ(-1, RAIDAddRobustCheck("/dev/md2", "/dev/sdc3"));
    EXPECT_TRUE(raised(ERR_NOT_ENOUGH_SPACE));
    EXPECT_TRUE(commands().empty());
    EXPECT_EQ(0, RAIDAddRobustCheck("/dev/md2", "/dev/sdd3"));
    EXPECT_EQ((Commands{"mdadm /dev/md2 -a /dev/sdd3"}), commands());
    EXPECT_EQ(-1, RAIDAddRobustCheck("/dev/md9", "/dev/sdd3"));
    EXPECT_TRUE(raised(ERR_PATH_NOT_FOUND));
    EXPECT_EQ(-1, RAIDAddRobustCheck("/dev/md2", "/dev/sdz3"));
    EXPECT_TRUE(raised(ERR_PATH_NOT_FOUND));
    storage_.set_status("mdadm", {2});
    EXPECT_EQ(-1, RAIDAddRobustCheck("/dev/md2", "/dev/sdd3"));
    EXPECT_TRUE(raised(ERR_SYS_UNKNOWN));

    PRAID_INFO info = nullptr;
    ASSERT_EQ(1, RAIDInfoGet("/dev/md2", &info));
    uint64_t size = 0;
    // The smaller member, cut to 64 KiB, less the superblock's 128 sectors, in KiB.
    ASSERT_EQ(1, RAIDExpansible(info, &size));
    EXPECT_EQ((8388608ull - 128) / 2, size);
    write_file(path("/tmp/volume.2"), "");
    ASSERT_EQ(1, RAIDExpansible(info, &size));
    EXPECT_EQ(2ull << 20, size) << "the size limit of /tmp/volume.2";
    info->ullDevSize = (2ull << 20) * 1024;
    EXPECT_EQ(0, RAIDExpansible(info, &size));

    // A replacement: the member's size, the data partition's start, 64 KiB.
    EXPECT_EQ(0, RAIDRequireDevSizeGet(info, &size));
    EXPECT_EQ(info->ullDevSize + 3216084480ull + 65536, size) << "no disks: layout 2";
    storage_.add_array(0, {{"sda1", "in_sync", "0"}});
    partitioned("/dev/sda", 1);
    EXPECT_EQ(0, RAIDRequireDevSizeGet(info, &size));
    EXPECT_EQ(info->ullDevSize + 1348945920ull + 65536, size);
    info->mdNum = 101;
    EXPECT_EQ(0, RAIDRequireDevSizeGet(info, &size));
    EXPECT_EQ(info->ullDevSize + 65536, size);
    info->level = RAID_LEVEL_LINEAR;
    EXPECT_EQ(0, RAIDRequireDevSizeGet(info, &size));
    EXPECT_EQ(0u, size);

    RAIDDiskListFree(info->pDiskList);
    info->pDiskList = nullptr;
    EXPECT_EQ(-1, RAIDExpansible(info, &size));
    RAIDInfoFree(info);
}

TEST_F(RaidChange, StripeWidthAndTuning) {
    FakeArray five;
    five.md_level = 5;
    five.raid_disks = 4;
    storage_.add_array(2, {{"sda3", "in_sync", "0"}}, five);
    write_file(path("/sys/block/md2/md/chunk_size"), "65536\n");
    write_file(path("/sys/block/md2/md/stripe_cache_size"), "256\n");
    EXPECT_EQ(192, RAIDMdStripeSizeGet("/dev/md2"));
    FakeArray six = five;
    six.md_level = 6;
    six.raid_disks = 5;
    storage_.add_array(3, {{"sda3", "in_sync", "0"}}, six);
    write_file(path("/sys/block/md3/md/chunk_size"), "131072\n");
    EXPECT_EQ(384, RAIDMdStripeSizeGet("/dev/md3"));
    FakeArray &mirror = storage_.add_array(4, {{"sda3", "in_sync", "0"}});
    EXPECT_EQ(0, RAIDMdStripeSizeGet("/dev/md4"));
    FakeArray ten = five;
    ten.md_level = 10;
    storage_.add_array(5, {{"sda3", "in_sync", "0"}}, ten);
    EXPECT_EQ(-1, RAIDMdStripeSizeGet("/dev/md5"));

    EXPECT_EQ(0, KOVARAIDMdTuningPerformance("/dev/md2"));
    EXPECT_EQ("1024\n", read_file(path("/sys/block/md2/md/stripe_cache_size")));
    EXPECT_EQ(0, KOVARAIDMdTuningPerformance("/dev/md4"));
    EXPECT_EQ(1024, mirror.read_ahead);
    EXPECT_EQ(0, KOVARAIDMdStripeCacheSizeSet("/dev/md4", 512)) << "no stripe cache: nothing";
    EXPECT_EQ(-1, KOVARAIDMdStripeCacheSizeSet("md4", 512));
    LogCapture log;
    EXPECT_EQ(-1, KOVARAIDMdTuningPerformance("/dev/sda"));
    EXPECT_TRUE(log.mentions(LOG_ERR, "illegal device path: /dev/sda "));
    EXPECT_EQ(-1, KOVARAIDMdTuningPerformance("/dev/md9"));
    EXPECT_TRUE(log.mentions(LOG_ERR, "failed to get raid info: /dev/md9 "));
}

TEST_F(RaidChange, LayoutRecognition) {
    // Every row of the recognition table, by flag.
    struct Row {
        uint64_t p1_size, p2_start, p2_size;
        unsigned type1, type2, type3;
        int flag, layout;
    };
    const Row rows[] = {
        {272018, 272081, 787185, 0x83, 0x82, 0x83, 0, 1},
        {4980087, 4980150, 1044225, 0x83, 0x82, 0x83, 0, 2},
        {530082, 530145, 787185, 0x83, 0x82, 0x83, 0, 3},
        {1574307, 1574370, 787185, 0xfd, 0xfd, 0xfd, 1, 1},
        {4980087, 4980150, 1044225, 0xfd, 0xfd, 0xfd, 1, 2},
    };
    int disk = 0;
    for (const Row &row : rows) {
        const std::string name = std::string("/dev/sd") + char('a' + disk++);
        storage_.set_partition(name, 1, 63, row.p1_size, row.type1);
        storage_.set_partition(name, 2, row.p2_start, row.p2_size, row.type2);
        storage_.set_partition(name, 3, row.p2_start + row.p2_size + 5000, 123456, row.type3);
        int layout = 0;
        EXPECT_EQ(1, BlKOVACheckPartitionLayout(name.c_str(), row.flag, &layout)) << name;
        EXPECT_EQ(row.layout, layout) << name;
        LogCapture log;
        EXPECT_EQ(0, BlKOVACheckPartitionLayout(name.c_str(), 1 - row.flag, &layout)) << name;
        EXPECT_TRUE(log.mentions(LOG_ERR, "[" + name + "] is not kovapartition"));
    }
    uint32_t start = 0;
    uint32_t type = 0;
    EXPECT_EQ(1044225, RCPartitionConfigs(2, "sdb", &start, &type));
    EXPECT_EQ(4980150u, start);
    EXPECT_EQ(0x82u, type);
    EXPECT_EQ(-1, RCPartitionConfigs(4, "/dev/sdb", &start, &type));
    EXPECT_EQ(4980150u, start) << "outputs untouched";

    // Two partitions only.
    storage_.set_partition("/dev/sdh", 1, 63, 1574307, 0xfd);
    storage_.set_partition("/dev/sdh", 2, 1574370, 787185, 0xfd);
    LogCapture log;
    int layout = 0;
    EXPECT_EQ(0, BlKOVACheckPartitionLayout("/dev/sdh", 1, &layout));
    EXPECT_TRUE(log.mentions(LOG_ERR, "/dev/sdh: dont contain partition [3]"));
}

TEST_F(RaidChange, LayoutDecision) {
    int layout = 0;
    // 3. Nothing to go by.
    ASSERT_EQ(0, PartitionLayoutGet(&layout));
    EXPECT_EQ(2, layout);
    // 2. The bays: an initialised disk counts only with its data partition in an internal array.
    partitioned("/dev/sdb", 1);
    ASSERT_EQ(0, PartitionLayoutGet(&layout));
    EXPECT_EQ(2, layout);
    storage_.add_array(2, {{"sdb3", "in_sync", "0"}});
    storage_.set_examine("/dev/sdb3", "ARRAY /dev/md2 UUID=1\n");
    ASSERT_EQ(0, PartitionLayoutGet(&layout));
    EXPECT_EQ(1, layout);
    // 1. The system array's members decide first.
    partitioned("/dev/sdc", 2);
    storage_.add_array(0, {{"sdc1", "in_sync", "0"}});
    ASSERT_EQ(0, PartitionLayoutGet(&layout));
    EXPECT_EQ(2, layout);
}

TEST_F(RaidChange, PartitionCommandsAndDiskPreparation) {
    std::filesystem::create_directories(path("/dev"));
    const int one = 1;
    ASSERT_EQ(0, PartitionCreate("/dev/sdc", PARTITION_SYSTEM, &one));
    ASSERT_EQ(0, PartitionCreate("/dev/sdc", PARTITION_SYSTEM | PARTITION_DATA, &one));
    EXPECT_EQ((Commands{"sfdisk -N1 -uS -q -f -j63 -z1574307 -tfd -F /dev/sdc",
                        "sfdisk -N2 -uS -q -f -j0 -z787185 -tfd -F /dev/sdc",
                        "sfdisk -N3 -uS -q -f -j273105 -z-1 -tfd -F /dev/sdc"}),
              commands());
    storage_.set_status("sfdisk", {1});
    LogCapture log;
    EXPECT_EQ(-1, PartitionCreate("/dev/sdc", PARTITION_SYSTEM, &one));
    EXPECT_TRUE(log.mentions(LOG_ERR, "Failed to partition disk /dev/sdc, err=1"));
    storage_.set_status("sfdisk", {0});

    // Mode 2: everything removed; each step's failure ignored.
    storage_.clear_commands();
    storage_.set_status("mdadm", {1});
    ASSERT_EQ(0, RAIDDiskInit("/dev/sdc", RAID_DISK_INIT_CLEAN));
    const Commands cleaned{"mdadm --zero-superblock /dev/sdc3",
                           "sfdisk -N3 -q -f --no-reread -o0 -z0 -t0 -F -D /dev/sdc",
                           "mdadm --zero-superblock /dev/sdc4",
                           "sfdisk -N4 -q -f --no-reread -o0 -z0 -t0 -F -D /dev/sdc",
                           "mdadm --zero-superblock /dev/sdc1",
                           "sfdisk -N1 -q -f --no-reread -o0 -z0 -t0 -F -D /dev/sdc",
                           "sfdisk -M1 /dev/sdc",
                           "mdadm --zero-superblock /dev/sdc2",
                           "sfdisk -N2 -q -f --no-reread -o0 -z0 -t0 -F -D /dev/sdc",
                           "sfdisk -M1 /dev/sdc"};
    EXPECT_EQ(cleaned, commands());
    EXPECT_FALSE(file_exists(path("/dev/sdc3"))) << "no node: dd is not run, nothing is made";
    write_file(path("/dev/sdc1"), "");
    EXPECT_EQ(0, PartitionCleanFS("/dev/sdc", 1));
    EXPECT_EQ(8192u, std::filesystem::file_size(path("/dev/sdc1"))) << "dd's zeros";

    // Mode 1, a disk outside the system arrays: cleaned, partitioned, joined, data partition.
    storage_.set_status("mdadm", {0});
    storage_.add_array(0, {{"sda1", "in_sync", "0"}});
    storage_.add_array(1, {{"sda2", "in_sync", "0"}});
    storage_.clear_commands();
    ASSERT_EQ(0, RAIDDiskInit("/dev/sdc", RAID_DISK_INIT_JOIN));
    Commands joined = cleaned;
    for (const char *c :
         {"sfdisk -N1 -uS -q -f -j63 -z4980087 -tfd -F /dev/sdc",
          "sfdisk -N2 -uS -q -f -j0 -z1044225 -tfd -F /dev/sdc", "mdadm /dev/md0 -a /dev/sdc1",
          "mdadm /dev/md1 -a /dev/sdc2", "sfdisk -N3 -uS -q -f -j257040 -z-1 -tfd -F /dev/sdc"})
        joined.push_back(c);
    Commands seen = commands();
    // The layout is asked of the partition tool on the way: leave its list commands out.
    std::erase_if(seen, [](const std::string &c) { return c.rfind("sfdisk -l", 0) == 0; });
    EXPECT_EQ(joined, seen);

    // A disk already in the system arrays only gets its data partition.
    storage_.add_array(0, {{"sda1", "in_sync", "0"}, {"sdc1", "in_sync", "1"}});
    storage_.clear_commands();
    ASSERT_EQ(0, RAIDDiskInit("/dev/sdc", RAID_DISK_INIT_JOIN));
    seen = commands();
    std::erase_if(seen, [](const std::string &c) { return c.rfind("sfdisk -l", 0) == 0; });
    EXPECT_EQ((Commands{"sfdisk -N3 -uS -q -f -j257040 -z-1 -tfd -F /dev/sdc"}), seen);
    EXPECT_EQ(-1, RAIDDiskInit("/dev/sdc", 3));
    EXPECT_EQ(-1, PartitionClean(nullptr, 3));
    EXPECT_EQ(-1, PartitionCleanFS("/dev/sdc", 5));
}

TEST_F(RaidChange, BayCountThroughTheKeyReader) {
    EXPECT_EQ(4, KOVAMaxDiskGet());
    write_file(path("/etc.defaults/kovainfo.conf"), "maxdisks=\"10\"\n");
    EXPECT_EQ(10, KOVAMaxDiskGet());
    write_file(path("/etc.defaults/kovainfo.conf"), "\n");
    EXPECT_EQ(0, KOVAMaxDiskGet());
}

}  // namespace
}  // namespace kova::test
