// Arrays and partitions against the real md driver, Debian's mdadm and the appliance's partition
// tool, on the storage test bench's SATA disks. Runs only in the guest (make test-vm).
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <set>
#include <string>
#include <thread>

#include "kovasdk/partition.h"
#include "kovasdk/raid.h"
#include "support/guest.h"
#include "support/sandbox.h"

namespace kova::test {
namespace {

class GuestRaid : public GuestStorageTest {
  protected:
    static PKLIBSZLIST devices(std::initializer_list<const char *> paths) {
        PKLIBSZLIST list = PslKLIBSzListAlloc(0);
        for (const char *p : paths)
            KLIBSzListPush(&list, p);
        return list;
    }
    static int create(const char *md, int level, int n, int s,
                      std::initializer_list<const char *> d) {
        PKLIBSZLIST list = devices(d);
        const int rc = RAIDCreate(md, level, n, s, list);
        KLIBSzListFree(list);
        return rc;
    }
    static std::set<std::string> member_paths(const RAID_INFO &info) {
        std::set<std::string> out;
        for (const RAID_DISK *d = info.pDiskList; d != nullptr; d = d->pNext)
            out.insert(d->szPath);
        return out;
    }
};

TEST_F(GuestRaid, EveryLevelCreatedAndReadBack) {
    MdSpeedLimit slow(1000);
    struct Case {
        int level, disks;
        uint64_t data_members;  // array size in member sizes
    };
    const Case cases[] = {{RAID_LEVEL_RAID0, 2, 2},
                          {RAID_LEVEL_RAID1, 2, 1},
                          {RAID_LEVEL_RAID5, 3, 2},
                          {RAID_LEVEL_RAID6, 4, 2},
                          {RAID_LEVEL_LINEAR, 2, 2}};
    const char *all[] = {"/dev/sda", "/dev/sdb", "/dev/sdc", "/dev/sdd"};
    for (const Case &c : cases) {
        SCOPED_TRACE(c.level);
        PKLIBSZLIST list = PslKLIBSzListAlloc(0);
        for (int i = 0; i < c.disks; i++)
            KLIBSzListPush(&list, all[i]);
        ASSERT_EQ(0, RAIDCreate("/dev/md2", c.level, c.disks, 0, list));
        KLIBSzListFree(list);
        PRAID_INFO info = nullptr;
        ASSERT_EQ(1, RAIDInfoGet("/dev/md2", &info));
        EXPECT_EQ(c.level, info->level);
        EXPECT_EQ(c.disks, info->raidDisks);
        EXPECT_EQ(c.disks, static_cast<int>(member_paths(*info).size()));
        EXPECT_TRUE(member_paths(*info).count("/dev/sda"));
        if (c.level != RAID_LEVEL_RAID0 && c.level != RAID_LEVEL_LINEAR) {
            EXPECT_GT(info->ullDevSize, 4000000000ull);
            EXPECT_EQ(c.data_members * info->ullDevSize, info->ullArraySize);
        } else {
            // md gives no per-member size for striped and linear arrays; the whole of each
            // member, less its superblock area, holds data.
            EXPECT_EQ(0u, info->ullDevSize);
            EXPECT_GE(info->ullArraySize, c.data_members * ((4ull << 30) - (16ull << 20)));
        }
        EXPECT_NE(RAID_STATUS_CRASHED, info->status);
        EXPECT_EQ(RAID_REBUILD_NONE, info->rebuild[0]) << "a stock kernel: no rebuild request";
        EXPECT_EQ(1, RAIDIsDetected("/dev/md2"));
        EXPECT_EQ(0, RAIDRemove(info));
        RAIDInfoFree(info);
        EXPECT_EQ(0, RAIDInfoGet("/dev/md2", &info)) << "stopped: not running";
    }
}

TEST_F(GuestRaid, DegradedAndCrashed) {
    MdSpeedLimit slow(1000);
    ASSERT_EQ(0, create("/dev/md2", RAID_LEVEL_RAID5, 3, 0, {"/dev/sda", "/dev/sdb"}));
    PRAID_INFO info = nullptr;
    ASSERT_EQ(1, RAIDInfoGet("/dev/md2", &info));
    EXPECT_EQ(RAID_STATUS_DEGRADE, info->status) << "created with one slot missing";
    EXPECT_EQ(2, RAIDDiskCount(info->pDiskList, RAID_DISK_IN_SYNC));
    RAIDInfoFree(info);
    guest_run("mdadm -S /dev/md2");

    ASSERT_EQ(0, create("/dev/md3", RAID_LEVEL_RAID5, 3, 0, {"/dev/sda", "/dev/sdb", "/dev/sdc"}));
    ASSERT_EQ(0, guest_run("mdadm /dev/md3 -f /dev/sdc"));
    ASSERT_EQ(1, RAIDInfoGet("/dev/md3", &info));
    EXPECT_EQ(RAID_STATUS_DEGRADE, info->status);
    PRAID_DISK failed = nullptr;
    ASSERT_EQ(1, RAIDDiskListSearch(info->pDiskList, "/dev/sdc", &failed));
    EXPECT_EQ(RAID_DISK_FAULTY, failed->status);
    RAIDInfoFree(info);
    guest_run("mdadm /dev/md3 -f /dev/sdb");
    ASSERT_EQ(1, RAIDInfoGet("/dev/md3", &info));
    EXPECT_EQ(RAID_STATUS_CRASHED, info->status);
    RAIDInfoFree(info);
}

TEST_F(GuestRaid, SpareRebuildsIn) {
    write_file("/tmp/volume.1", "");  // members of 1 GiB: the rebuild ends in seconds
    ASSERT_EQ(0, create("/dev/md2", RAID_LEVEL_RAID1, 2, 0, {"/dev/sda", "/dev/sdb"}));
    guest_run("mdadm --wait /dev/md2");
    ASSERT_EQ(0, guest_run("mdadm /dev/md2 -f /dev/sdb && mdadm /dev/md2 -r /dev/sdb"));
    PRAID_INFO info = nullptr;
    {
        MdSpeedLimit slow(1000);
        ASSERT_EQ(0, RAIDAddRobustCheck("/dev/md2", "/dev/sdc"));
        // md gives the spare a slot when the recovery starts.
        for (int i = 0; i < 100 && read_text("/sys/block/md2/md/dev-sdc/slot") == "none"; i++)
            std::this_thread::sleep_for(std::chrono::milliseconds(100));
        ASSERT_EQ(1, RAIDInfoGet("/dev/md2", &info));
        PRAID_DISK spare = nullptr;
        ASSERT_EQ(1, RAIDDiskListSearch(info->pDiskList, "/dev/sdc", &spare));
        EXPECT_EQ(RAID_DISK_RECOVERING, spare->status) << "a spare holding a slot";
        EXPECT_EQ(RAID_STATUS_DEGRADE, info->status);
        RAIDInfoFree(info);
    }
    // Let it run to the end.
    for (int i = 0; i < 600 && read_text("/sys/block/md2/md/sync_action") != "idle"; i++)
        std::this_thread::sleep_for(std::chrono::milliseconds(200));
    ASSERT_EQ(1, RAIDInfoGet("/dev/md2", &info));
    EXPECT_EQ(RAID_STATUS_NORMAL, info->status);
    EXPECT_EQ(2, RAIDDiskCount(info->pDiskList, RAID_DISK_IN_SYNC));
    RAIDInfoFree(info);
}

TEST_F(GuestRaid, SuperblocksFoundByScan) {
    MdSpeedLimit slow(1000);
    ASSERT_EQ(0, create("/dev/md5", RAID_LEVEL_RAID1, 2, 0, {"/dev/sda", "/dev/sdb"}));
    RAID_SB sb{};
    ASSERT_EQ(1, RAIDSBGet("/dev/sda", &sb));
    EXPECT_STREQ("/dev/md5", sb.szMdPath) << "today's /dev/md/5 taken back";
    EXPECT_NE('\0', sb.szUUID[0]);
    PKLIBSZLIST list = devices({"/dev/sda", "/dev/sdb", "/dev/sdc"});
    PRAID_SB_LIST found = nullptr;
    ASSERT_EQ(2, RAIDScan(list, RAID_SCAN_ALL, &found));
    EXPECT_EQ(RAID_LEVEL_RAID1, found->pSB->level);
    EXPECT_EQ(2, found->pSB->numDevices);
    EXPECT_STREQ(sb.szUUID, found->pNext->pSB->szUUID);
    RAIDSBEnumFree(found);
    found = nullptr;
    EXPECT_EQ(0, RAIDScan(list, RAID_SCAN_EBOX, &found));
    int number = 0;
    EXPECT_EQ(1, RAIDDevRAIDGet("/dev/sdb", nullptr, 0, &number));
    EXPECT_EQ(5, number);

    // Stopped, then assembled again from the superblocks.
    ASSERT_EQ(0, RAIDStop("/dev/md5"));
    EXPECT_EQ(0, RAIDIsDetected("/dev/md5"));
    EXPECT_EQ(0, RAIDAssemble(&sb, list));
    EXPECT_EQ(1, RAIDIsDetected("/dev/md5"));
    KLIBSzListFree(list);
}

TEST_F(GuestRaid, DiskPreparationJoinsTheSystemArrays) {
    MdSpeedLimit slow(1000);
    // Two disks as the appliance sets them up: layout 2, md0 and md1 over partitions 1 and 2.
    const int layout2 = PARTITION_LAYOUT_2;
    for (const char *disk : {"/dev/sda", "/dev/sdb"}) {
        ASSERT_EQ(0, PartitionCreate(disk, PARTITION_SYSTEM, &layout2));
        ASSERT_EQ(0, PartitionCreate(disk, PARTITION_DATA, &layout2));
    }
    ASSERT_EQ(0, create("/dev/md0", RAID_LEVEL_RAID1, 2, 0, {"/dev/sda1", "/dev/sdb1"}));
    ASSERT_EQ(0, create("/dev/md1", RAID_LEVEL_RAID1, 2, 0, {"/dev/sda2", "/dev/sdb2"}));
    ASSERT_EQ(0, create("/dev/md2", RAID_LEVEL_RAID1, 2, 0, {"/dev/sda3", "/dev/sdb3"}));
    int layout = 0;
    ASSERT_EQ(0, PartitionLayoutGet(&layout));
    EXPECT_EQ(2, layout);
    EXPECT_EQ(1, RAIDDiskIsUsedByInternalRAID("/dev/sda"));

    // A blank disk: partitioned like the others, its system partitions joined.
    ASSERT_EQ(0, RAIDDiskInit("/dev/sdc", RAID_DISK_INIT_JOIN));
    EXPECT_EQ(1, BlKOVACheckPartitionLayout("/dev/sdc", 1, &layout));
    EXPECT_EQ(2, layout);
    RAID_SYSTEM system{};
    ASSERT_EQ(0, RAIDSystemGet(&system));
    EXPECT_TRUE(member_paths(*system.pMd0).count("/dev/sdc1"));
    EXPECT_TRUE(member_paths(*system.pMd1).count("/dev/sdc2"));
    int status = -1;
    EXPECT_EQ(1, RAIDSystemDiskStatusGet(&system, "/dev/sdc", &status));
    EXPECT_EQ(0, status);
    RAIDSystemFree(&system);
    uint32_t start = 0;
    uint32_t type = 0;
    EXPECT_GT(RCPartitionConfigs(3, "sdc", &start, &type), 0);
    EXPECT_EQ(6281415u, start);
    EXPECT_EQ(0xFDu, type);

    // A replacement for md2 must hold its member size beyond the data partition's start.
    PRAID_INFO info = nullptr;
    ASSERT_EQ(1, RAIDInfoGet("/dev/md2", &info));
    uint64_t need = 0;
    ASSERT_EQ(0, RAIDRequireDevSizeGet(info, &need));
    EXPECT_EQ(info->ullDevSize + 3216084480ull + 65536, need);
    RAIDInfoFree(info);

    // Mode 2 clears a disk.
    ASSERT_EQ(0, RAIDDiskInit("/dev/sdd", RAID_DISK_INIT_JOIN));
    guest_run("mdadm /dev/md0 -f /dev/sdd1; mdadm /dev/md0 -r /dev/sdd1");
    guest_run("mdadm /dev/md1 -f /dev/sdd2; mdadm /dev/md1 -r /dev/sdd2");
    ASSERT_EQ(0, RAIDDiskInit("/dev/sdd", RAID_DISK_INIT_CLEAN));
    EXPECT_EQ(-1, RCPartitionConfigs(1, "sdd", &start, &type));
    EXPECT_EQ(-1, RCPartitionConfigs(3, "sdd", &start, &type));
}

TEST_F(GuestRaid, GrowARaid5) {
    MdSpeedLimit slow(1000);
    write_file("/tmp/volume.1", "");
    ASSERT_EQ(0, create("/dev/md2", RAID_LEVEL_RAID5, 3, 0, {"/dev/sda", "/dev/sdb", "/dev/sdc"}));
    EXPECT_EQ(1024, RAIDMdStripeSizeGet("/dev/md2")) << "512 KiB chunks, two data slots";
    EXPECT_EQ("1024", read_text("/sys/block/md2/md/stripe_cache_size")) << "tuned on creation";
    PRAID_INFO info = nullptr;
    ASSERT_EQ(1, RAIDInfoGet("/dev/md2", &info));
    EXPECT_EQ(1ull << 30, info->ullDevSize);
    unlink("/tmp/volume.1");
    uint64_t size = 0;
    ASSERT_EQ(1, RAIDExpansible(info, &size));
    EXPECT_GT(size, 1ull << 20);
    RAIDInfoFree(info);
    ASSERT_EQ(0, RAIDExpand("/dev/md2", 2ull << 20));
    ASSERT_EQ(1, RAIDInfoGet("/dev/md2", &info));
    EXPECT_EQ(2ull << 30, info->ullDevSize);
    RAIDInfoFree(info);

    ASSERT_EQ(0, RAIDAdd("/dev/md2", "/dev/sdd"));
    ASSERT_EQ(0, RAIDDevCountChange("/dev/md2", 4));
    ASSERT_EQ(1, RAIDInfoGet("/dev/md2", &info));
    EXPECT_EQ(4, info->raidDisks);
    EXPECT_EQ(4, static_cast<int>(member_paths(*info).size()));
    RAIDInfoFree(info);
}

}  // namespace
}  // namespace kova::test
