// Health, writability and single-disk volumes over records built by hand; lists and counting.
#include <syslog.h>

#include <cstring>
#include <filesystem>
#include <string>
#include <vector>

#include "kovasdk/error.h"
#include "kovasdk/volume.h"
#include "volume/volume_fake.h"

namespace kova::test {
namespace {

// A volume record with its parts in place, owned by the test.
struct Record {
    FS_INFO fs{};
    std::vector<PV_INFO> pvs;
    VG_INFO vg{};
    std::vector<RAID_DISK> disks;
    RAID_INFO raid{};
    RAID_LIST node{};
    VOLUME_INFO volume{};

    // Mounted writable on one array md with members sda3 and sdb3, in sync.
    explicit Record(int md = 2) : disks(2) {
        strcpy(fs.szDevice, "/dev/md2");
        fs.state = FS_STATE_WRITABLE;
        strcpy(disks[0].szPath, "/dev/sda3");
        strcpy(disks[1].szPath, "/dev/sdb3");
        disks[0].pNext = &disks[1];
        raid.mdNum = md;
        raid.level = RAID_LEVEL_RAID1;
        raid.raidDisks = 2;
        raid.status = RAID_STATUS_NORMAL;
        raid.pDiskList = disks.data();
        node.pRaid = &raid;
        volume.pFSInfo = &fs;
        volume.pRaidList = &node;
    }
    void group(const std::vector<std::pair<const char *, int>> &members) {
        pvs.resize(members.size());
        for (size_t i = 0; i < pvs.size(); i++) {
            strcpy(pvs[i].szPath, members[i].first);
            pvs[i].state = members[i].second;
            pvs[i].pNext = i + 1 < pvs.size() ? &pvs[i + 1] : nullptr;
        }
        vg.pvCount = static_cast<int>(pvs.size());
        vg.pPVList = pvs.empty() ? nullptr : pvs.data();
        volume.pVGInfo = &vg;
    }
    uint32_t flags() {
        uint32_t out = 0xFFFF;
        EXPECT_EQ(0, VolumeHealthyCheck(&volume, &out));
        return out;
    }
};

class VolumeHealth : public VolumeWorld {
  protected:
    void SetUp() override { system_arrays({"sda", "sdb"}); }
};

TEST_F(VolumeHealth, EachFlagAloneAndTogether) {
    struct Row {
        const char *what;
        void (*change)(Record &);
        uint32_t flags;
        int writable;
    };
    const Row rows[] = {
        {"sound", [](Record &) {}, 0, 1},
        {"not mounted", [](Record &r) { r.volume.pFSInfo = nullptr; }, 1, 0},
        {"read-only", [](Record &r) { r.fs.state = FS_STATE_READONLY; }, 2, 0},
        {"internal PV missing",
         [](Record &r) {
             r.group({{"/dev/md2", 0}, {"/dev/md3", 1}});
         },
         4, 0},
        {"unit's PV missing",
         [](Record &r) {
             r.group({{"/dev/md101", 1}});
         },
         8, 0},
        {"md100 is internal",
         [](Record &r) {
             r.group({{"/dev/md100", 1}});
         },
         4, 0},
        {"degraded", [](Record &r) { r.raid.status = RAID_STATUS_DEGRADE; }, 16, 1},
        {"crashed", [](Record &r) { r.raid.status = RAID_STATUS_CRASHED; }, 32, 0},
        {"disk outside the system arrays",
         [](Record &r) { strcpy(r.disks[1].szPath, "/dev/sdc3"); }, 64, 1},
        {"degraded, disk outside",
         [](Record &r) {
             r.raid.status = RAID_STATUS_DEGRADE;
             strcpy(r.disks[1].szPath, "/dev/sdc3");
         },
         80, 1},
        {"everything",
         [](Record &r) {
             r.fs.state = FS_STATE_READONLY;
             r.group({{"/dev/md2", 1}, {"/dev/md102", 1}});
             r.raid.status = RAID_STATUS_CRASHED;
             strcpy(r.disks[0].szPath, "/dev/sdd3");
         },
         2 | 4 | 8 | 32 | 64, 0},
        {"a unit's array is not checked against the system arrays",
         [](Record &r) {
             r.raid.mdNum = 101;
             strcpy(r.disks[0].szPath, "/dev/sdaa3");
         },
         0, 1},
    };
    for (const Row &row : rows) {
        Record record;
        row.change(record);
        EXPECT_EQ(row.flags, record.flags()) << row.what;
        uint32_t flags = 0;
        EXPECT_EQ(row.writable, VolumeIsWritable(&record.volume, &flags)) << row.what;
        EXPECT_EQ(row.flags, flags) << row.what;
    }
    Record record;
    EXPECT_EQ(1, VolumeIsWritable(&record.volume, nullptr));
}

TEST_F(VolumeHealth, SystemArraysWithASickMember) {
    // sdb's md1 member failed: a volume using sdb is abnormal, one on sda alone is not.
    storage_.add_array(1, {{"sda2", "in_sync", "0"}, {"sdb2", "faulty", "1"}});
    Record record;
    EXPECT_EQ(64u, record.flags());
    record.raid.pDiskList = &record.disks[1];
    EXPECT_EQ(64u, record.flags());
    record.disks[0].pNext = nullptr;
    record.raid.pDiskList = &record.disks[0];
    EXPECT_EQ(0u, record.flags());
}

TEST_F(VolumeHealth, SystemArraysThatCannotBeReadLeaveBit64Clear) {
    std::filesystem::remove(path("/dev/md0"));
    Record record;
    strcpy(record.disks[1].szPath, "/dev/sdc3");
    LogCapture log;
    EXPECT_EQ(0u, record.flags());
    EXPECT_TRUE(
        log.mentions(LOG_ERR, "Can not render volume status since System RAID can NOT be open."));
}

TEST_F(VolumeHealth, RecordsItCannotJudge) {
    uint32_t flags = 0;
    Record record;
    EXPECT_EQ(-1, VolumeHealthyCheck(nullptr, &flags));
    EXPECT_TRUE(raised(ERR_BAD_PARAMETERS));
    EXPECT_EQ(-1, VolumeHealthyCheck(&record.volume, nullptr));
    EXPECT_TRUE(raised(ERR_BAD_PARAMETERS));
    {
        Record no_arrays;
        no_arrays.volume.pRaidList = nullptr;
        LogCapture log;
        EXPECT_EQ(-1, VolumeHealthyCheck(&no_arrays.volume, &flags));
        EXPECT_TRUE(raised(ERR_SYS_UNKNOWN));
        EXPECT_TRUE(log.mentions(LOG_ERR, "Bad parameters."));
        EXPECT_EQ(-1, VolumeIsWritable(&no_arrays.volume, &flags));
    }
    {
        Record null_entry;
        null_entry.node.pRaid = nullptr;
        LogCapture log;
        EXPECT_EQ(-1, VolumeHealthyCheck(&null_entry.volume, &flags));
        EXPECT_TRUE(raised(ERR_SYS_UNKNOWN));
        EXPECT_TRUE(log.mentions(LOG_ERR, "RAID status since RAID info is NULL."));
    }
    {
        // The group says three physical volumes, the list ends after one: the walk stops.
        Record short_group;
        short_group.group({{"/dev/md3", 1}});
        short_group.vg.pvCount = 3;
        LogCapture log;
        EXPECT_EQ(4u, short_group.flags());
        EXPECT_TRUE(log.mentions(LOG_ERR, "Can not render VG status since PV info is NULL."));
    }
    {
        Record odd_pv;
        odd_pv.group({{"/dev/sdb3", 1}, {"/dev/md103", 1}});
        LogCapture log;
        EXPECT_EQ(0u, odd_pv.flags()) << "an unreadable path ends the walk";
        EXPECT_TRUE(log.mentions(LOG_ERR, "Failed to parse raid path /dev/sdb3"));
    }
}

TEST_F(VolumeHealth, SingleDiskVolumes) {
    Record record;
    EXPECT_EQ(0, VolumeIsBasic(&record.volume)) << "a RAID1 of two";
    write_file(path("/etc/kovainfo.conf"),
               read_file(path("/etc/kovainfo.conf")) + "md2_level=\"99\"\n");
    EXPECT_EQ(1, VolumeIsBasic(&record.volume)) << "kept as one disk";
    record.raid.mdNum = 3;
    EXPECT_EQ(0, VolumeIsBasic(&record.volume));
    record.raid.raidDisks = 1;
    EXPECT_EQ(1, VolumeIsBasic(&record.volume));
    record.raid.level = RAID_LEVEL_RAID0;
    EXPECT_EQ(1, VolumeIsBasic(&record.volume));
    record.group({{"/dev/md3", 0}});
    EXPECT_EQ(1, VolumeIsBasic(&record.volume));
    record.group({{"/dev/md3", 0}, {"/dev/md4", 0}});
    EXPECT_EQ(0, VolumeIsBasic(&record.volume)) << "two physical volumes";
    record.volume.pVGInfo = nullptr;
    record.raid.raidDisks = 2;
    EXPECT_EQ(0, VolumeIsBasic(&record.volume));
    record.raid.level = RAID_LEVEL_RAID5;
    record.raid.raidDisks = 1;
    EXPECT_EQ(0, VolumeIsBasic(&record.volume));
    record.volume.pRaidList = nullptr;
    LogCapture log;
    EXPECT_EQ(0, VolumeIsBasic(&record.volume));
    EXPECT_TRUE(log.mentions(LOG_ERR, "Bad parameters"));
    EXPECT_EQ(-1, VolumeIsBasic(nullptr));
}

PVOLUME_INFO volume(const char *path) {
    auto *info = static_cast<PVOLUME_INFO>(calloc(1, sizeof(VOLUME_INFO)));
    strcpy(info->szPath, path);
    return info;
}

TEST(VolumeList, PushSearchCount) {
    PVOLUME_LIST list = nullptr;
    for (const char *p : {"/volume1", "/volumeX1", "/volumeUSB1/usbshare", "/volume2"})
        ASSERT_EQ(0, VolumeInfoListPush(&list, volume(p)));
    std::vector<std::string> order;
    for (PVOLUME_LIST n = list; n != nullptr; n = n->pNext)
        order.push_back(n->pVolume->szPath);
    EXPECT_EQ(
        (std::vector<std::string>{"/volume1", "/volumeX1", "/volumeUSB1/usbshare", "/volume2"}),
        order)
        << "appended";
    PVOLUME_INFO found = nullptr;
    EXPECT_EQ(1, VolumeInfoListSearch(list, "/volumeX1", &found));
    EXPECT_STREQ("/volumeX1", found->szPath);
    EXPECT_EQ(0, VolumeInfoListSearch(list, "/volume3", &found));
    EXPECT_EQ(-1, VolumeInfoListSearch(list, nullptr, &found));

    const int internal = VOLUME_LOCATION_INTERNAL;
    const int ebox = VOLUME_LOCATION_EBOX;
    const int usb = VOLUME_LOCATION_USB;
    EXPECT_EQ(4, VolumeCount(list, nullptr));
    EXPECT_EQ(2, VolumeCount(list, &internal));
    EXPECT_EQ(1, VolumeCount(list, &ebox));
    {
        LogCapture log;
        EXPECT_EQ(4, VolumeCount(list, &usb)) << "an unknown filter counts every record";
        EXPECT_TRUE(log.mentions(LOG_ERR, "Unsupport volume location type: 4"));
    }
    // An empty node is not counted.
    list->pNext->pNext->pNext->pNext = static_cast<PVOLUME_LIST>(calloc(1, sizeof(VOLUME_LIST)));
    EXPECT_EQ(4, VolumeCount(list, nullptr));
    EXPECT_EQ(0, VolumeCount(nullptr, nullptr));
    VolumeInfoListFree(list);

    EXPECT_EQ(-1, VolumeInfoListPush(&list, nullptr));
    EXPECT_TRUE(raised(ERR_BAD_PARAMETERS));
    {
        list = nullptr;
        PVOLUME_INFO info = volume("/volume1");
        AllocationFailure oom(1);
        EXPECT_EQ(-1, VolumeInfoListPush(&list, info));
        EXPECT_TRUE(raised(ERR_OUT_OF_MEMORY));
        free(info);
    }
}

}  // namespace
}  // namespace kova::test
