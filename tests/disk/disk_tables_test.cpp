// The disk family's rules that need no device: path parsing, container classes, the standby
// table, "/proc/partitions" walks, and sector 0 of USB disks.
#include <gtest/gtest.h>
#include <syslog.h>

#include <cstring>
#include <filesystem>
#include <string>
#include <vector>

#include "disk/disk_internal.h"
#include "kovasdk/disk.h"
#include "kovasdk/error.h"
#include "support/sandbox.h"

namespace kova::test {
namespace {

class DiskTables : public SandboxTest {};

TEST_F(DiskTables, PathParse) {
    struct Row {
        const char *path;
        int rc, idx, name_len, first;
    };
    const Row rows[] = {
        {"/dev/sda", 0, 1, 1, 0},        {"/dev/sdj", 0, 10, 1, 0}, {"/dev/sdz", 0, 26, 1, 0},
        {"/dev/sdaa", 0, 1, 2, 1},       {"/dev/sdbc", 0, 3, 2, 2}, {"/dev/sd", 0, -96, 1, 0},
        {"/dev/sdA", 0, 'A' - 96, 1, 0}, {"/dev/sda1", 0, 1, 1, 0}, {"/dev/sdabc", -1, 0, 0, 0},
        {"/dev/hda", -1, 0, 0, 0},       {"sda", -1, 0, 0, 0},
    };
    for (const Row &row : rows) {
        SCOPED_TRACE(row.path);
        DISK_INFO info{};
        LogCapture log;
        ASSERT_EQ(row.rc, DiskPathParse(row.path, &info));
        if (row.rc != 0) {
            EXPECT_TRUE(
                log.mentions(LOG_ERR, std::string("bad paramters: disk path: ") + row.path));
            continue;
        }
        EXPECT_EQ(row.idx, info.idx);
        EXPECT_EQ(row.name_len, info.nameLen);
        EXPECT_EQ(row.first, info.firstIdx);
    }
    DISK_INFO info{};
    EXPECT_EQ(-1, DiskPathParse(nullptr, &info));
    EXPECT_TRUE(raised(ERR_BAD_PARAMETERS));
}

TEST_F(DiskTables, ContainerClasses) {
    struct Row {
        const char *path;
        int rc, klass;
    };
    // The skeleton names sdq as the eSATA disk.
    const Row rows[] = {
        {"/dev/sda", 0, DISK_CONTAINER_INTERNAL},
        {"sdj", 0, DISK_CONTAINER_INTERNAL},
        {"sdk", 0, DISK_CONTAINER_EXTERNAL},
        {"/dev/sdq", 0, DISK_CONTAINER_EXTERNAL},
        {"sdaa", 0, DISK_CONTAINER_TWO_LETTER},
        {"/dev/sdzz", 0, DISK_CONTAINER_TWO_LETTER},
        {"sdA", -1, 0},
        {"sd1", -1, 0},
        {"sda1", -1, 0},
        {"sdabc", -1, 0},
        {"hda", -1, 0},
        {"sd", -1, 0},
    };
    for (const Row &row : rows) {
        SCOPED_TRACE(row.path);
        int klass = -5;
        EXPECT_EQ(row.rc, DiskContainerGet(row.path, &klass));
        if (row.rc == 0) {
            EXPECT_EQ(row.klass, klass);
        }
    }
    // Only an internal-range name can be the eSATA disk.
    write_file(path("/etc.defaults/kovainfo.conf"), "maxdisks=\"4\"\nesatadiskname=\"sdj\"\n");
    int klass = 0;
    EXPECT_EQ(0, DiskContainerGet("/dev/sdj", &klass));
    EXPECT_EQ(DISK_CONTAINER_ESATA, klass);
    EXPECT_EQ(0, DiskContainerGet("sdi", &klass));
    EXPECT_EQ(DISK_CONTAINER_INTERNAL, klass);
}

TEST_F(DiskTables, StandbyTimerValues) {
    struct Row {
        int minutes, value;
    };
    const Row rows[] = {{0, 0},     {1, 12},   {20, 240}, {21, 252},  {22, -1},  {29, -1},
                        {30, 241},  {60, 242}, {45, -1},  {330, 251}, {360, -1}, {450, -1},
                        {480, 253}, {481, -1}, {-1, -1},  {-30, -1}};
    for (const Row &row : rows)
        EXPECT_EQ(row.value, disk::standby_ata_value(row.minutes)) << row.minutes;
    // Refused requests change nothing and send nothing.
    for (int minutes : {360, 22, -5}) {
        EXPECT_EQ(-1, KOVADiskSetStandbyTimer(minutes));
        EXPECT_TRUE(raised(ERR_BAD_PARAMETERS));
    }
    for (int seconds : {0, -4, 1201}) {
        EXPECT_EQ(-1, KOVADiskSetStandbySeconds(seconds)) << seconds;
        EXPECT_TRUE(raised(ERR_BAD_PARAMETERS));
    }
    EXPECT_EQ(-1, KOVADiskSetUSBStandbyTimer(1441));
    EXPECT_EQ(20, KOVADiskGetFileSBTimerSetting()) << "the skeleton's setting, untouched";
}

TEST_F(DiskTables, EnumWalksProcPartitions) {
    std::filesystem::create_directories(path("/proc"));
    auto devs_of = [&](const std::string &table) {
        write_file(path("/proc/partitions"), "major minor  #blocks  name\n\n" + table);
        uint32_t *devs = nullptr;
        const int n = KOVADiskEnum(KOVA_DISK_TYPE_LINUX, &devs);
        std::vector<uint32_t> out;
        for (int i = 0; i < n; i++)
            out.push_back(devs[i]);
        if (n > 0) free(devs);
        EXPECT_EQ(n > 0, devs != nullptr);
        return out;
    };
    // SCSI disks after IDE disks, partitions and other devices skipped, file order kept. The
    // IDE majors 88-91 lie inside the SCSI range too, so hdm is listed in both passes (kept).
    EXPECT_EQ(
        (std::vector<uint32_t>{0x0300, 0x0340, 0x5800, 0x0800, 0x0820, 0x4100, 0x5800, 0x87F0}),
        devs_of("   8        0    4194304 sda\n"
                "   8        1    2490043 sda1\n"
                "   3        0     100000 hda\n"
                "   8       32    4194304 sdc\n"
                "   7        0       1000 loop0\n"
                "   3       64     100000 hdb\n"
                "   3        1      10000 hda1\n"
                "  65        0    4194304 sdq\n"
                "   9        2    4000000 md2\n"
                "  88        0     100000 hdm\n"
                " 135      240    4194304 sdif\n"
                " 136        0    4194304 sdig\n"
                "  8\n"));
    // Minors above 255 go to the top bits; the major is cut to 12 bits.
    EXPECT_EQ(0x108010u, disk::encode_dev(128, 0x110));
    EXPECT_EQ(0x00100u, disk::encode_dev(0x1001, 0));
    // Only partitions: nothing, and no array.
    EXPECT_TRUE(devs_of("   8        1    2490043 sda1\n   8        2     522112 sda2\n").empty());

    uint32_t *devs = nullptr;
    EXPECT_EQ(-1, KOVADiskEnum(2, &devs));
    EXPECT_TRUE(raised(ERR_BAD_PARAMETERS));
    EXPECT_EQ(-1, KOVADiskEnum(KOVA_DISK_TYPE_LINUX, nullptr));
    std::filesystem::remove(path("/proc/partitions"));
    EXPECT_EQ(-1, KOVADiskEnum(KOVA_DISK_TYPE_LINUX, &devs));
}

TEST_F(DiskTables, GetInfoFindsTheLineOfTheDevice) {
    std::filesystem::create_directories(path("/proc"));
    write_file(path("/proc/partitions"), "   8 1 2490043 sda1\n   8 16 4194304 sdb\n   8 32 4\n");
    PKOVADISKINFO info = nullptr;
    // A partition's number, and a line without a name, are no disk's.
    EXPECT_EQ(-1, KOVADiskGetInfo(KOVA_DISK_TYPE_LINUX, disk::encode_dev(8, 1), &info));
    EXPECT_TRUE(raised(ERR_NO_DISK_ID));
    EXPECT_EQ(-1, KOVADiskGetInfo(KOVA_DISK_TYPE_LINUX, disk::encode_dev(8, 32), &info));
    EXPECT_TRUE(raised(ERR_NO_DISK_ID));
    // The line is there but the node is not.
    EXPECT_EQ(-1, KOVADiskGetInfo(KOVA_DISK_TYPE_LINUX, disk::encode_dev(8, 16), &info));
    EXPECT_TRUE(raised(ERR_DISK_IO_FAILED));
    EXPECT_EQ(-1, KOVALnxDiskGetInfo(KOVA_DISK_TYPE_LINUX, "/dev/sdb", &info));
    EXPECT_TRUE(raised(ERR_DISK_IO_FAILED));
    EXPECT_EQ(-1, KOVALnxDiskGetInfo(0, "/dev/sdb", &info));
    EXPECT_TRUE(raised(ERR_BAD_PARAMETERS));
    EXPECT_EQ(nullptr, info);
    static_assert(sizeof(KOVADISKINFO) == 104);
    static_assert(sizeof(DISK_LIST) == 2 * sizeof(void *));
    static_assert(offsetof(DISK_INFO, ullSize) == 272 && sizeof(DISK_INFO) == 288);
}

// Sector 0 of a USB disk: a boot sector without a partition table, or a partitioned disk.
TEST_F(DiskTables, UsbDiskFatWithoutPartition) {
    std::filesystem::create_directories(path("/dev"));
    auto verdict = [&](void (*craft)(unsigned char *)) {
        unsigned char sector[512] = {};
        sector[510] = 0x55;
        sector[511] = 0xAA;
        craft(sector);
        write_file(path("/dev/sdu"), std::string(reinterpret_cast<char *>(sector), 512));
        return KOVAIsUSBDiskFATNoPartition("sdu");
    };
    auto fat16 = [](unsigned char *s) {
        memcpy(s, "\xEB\x3C\x90", 3);
        memcpy(s + 54, "FAT16   ", 8);
    };
    auto fat32 = [](unsigned char *s) {
        memcpy(s, "\xEB\x58\x90", 3);
        memcpy(s + 82, "FAT32   ", 8);
    };
    auto ntfs = [](unsigned char *s) { memcpy(s, "\xEB\x52\x90NTFS    ", 11); };
    EXPECT_EQ(1, verdict(fat16));
    EXPECT_EQ(1, verdict(fat32));
    EXPECT_EQ(1, verdict(ntfs));
    // The wrong jump for the label, no signature, a flagged type in the first entry.
    EXPECT_EQ(0, verdict([](unsigned char *s) {
                  memcpy(s, "\xEB\x58\x90", 3);
                  memcpy(s + 54, "FAT16", 5);
              }));
    EXPECT_EQ(0, verdict([](unsigned char *s) {
                  memcpy(s, "\xEB\x3C\x90", 3);
                  memcpy(s + 54, "FAT16", 5);
                  s[511] = 0;
              }));
    EXPECT_EQ(0, verdict([](unsigned char *s) {
                  memcpy(s, "\xEB\x3C\x90", 3);
                  memcpy(s + 54, "FAT16", 5);
                  s[450] = 0x0C;
              }));
    // Hidden NTFS (23) is not flagged, so such an entry does not count as a partition table;
    // a Linux entry does not either.
    EXPECT_EQ(1, verdict([](unsigned char *s) {
                  memcpy(s, "\xEB\x52\x90NTFS", 7);
                  s[450] = 23;
              }));
    EXPECT_EQ(1, verdict([](unsigned char *s) {
                  memcpy(s, "\xEB\x3C\x90", 3);
                  memcpy(s + 54, "FAT16", 5);
                  s[450] = 0x83;
              }));
    EXPECT_EQ(0, KOVAIsUSBDiskFATNoPartition("sdmissing"));
    EXPECT_EQ(0, KOVAIsUSBDiskFATNoPartition(nullptr));
    EXPECT_TRUE(raised(ERR_BAD_PARAMETERS));
}

TEST_F(DiskTables, ExpansionUnitsOnlyWhenConfigured) {
    EXPECT_EQ(0, KOVAEBoxDevIs("/dev/sdk"));
    PKOVAEBOXINFO unit = nullptr;
    EXPECT_EQ(-1, KOVAEBoxInfoGet("host5", &unit));
    EXPECT_TRUE(raised(ERR_NO_DISK_ID));
    write_file(path(KOVA_EBOX_CONF), "host5=\"/dev/sdk,/dev/sdl\"\nhost6=\"/dev/sdm\"\n");
    EXPECT_EQ(1, KOVAEBoxDevIs("/dev/sdl"));
    EXPECT_EQ(1, KOVAEBoxDevIs("/dev/sdm"));
    EXPECT_EQ(0, KOVAEBoxDevIs("/dev/sda"));
    ASSERT_EQ(0, KOVAEBoxInfoGet("host5", &unit));
    EXPECT_STREQ("host5", unit->szHost);
    ASSERT_EQ(2, unit->pDisks->nItem);
    EXPECT_STREQ("/dev/sdl", SzKLIBSzListGet(unit->pDisks, 1));
    KOVAEBoxInfoFree(unit);
    // The unit's disks, none of them present: an empty list, no failure.
    PDISK_LIST list = nullptr;
    EXPECT_EQ(0, DiskInfoEnumFromEBox(5, &list));
    EXPECT_EQ(nullptr, list);
    EXPECT_EQ(-1, DiskInfoEnumFromEBox(7, &list));
    EXPECT_EQ(-1, DiskInfoEnumFromEBox(-1, &list));
}

}  // namespace
}  // namespace kova::test
