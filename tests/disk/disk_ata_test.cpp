// The disk calls against drives that answer from recorded data (fake_drives.h): records, the
// two ATA command interfaces, write cache, standby, power state, flush, reset, S.M.A.R.T.
#include <fcntl.h>
#include <sys/stat.h>
#include <syslog.h>
#include <unistd.h>

#include <cstring>
#include <filesystem>
#include <string>
#include <vector>

#include "disk/fake_drives.h"
#include "kovasdk/disk.h"
#include "kovasdk/error.h"
#include "support/sandbox.h"

namespace kova::test {
namespace {

using Log = std::vector<std::string>;

class DiskAta : public SandboxTest {
  protected:
    void SetUp() override { std::filesystem::create_directories(path("/tmp")); }
    // A S.M.A.R.T. attribute table entry: id, flags, value, worst, raw.
    static void set_attribute(FakeDrive &d, int slot, uint8_t id, uint8_t raw) {
        uint8_t *a = d.smart + 2 + 12 * slot;
        a[0] = id;
        a[3] = a[4] = 100;
        a[5] = raw;
    }
    std::string kovainfo() { return read_file(path("/etc/kovainfo.conf")); }
    FakeDrives drives_;
};

TEST_F(DiskAta, RecordsOfPresentAndAbsentDisks) {
    FakeDrive &a = drives_.add("sda", false, "KOVA Disk A");
    a.sectors = 3907029168u;  // a 2 TB disk
    set_attribute(a, 0, 194, 38);
    drives_.add_empty_bay("sdb");  // an empty bay: ENXIO
    FakeDrive &c = drives_.add("sdc");
    set_attribute(c, 3, 190, 41);
    // sdd has no node at all, the way the kernel's /dev shows an empty bay.

    PDISK_LIST list = nullptr;
    ASSERT_EQ(2, DiskInfoEnum(&list));
    ASSERT_NE(nullptr, list);
    const DISK_INFO &first = *list->pDisk;
    EXPECT_STREQ("/dev/sda", first.szPath);
    EXPECT_STREQ("KOVA Disk A", first.szModel);
    EXPECT_EQ(3907029168ull * 512, first.ullSize);
    EXPECT_EQ(38, first.temperature);
    EXPECT_EQ(1, first.idx);
    ASSERT_NE(nullptr, list->pNext);
    EXPECT_STREQ("/dev/sdc", list->pNext->pDisk->szPath);
    EXPECT_STREQ("FAKE sdc", list->pNext->pDisk->szModel);
    EXPECT_EQ(41, list->pNext->pDisk->temperature);
    EXPECT_EQ(nullptr, list->pNext->pNext);
    DiskInfoEnumFree(list);

    PDISK_INFO info = nullptr;
    EXPECT_EQ(0, DiskInfoGet("/dev/sdb", &info));
    EXPECT_EQ(nullptr, info);
    uint32_t sectors = 0;
    EXPECT_EQ(0, DiskSizeGet("/dev/sdb", &sectors));
    EXPECT_EQ(1, DiskSizeGet("/dev/sda", &sectors));
    EXPECT_EQ(3907029168u, sectors);
    EXPECT_EQ(1, DiskIsExist("/dev/sdc"));
    EXPECT_EQ(0, DiskIsExist("/dev/sdd"));
    EXPECT_EQ(-1, DiskIsExist(nullptr));

    // The device-number family reads the same disk through "/proc/partitions".
    std::filesystem::create_directories(path("/proc"));
    write_file(path("/proc/partitions"), "   8 0 1953514584 sda\n   8 1 2490043 sda1\n");
    PKOVADISKINFO record = nullptr;
    ASSERT_EQ(0, KOVALnxDiskGetInfo(KOVA_DISK_TYPE_LINUX, "sda", &record));
    EXPECT_EQ(0x800u, record->dev);
    EXPECT_STREQ("sda", record->szName);
    EXPECT_EQ(7u, record->fields);
    EXPECT_EQ(3907029168u >> 11, record->sizeMiB);
    free(record);
    ASSERT_EQ(0, KOVADiskGetInfo(KOVA_DISK_TYPE_LINUX, 0x800, &record));
    EXPECT_STREQ("sda", record->szName);
    free(record);
}

TEST_F(DiskAta, SectorCountIsTakenAs32Bits) {
    if (sizeof(unsigned long) < 8) GTEST_SKIP() << "BLKGETSIZE cannot answer above 2^32 here";
    // More than 2^32 sectors: the count wraps, as it always did on the appliance.
    drives_.add("sda").sectors = 0x100000010ull;
    PDISK_INFO info = nullptr;
    ASSERT_EQ(1, DiskInfoGet("/dev/sda", &info));
    EXPECT_EQ(0x10u * 512, info->ullSize);
    DiskInfoFree(info);
}

TEST_F(DiskAta, ModelAndController) {
    drives_.add("sda", false, "WDC WD40EFRX\nignored");
    drives_.add("sdb", true);
    char model[8];
    ASSERT_EQ(0, KOVALnxDiskGetModel("/dev/sda", model, sizeof model));
    EXPECT_STREQ("WDC WD4", model);
    EXPECT_EQ(0, KOVADiskIsMvSocDriver("/dev/sda"));
    EXPECT_EQ(1, KOVADiskIsMvSocDriver("/dev/sdb"));
    // An AHCI port of one of the PCI controllers that need the second interface.
    write_file(path("/sys/devices/pci0000:00/0000:00:1f.2/device"), "0x7042\n");
    EXPECT_EQ(1, KOVADiskIsMvSocDriver("/dev/sda"));
    std::filesystem::remove(path("/sys/devices/pci0000:00/0000:00:1f.2/device"));
    EXPECT_EQ(-1, KOVADiskIsMvSocDriver("/dev/sda"));
    // A device link without a SCSI host: no second interface.
    std::filesystem::create_directories(path("/sys/block/sdc"));
    std::filesystem::create_symlink("../../devices/virtual/block/sdc",
                                    path("/sys/block/sdc/device"));
    EXPECT_EQ(0, KOVADiskIsMvSocDriver("sdc"));

    LogCapture log;
    EXPECT_EQ(-1, KOVADiskIsMvSocDriver("/dev/sdz"));
    EXPECT_TRUE(log.mentions(LOG_ERR, "readlink() from /sys/block/sdz/device failed."));
    EXPECT_EQ(-1, KOVALnxDiskGetModel("/dev/sdz", model, sizeof model));
    EXPECT_TRUE(raised(ERR_OPEN_FAILED));
    EXPECT_EQ(-1, KOVALnxDiskGetModel("/dev/sda", model, 0));
    EXPECT_TRUE(raised(ERR_BAD_PARAMETERS));
}

TEST_F(DiskAta, WriteCacheOverBothInterfaces) {
    FakeDrive &a = drives_.add("sda");
    EXPECT_EQ(1, KOVADiskWriteCacheGet("/dev/sda"));
    EXPECT_EQ(0, KOVADiskWriteCacheSet("/dev/sda", 0));
    EXPECT_EQ(0, KOVADiskWriteCacheGet("/dev/sda"));
    EXPECT_EQ(0, KOVADiskWriteCacheSet("/dev/sda", 1));
    EXPECT_EQ(1, KOVADiskWriteCacheGet("/dev/sda"));
    EXPECT_EQ((Log{"EC", "EF 82", "EC", "EF 02", "EC"}), a.log);

    FakeDrive &b = drives_.add("sdb", true);
    memcpy(b.caching, "\x17\x00\x10\x00\x08\x12\x04\x00", 8);  // header, page 8, WCE set
    EXPECT_EQ(1, KOVADiskWriteCacheGet("/dev/sdb"));
    EXPECT_EQ(0, KOVADiskWriteCacheSet("/dev/sdb", 1));  // already on: no MODE SELECT
    EXPECT_EQ(0, KOVADiskWriteCacheSet("/dev/sdb", 0));
    EXPECT_EQ((Log{"MODE SENSE", "MODE SENSE", "MODE SENSE", "MODE SELECT 00"}), b.log);
    EXPECT_EQ(0, memcmp(b.caching, "\0\0\0\0\x08\x12\x00", 7)) << "header cleared, WCE off";
    EXPECT_EQ(0, KOVADiskWriteCacheGet("/dev/sdb"));

    // Failures: a failed MODE SENSE is reported on standard output and read as off.
    b.fail_errno = EIO;
    EXPECT_NE(std::string::npos, capture_stdout([] {
                                     KOVADiskWriteCacheGet("/dev/sdb");
                                 }).find("Failed to run ioctl SG_IO"));
    a.fail_errno = EIO;
    LogCapture log;
    EXPECT_EQ(0, KOVADiskWriteCacheGet("/dev/sda"));
    EXPECT_TRUE(log.mentions(LOG_ERR, "/dev/sda HDIO_DRIVE_CMD(identify) failed"));
    EXPECT_NE(0, KOVADiskWriteCacheSet("/dev/sda", 1));
    EXPECT_EQ(0, KOVADiskWriteCacheGet("/dev/sdq"));

    // The stored setting: anything but "off" is on, missing is off.
    write_file(path("/etc/kovainfo.conf"), "diskcache=\"maybe\"\n");
    EXPECT_EQ(1, KOVADiskGetFileWCSetting());
    write_file(path("/etc/kovainfo.conf"), "language=\"enu\"\n");
    EXPECT_EQ(0, KOVADiskGetFileWCSetting());
    EXPECT_EQ(0, KOVADiskSetFileWCSetting(1));
    EXPECT_NE(std::string::npos, kovainfo().find("diskcache=\"on\"\n"));
    EXPECT_EQ(1, KOVADiskGetFileWCSetting());
    EXPECT_EQ(0, KOVADiskSetFileWCSetting(0));
    EXPECT_EQ(0, KOVADiskGetFileWCSetting());
}

TEST_F(DiskAta, StandbyNowChecksThePowerStateFirst) {
    FakeDrive &a = drives_.add("sda");
    FakeDrive &b = drives_.add("sdb", true);
    unsigned char state = 0x55;
    EXPECT_EQ(0, KOVAIDiskCheckPower("/dev/sda", &state));
    EXPECT_EQ(KOVA_DISK_POWER_ACTIVE, state);
    b.power = KOVA_DISK_POWER_IDLE;
    EXPECT_EQ(0, KOVAIDiskCheckPower("/dev/sdb", &state));
    EXPECT_EQ(KOVA_DISK_POWER_IDLE, state);
    a.log.clear();
    b.log.clear();

    EXPECT_EQ(0, KOVADiskSetStandby());
    EXPECT_EQ((Log{"E5", "BLKFLSBUF", "E7", "E0"}), a.log);
    EXPECT_EQ((Log{"SG E5", "BLKFLSBUF", "SG E7", "SG E0"}), b.log);
    EXPECT_EQ(0, KOVAIDiskCheckPower("/dev/sda", &state));
    EXPECT_EQ(KOVA_DISK_POWER_STANDBY, state);
    // Already in standby: nothing more is sent.
    a.log.clear();
    EXPECT_EQ(0, KOVAIDiskSetDiskStandby("/dev/sda"));
    EXPECT_EQ((Log{"E5"}), a.log);

    // A failing flush is logged and the standby still goes out.
    a.power = KOVA_DISK_POWER_ACTIVE;
    {
        LogCapture log;
        a.fail_errno = EIO;
        EXPECT_EQ(-1, KOVAIDiskSetDiskStandby("/dev/sda"));
        EXPECT_TRUE(raised(ERR_DISK_IO_FAILED));
        EXPECT_EQ(-1, KOVAIDiskCheckPower("/dev/sda", &state));
        EXPECT_EQ(-1, KOVADiskSetStandby());
        EXPECT_EQ(0, KOVAIDiskFlushBuffer("/dev/sda")) << "the drain's answer is ignored";
    }
    EXPECT_EQ(-1, KOVAIDiskSetDiskStandby(nullptr));
}

TEST_F(DiskAta, StandbyTimerGoesToEveryBayAndIsStored) {
    FakeDrive &a = drives_.add("sda");
    FakeDrive &b = drives_.add("sdb", true);
    const std::string fifo = path("/tmp/scemd.fifo");
    ASSERT_EQ(0, mkfifo(fifo.c_str(), 0600));
    const int reader = open(fifo.c_str(), O_RDONLY | O_NONBLOCK);
    ASSERT_GE(reader, 0);
    auto notified = [&] {
        char buffer[64] = "";
        const ssize_t n = read(reader, buffer, sizeof buffer - 1);
        return std::string(buffer, n > 0 ? n : 0);
    };

    EXPECT_EQ(0, KOVADiskSetStandbyTimer(60));
    EXPECT_EQ((Log{"E3 251"}), a.log);
    EXPECT_EQ((Log{"SG E3 251"}), b.log);
    EXPECT_NE(std::string::npos, kovainfo().find("standbytimer=\"60\"\n"));
    EXPECT_EQ("43\n", notified());
    int minutes = 0;
    EXPECT_EQ(0, KOVADiskGetStandbyTimer(&minutes));
    EXPECT_EQ(60, minutes);
    // The same setting again: sent, but not stored or notified again.
    EXPECT_EQ(0, KOVADiskSetStandbyTimer(60));
    EXPECT_EQ("", notified());
    EXPECT_EQ(0, KOVADiskSetStandbyTimer(0));
    EXPECT_EQ("E3 0", a.log.back());
    EXPECT_EQ("43\n", notified());

    // Seconds: sent to the bays, never stored.
    a.log.clear();
    EXPECT_EQ(0, KOVADiskSetStandbySeconds(1));
    EXPECT_EQ(0, KOVADiskSetStandbySeconds(1200));
    EXPECT_EQ((Log{"E3 1", "E3 240"}), a.log);
    EXPECT_EQ(0, KOVADiskGetFileSBTimerSetting());
    EXPECT_NE(std::string::npos, kovainfo().find("standbytimer=\"0\"\n"));
    close(reader);

    // A disk that refuses: the result is -1 and nothing is stored.
    b.fail_errno = EIO;
    EXPECT_EQ(-1, KOVADiskSetStandbyTimer(30));
    EXPECT_EQ(0, KOVADiskGetFileSBTimerSetting());
    // No daemon listening is not an error.
    EXPECT_EQ(0, KLIBScemdNotify(43));
    std::filesystem::remove(fifo);
    EXPECT_EQ(0, KLIBScemdNotify(43));
    write_file(fifo, "");
    EXPECT_EQ(-1, KLIBScemdNotify(43));
    EXPECT_EQ("", read_file(fifo)) << "a file that is not the FIFO is left alone";
}

TEST_F(DiskAta, UsbTimerAndPowerSettings) {
    EXPECT_EQ(0, KOVADiskSetUSBStandbyTimer(30));
    EXPECT_NE(std::string::npos, kovainfo().find("usb_standbytimer=\"30\"\n"));
    EXPECT_EQ("time=30\n", read_file(path("/tmp/standbytime")));
    int minutes = 0;
    EXPECT_EQ(0, KOVADiskGetUSBStandbyTimer(&minutes));
    EXPECT_EQ(30, minutes);
    write_file(path("/etc/kovainfo.conf"), "standbytimer=\"-5\"\n");
    EXPECT_EQ(-1, KOVADiskGetStandbyTimer(&minutes));

    EXPECT_EQ(0, KOVASetRCPowerConfig(1));
    EXPECT_NE(std::string::npos, kovainfo().find("enableRCPower=\"yes\"\n"));
    EXPECT_EQ(0, KOVASetRCPowerConfig(0));
    EXPECT_NE(std::string::npos, kovainfo().find("enableRCPower=\"no\"\n"));
    LogCapture log;
    EXPECT_EQ(-1, KOVASetRCPowerConfig(2));
    EXPECT_TRUE(log.mentions(LOG_ERR, "KOVASetRCPower error param."));
}

TEST_F(DiskAta, ResetSleepAndTuning) {
    FakeDrive &a = drives_.add("sda");
    FakeDrive &tuned = drives_.add("hda3");
    EXPECT_EQ(0, KOVAIDiskReset("/dev/sda"));
    EXPECT_EQ((Log{"RESET", "DMA 1"}), a.log);
    EXPECT_EQ(std::vector<unsigned>{10}, drives_.sleeps());
    // What libata answers to both: the result is the OR of the two.
    a.reset_errno = ENOTTY;
    EXPECT_NE(0, KOVAIDiskReset("/dev/sda"));

    a.log.clear();
    a.reset_errno = 0;
    EXPECT_EQ(0, KOVADiskSetSleepMode(1));
    EXPECT_EQ(0, KOVADiskSetSleepMode(0));
    EXPECT_EQ((Log{"E6", "RESET", "DMA 1"}), a.log);

    EXPECT_EQ(0, KOVADiskTuningPerformance("/dev/hda3"));
    EXPECT_EQ((Log{"RA 1024"}), tuned.log);
    LogCapture log;
    EXPECT_EQ(-1, KOVADiskTuningPerformance("/dev/sda"));
    EXPECT_TRUE(log.mentions(LOG_ERR, "illegal device path: /dev/sda "));
    EXPECT_EQ(-1, KOVADiskTuningPerformance(nullptr));
    EXPECT_TRUE(log.mentions(LOG_ERR, "illegal device path: NULL "));
}

TEST_F(DiskAta, SolidStateFromIdentifyWords) {
    FakeDrive &d = drives_.add("sda");
    struct Row {
        uint16_t w80, w217, w82, w83, w84;
        int ssd;
    };
    const Row rows[] = {
        {0x01F0, 1, 1, 0x4000, 1, 1},     // ATA8-ACS, non-rotating
        {0x01F0, 7200, 1, 0x4000, 1, 0},  // ATA8-ACS, spinning, S.M.A.R.T. with its log
        {0x00F0, 1, 1, 0x4000, 1, 0},     // ATA-7: the rotation rate does not count
        {0xFFFF, 1, 1, 0x4000, 1, 0},     // no version reported
        {0x00F0, 0, 0, 0x4000, 1, 1},     // no S.M.A.R.T.
        {0x00F0, 0, 1, 0x4000, 0, 1},     // no S.M.A.R.T. error logging
        {0x00F0, 0, 0, 0xC000, 0, 0},     // word 83 not valid
        {0x0100, 1, 1, 0x0000, 1, 1},     // bit 8 alone is ATA8-ACS
    };
    for (const Row &row : rows) {
        d.identify[80] = row.w80;
        d.identify[217] = row.w217;
        d.identify[82] = row.w82;
        d.identify[83] = row.w83;
        d.identify[84] = row.w84;
        EXPECT_EQ(row.ssd, KOVADiskIsSSD("/dev/sda")) << std::hex << row.w80 << " " << row.w217;
    }
    LogCapture log;
    d.fail_errno = EIO;
    EXPECT_EQ(-1, KOVADiskIsSSD("/dev/sda"));
    EXPECT_TRUE(log.mentions(LOG_ERR, "SmartIdentifyRead failed."));
    EXPECT_EQ(-1, KOVADiskIsSSD(nullptr));
    EXPECT_TRUE(log.mentions(LOG_ERR, "Bad parameter, device path is null."));
}

TEST_F(DiskAta, TemperatureFromSmartAttributes) {
    FakeDrive &d = drives_.add("sda");
    LogCapture log;
    EXPECT_EQ(-1, KOVADiskTemperatureGet("/dev/sda"));
    EXPECT_TRUE(log.mentions(LOG_ERR, "read value /dev/sda fail"));
    set_attribute(d, 5, 190, 29);
    EXPECT_EQ(29, KOVADiskTemperatureGet("/dev/sda"));
    set_attribute(d, 9, 194, 33);  // 194 wins wherever it stands
    EXPECT_EQ(33, KOVADiskTemperatureC("/dev/sda"));
    d.fail_errno = EIO;
    EXPECT_EQ(-1, KOVADiskTemperatureC("/dev/sda"));
    EXPECT_TRUE(log.mentions(LOG_ERR, "Failed to get status of RAID Temperature"));
}

TEST_F(DiskAta, RawOpenRefusesWhatIsNoDisk) {
    drives_.add("sda");
    const int fd = KOVAIDiskRawOpen("/dev/sda");
    EXPECT_GE(fd, 0);
    close(fd);
    write_file(path("/dev/null0"), "");
    EXPECT_EQ(-1, KOVAIDiskRawOpen("/dev/null0"));
    EXPECT_EQ(22u, KLIBErrGet()) << "the bare code, kept";
    EXPECT_EQ(-1, KOVAIDiskRawOpen("/dev/sdx"));
    EXPECT_TRUE(raised(ERR_OPEN_RAWDEVICE));
}

// Every call closes what it opened, on every path.
TEST_F(DiskAta, NoDescriptorIsLeft) {
    FakeDrive &a = drives_.add("sda");
    FakeDrive &b = drives_.add("sdb", true);
    const int before = open_descriptors();
    unsigned char state;
    char model[64];
    for (int failing : {0, EIO}) {
        a.fail_errno = b.fail_errno = failing;
        for (const char *disk : {"/dev/sda", "/dev/sdb", "/dev/sdz"}) {
            KOVADiskWriteCacheGet(disk);
            KOVADiskWriteCacheSet(disk, 0);
            KOVAIDiskCheckPower(disk, &state);
            KOVAIDiskSetDiskStandby(disk);
            KOVAIDiskSetDiskStandbyTimer(disk, 12);
            KOVAIDiskFlushBuffer(disk);
            KOVAIDiskEnterSleep(disk);
            KOVADiskIsSSD(disk);
            KOVADiskTemperatureGet(disk);
            KOVALnxDiskGetModel(disk, model, sizeof model);
            KOVADiskIsMvSocDriver(disk);
            PDISK_INFO info = nullptr;
            if (DiskInfoGet(disk, &info) == 1) DiskInfoFree(info);
        }
        PDISK_LIST list = nullptr;
        if (DiskInfoEnum(&list) >= 0) DiskInfoEnumFree(list);
    }
    EXPECT_EQ(before, open_descriptors());
}

}  // namespace
}  // namespace kova::test
