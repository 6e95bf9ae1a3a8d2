// Reading arrays over the fake md driver and sysfs: members, the status decision, the array
// record, lists, the system arrays, superblocks through mdadm's examine output.
#include <linux/raid/md_u.h>
#include <syslog.h>

#include <cerrno>
#include <filesystem>
#include <string>
#include <vector>

#include "kovasdk/error.h"
#include "kovasdk/raid.h"
#include "raid/raid_fake.h"
#include "support/sandbox.h"

namespace kova::test {
namespace {

class RaidRead : public SandboxTest {
  protected:
    FakeStorage storage_;
};

// The member list as "path:status" in list order.
std::vector<std::string> members(const RAID_DISK *list) {
    std::vector<std::string> out;
    for (; list != nullptr; list = list->pNext)
        out.push_back(std::string(list->szPath) + ":" + std::to_string(list->status));
    return out;
}

TEST(RaidStatus, DecisionTable) {
    struct Row {
        int md_level, slots;
        std::vector<int> statuses;
        int expected;
    };
    const Row rows[] = {
        {5, 4, {0, 0, 0, 0}, RAID_STATUS_NORMAL},
        {5, 4, {0, 0, 0}, RAID_STATUS_DEGRADE},
        {5, 4, {0, 0, 0, RAID_DISK_RECOVERING}, RAID_STATUS_DEGRADE},
        {5, 4, {0, 0}, RAID_STATUS_CRASHED},
        {5, 4, {0, 0, RAID_DISK_FAULTY, RAID_DISK_SPARE}, RAID_STATUS_CRASHED},
        {1, 4, {0}, RAID_STATUS_DEGRADE},
        {1, 2, {}, RAID_STATUS_CRASHED},
        {6, 5, {0, 0, 0}, RAID_STATUS_DEGRADE},
        {6, 5, {0, 0}, RAID_STATUS_CRASHED},
        {0, 2, {0}, RAID_STATUS_CRASHED},
        {-1, 3, {0, 0, 0}, RAID_STATUS_NORMAL},
        {1, 2, {0, 0, 0}, RAID_STATUS_NORMAL},    // more in sync than slots
        {10, 4, {0, 0, 0}, RAID_STATUS_CRASHED},  // unsupported: tolerates nothing
        // An erroring member crashes the array even with every slot in sync.
        {1, 2, {0, 0, RAID_DISK_ERROR}, RAID_STATUS_CRASHED},
    };
    for (const Row &row : rows) {
        std::vector<RAID_DISK> disks(row.statuses.size());
        for (size_t i = 0; i < disks.size(); i++) {
            disks[i].status = row.statuses[i];
            disks[i].pNext = i + 1 < disks.size() ? &disks[i + 1] : nullptr;
        }
        mdu_array_info_t array{};
        array.level = row.md_level;
        array.raid_disks = row.slots;
        int status = 0;
        ASSERT_EQ(0, RAIDStatusDecide(&array, disks.empty() ? nullptr : disks.data(), &status));
        EXPECT_EQ(row.expected, status) << "level " << row.md_level << ", " << row.slots
                                        << " slots, " << row.statuses.size() << " members";
    }
}

TEST_F(RaidRead, MemberStatesFromSysfs) {
    storage_.add_array(2, {{"sda3", "in_sync", "0"},
                           {"sdb3", "faulty", "1"},
                           {"sdc3", "in_sync,error", "2"},
                           {"sdd3", "spare", "none"},
                           {"sde3", "spare", "2"},
                           {"sdf3", "in_sync,spare", "3"}});
    PRAID_DISK list = nullptr;
    ASSERT_EQ(6, RAIDDiskListGet("/dev/md2", &list));
    // Pushed at the head: reverse glob order.
    EXPECT_EQ((std::vector<std::string>{"/dev/sdf3:0", "/dev/sde3:3", "/dev/sdd3:4", "/dev/sdc3:2",
                                        "/dev/sdb3:1", "/dev/sda3:0"}),
              members(list));
    EXPECT_EQ(2, RAIDDiskCount(list, RAID_DISK_IN_SYNC));
    PRAID_DISK found = nullptr;
    EXPECT_EQ(1, RAIDDiskListSearch(list, "/dev/sdd3", &found));
    EXPECT_EQ(RAID_DISK_SPARE, found->status);
    EXPECT_EQ(0, RAIDDiskListSearch(list, "/dev/sdz3", &found));
    RAIDDiskListFree(list);

    // A member whose state cannot be read fails the whole list.
    std::filesystem::remove(path("/sys/block/md2/md/dev-sdc3/state"));
    LogCapture log;
    EXPECT_EQ(-1, RAIDDiskListGet("/dev/md2", &list));
    EXPECT_TRUE(log.mentions(LOG_DEBUG, "Failed to create disk info from"));
    EXPECT_EQ(0, RAIDDiskListGet("/dev/md7", &list)) << "no members: an empty list";
    EXPECT_EQ(nullptr, list);
    EXPECT_EQ(-1, RAIDDiskListGet("/dev/sda", &list));
    EXPECT_TRUE(raised(ERR_RAID_BAD_PATH));
}

TEST_F(RaidRead, ArrayRecord) {
    FakeArray five;
    five.md_level = 5;
    five.raid_disks = 4;
    five.size_kib = 2000000;
    five.bytes = 6144000000ull;
    storage_.add_array(
        3, {{"sdaa3", "in_sync", "0"}, {"sdab3", "in_sync", "1"}, {"sdac3", "in_sync", "2"}}, five);
    PRAID_INFO info = nullptr;
    ASSERT_EQ(1, RAIDInfoGet("/dev/md3", &info));
    EXPECT_EQ(3, info->mdNum);
    EXPECT_STREQ("/dev/md3", info->szPath);
    EXPECT_EQ(RAID_LEVEL_RAID5, info->level);
    EXPECT_EQ(RAID_STATUS_DEGRADE, info->status);
    EXPECT_EQ(4, info->raidDisks);
    EXPECT_EQ(2000000ull * 1024, info->ullDevSize);
    EXPECT_EQ(6144000000ull, info->ullArraySize);
    EXPECT_EQ(0, info->eboxIdx) << "the first member, sdac3, is in unit a";
    EXPECT_EQ(RAID_REBUILD_NONE, info->rebuild[0]) << "no rebuild request on this kernel";
    RAIDInfoFree(info);

    // The appliance's kernel reports progress; pending when nothing is done yet.
    FakeArray &rebuilding = storage_.add_array(4, {{"sda3", "in_sync", "0"}}, five);
    rebuilding.rebuild_request = true;
    rebuilding.rebuild[0] = 1;
    rebuilding.rebuild[1] = 500;
    rebuilding.rebuild[2] = 2000;
    ASSERT_EQ(1, RAIDInfoGet("/dev/md4", &info));
    EXPECT_EQ((std::vector<int>{1, 500, 2000}), std::vector<int>(info->rebuild, info->rebuild + 3));
    EXPECT_EQ(-1, info->eboxIdx);
    RAIDInfoFree(info);
    rebuilding.rebuild[1] = 0;
    ASSERT_EQ(1, RAIDInfoGet("/dev/md4", &info));
    EXPECT_EQ((std::vector<int>{2, 0, 0}), std::vector<int>(info->rebuild, info->rebuild + 3));
    RAIDInfoFree(info);

    // Not running: a node answering ENODEV, or no node at all.
    storage_.add_array(5, {}).errno_info = ENODEV;
    EXPECT_EQ(0, RAIDInfoGet("/dev/md5", &info));
    EXPECT_TRUE(raised(ERR_PATH_NOT_FOUND));
    EXPECT_EQ(0, RAIDInfoGet("/dev/md6", &info));
    EXPECT_EQ(0, RAIDIsDetected("/dev/md5"));
    EXPECT_EQ(1, RAIDIsDetected("/dev/md3"));
    storage_.add_array(8, {}).errno_info = EIO;
    EXPECT_EQ(-1, RAIDInfoGet("/dev/md8", &info));
    EXPECT_TRUE(raised(ERR_UNKNOWN));
    EXPECT_EQ(-1, RAIDIsDetected("/dev/md8"));
    EXPECT_EQ(-1, RAIDInfoGet("/dev/hda", &info));
    EXPECT_TRUE(raised(ERR_RAID_BAD_PATH));

    // The running arrays, in glob order.
    PKLIBSZLIST paths = PslKLIBSzListAlloc(0);
    ASSERT_EQ(0, RAIDPathEnum(&paths));
    ASSERT_EQ(2, paths->nItem);
    EXPECT_STREQ("/dev/md3", SzKLIBSzListGet(paths, 0));
    EXPECT_STREQ("/dev/md4", SzKLIBSzListGet(paths, 1));
    KLIBSzListFree(paths);
}

TEST_F(RaidRead, ListOrderSearchAndSystemArrays) {
    storage_.add_array(0, {{"sda1", "in_sync", "0"}, {"sdb1", "faulty", "1"}});
    storage_.add_array(1, {{"sda2", "in_sync", "0"}, {"sdb2", "in_sync", "1"}});
    FakeArray five;
    five.md_level = 5;
    five.raid_disks = 3;
    storage_.add_array(2, {{"sdc3", "in_sync", "0"}}, five);

    PRAID_LIST list = nullptr;
    for (const char *md : {"/dev/md0", "/dev/md1", "/dev/md2"}) {
        PRAID_INFO info = nullptr;
        ASSERT_EQ(1, RAIDInfoGet(md, &info));
        ASSERT_EQ(0, RAIDListPush(&list, info));
    }
    // First, then the others newest first (kept).
    EXPECT_STREQ("/dev/md0", list->pRaid->szPath);
    EXPECT_STREQ("/dev/md2", list->pNext->pRaid->szPath);
    EXPECT_STREQ("/dev/md1", list->pNext->pNext->pRaid->szPath);

    PRAID_INFO found = nullptr;
    const RAID_SEARCH by_member{"/dev/sdc3", nullptr, RAID_SEARCH_MEMBER};
    EXPECT_EQ(1, RAIDListSearch(list, &by_member, &found));
    EXPECT_STREQ("/dev/md2", found->szPath);
    const int idle = 0;
    const int rebuilding = 1;
    const RAID_SEARCH idle_md1{"/dev/md1", &idle, RAID_SEARCH_PATH};
    const RAID_SEARCH rebuilding_md1{"/dev/md1", &rebuilding, RAID_SEARCH_PATH};
    EXPECT_EQ(1, RAIDListSearch(list, &idle_md1, &found));
    EXPECT_EQ(0, RAIDListSearch(list, &rebuilding_md1, &found));
    found->rebuild[0] = RAID_REBUILD_PENDING;
    EXPECT_EQ(1, RAIDListSearch(list, &rebuilding_md1, &found));
    RAIDListFree(list);

    RAID_SYSTEM system{};
    ASSERT_EQ(0, RAIDSystemGet(&system));
    int status = -1;
    EXPECT_EQ(1, RAIDSystemDiskStatusGet(&system, "/dev/sda", &status));
    EXPECT_EQ(0, status);
    EXPECT_EQ(1, RAIDSystemDiskStatusGet(&system, "/dev/sdb3", &status)) << "cut at the digit";
    EXPECT_EQ(1, status) << "its md0 member is faulty";
    EXPECT_EQ(0, RAIDSystemDiskStatusGet(&system, "/dev/sdc", &status));
    RAIDSystemFree(&system);

    std::filesystem::remove(path("/dev/md1"));
    LogCapture log;
    EXPECT_EQ(-1, RAIDSystemGet(&system));
    EXPECT_TRUE(raised(ERR_SYS_UNKNOWN));
    EXPECT_TRUE(log.mentions(LOG_DEBUG, "Failed to get information of /dev/md1, errno=0x600."));
    EXPECT_EQ(nullptr, system.pMd0);
}

TEST_F(RaidRead, SuperblocksThroughExamine) {
    storage_.add_array(2, {{"sda3", "in_sync", "0"}, {"sdb3", "in_sync", "1"}});
    storage_.add_array(102, {{"sdaa3", "in_sync", "0"}});
    // The appliance's mdadm, and today's (the array's name, level and count only in the full
    // examine output).
    storage_.set_examine("/dev/sda3",
                         "ARRAY /dev/md2 level=raid10 num-devices=4 UUID=aa:bb:cc:dd\n");
    storage_.set_examine("/dev/sdb3", "ARRAY /dev/md/2  metadata=1.2 UUID=11:22:33:44 name=nas:2\n",
                         "/dev/sdb3:\n     Raid Level : raid1\n   Raid Devices : 2\n");
    storage_.set_examine("/dev/sdaa3", "ARRAY /dev/md102 level=linear num-devices=1 UUID=ee\n");
    storage_.set_examine("/dev/sdc3", "\n");

    RAID_SB sb{};
    ASSERT_EQ(1, RAIDSBGet("/dev/sdb3", &sb));
    EXPECT_STREQ("/dev/md2", sb.szMdPath);
    EXPECT_STREQ("11:22:33:44", sb.szUUID);
    EXPECT_EQ(0, RAIDSBGet("/dev/sdd3", &sb)) << "nothing printed";
    EXPECT_EQ(-1, RAIDSBGet("/dev/sdc3", &sb)) << "an empty line";

    PKLIBSZLIST devices = PslKLIBSzListAlloc(0);
    for (const char *d : {"/dev/sda3", "/dev/sdb3", "/dev/sdaa3", "/dev/sdd3"})
        KLIBSzListPush(&devices, d);
    PRAID_SB_LIST found = nullptr;
    ASSERT_EQ(3, RAIDScan(devices, RAID_SCAN_ALL, &found));
    // Behind-the-head order: sda3, then sdaa3, then sdb3.
    EXPECT_EQ(RAID_LEVEL_RAID5, found->pSB->level) << "raid10 is taken as RAID5 (kept)";
    EXPECT_EQ(4, found->pSB->numDevices);
    EXPECT_STREQ("/dev/md102", found->pNext->pSB->szMdPath);
    EXPECT_EQ(RAID_LEVEL_LINEAR, found->pNext->pSB->level);
    EXPECT_EQ(RAID_LEVEL_RAID1, found->pNext->pNext->pSB->level);
    EXPECT_EQ(2, found->pNext->pNext->pSB->numDevices);
    RAIDSBEnumFree(found);
    found = nullptr;
    ASSERT_EQ(1, RAIDScan(devices, RAID_SCAN_EBOX, &found));
    EXPECT_STREQ("/dev/md102", found->pSB->szMdPath);
    RAIDSBEnumFree(found);
    KLIBSzListFree(devices);

    char md[16] = "";
    int number = 0;
    EXPECT_EQ(1, RAIDDevRAIDGet("/dev/sdb3", md, sizeof md, &number));
    EXPECT_STREQ("/dev/md2", md);
    EXPECT_EQ(2, number);
    EXPECT_EQ(1, RAIDDiskIsUsedByInternalRAID("/dev/sda"));
    EXPECT_EQ(0, RAIDDiskIsUsedByInternalRAID("/dev/sdaa")) << "md102 is an expansion unit's";
    EXPECT_EQ(0, RAIDDiskIsUsedByInternalRAID("/dev/sdc"));
    EXPECT_EQ(-1, RAIDDiskIsUsedByInternalRAID(nullptr));
}

}  // namespace
}  // namespace kova::test
