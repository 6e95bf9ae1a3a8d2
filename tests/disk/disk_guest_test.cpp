// The disk calls against the storage test bench's SATA disks: libata and qemu's emulated ATA
// drives answer for real. Runs only in the guest (make test-vm).
#include <fcntl.h>
#include <unistd.h>

#include <cstdlib>
#include <cstring>
#include <string>

#include "disk/ata.h"
#include "kovasdk/disk.h"
#include "support/guest.h"
#include "support/sandbox.h"

namespace kova::test {
namespace {

class GuestDisk : public GuestTest {
  protected:
    static std::string disk(int i) { return std::string("/dev/sd") + char('a' + i); }
    static uint64_t sysfs_bytes(int i) {
        return strtoull(read_text("/sys/block/" + disk(i).substr(5) + "/size").c_str(), nullptr,
                        10) *
               512;
    }
};

TEST_F(GuestDisk, EnumFindsEveryDiskWithSizeAndModel) {
    write_file("/etc.defaults/kovainfo.conf",
               "maxdisks=\"" + std::to_string(guest_disks()) + "\"\n");
    PDISK_LIST list = nullptr;
    ASSERT_EQ(guest_disks(), DiskInfoEnum(&list));
    int i = 0;
    for (PDISK_LIST node = list; node != nullptr; node = node->pNext, i++) {
        SCOPED_TRACE(disk(i));
        EXPECT_EQ(disk(i), node->pDisk->szPath);
        // The SCSI model field as sysfs shows it: 16 characters, blank-padded.
        EXPECT_EQ("KOVA VM DISK " + std::to_string(i) + "  ", std::string(node->pDisk->szModel));
        EXPECT_EQ(sysfs_bytes(i), node->pDisk->ullSize);
        EXPECT_GT(node->pDisk->ullSize, 3328599654ULL);
    }
    DiskInfoEnumFree(list);

    uint32_t *devs = nullptr;
    ASSERT_EQ(guest_disks(), KOVADiskEnum(KOVA_DISK_TYPE_LINUX, &devs));
    for (i = 0; i < guest_disks(); i++) {
        EXPECT_EQ(0x800u + 16 * i, devs[i]);
        PKOVADISKINFO info = nullptr;
        ASSERT_EQ(0, KOVADiskGetInfo(KOVA_DISK_TYPE_LINUX, devs[i], &info));
        EXPECT_EQ(disk(i).substr(5), info->szName);
        EXPECT_EQ(sysfs_bytes(i) >> 20, info->sizeMiB);
        free(info);
    }
    free(devs);
}

TEST_F(GuestDisk, WriteCacheOffAndOn) {
    EXPECT_EQ(0, KOVADiskIsMvSocDriver("/dev/sda")) << "an AHCI port takes HDIO_DRIVE_CMD";
    ASSERT_EQ(0, KOVADiskWriteCacheSet("/dev/sda", 0));
    EXPECT_EQ(0, KOVADiskWriteCacheGet("/dev/sda"));
    ASSERT_EQ(0, KOVADiskWriteCacheSet("/dev/sda", 1));
    EXPECT_EQ(1, KOVADiskWriteCacheGet("/dev/sda"));
}

TEST_F(GuestDisk, PowerStandbyFlushAndReset) {
    unsigned char state = 0x55;
    ASSERT_EQ(0, KOVAIDiskCheckPower("/dev/sdb", &state));
    EXPECT_EQ(KOVA_DISK_POWER_ACTIVE, state);
    EXPECT_EQ(0, KOVAIDiskSetDiskStandbyTimer("/dev/sdb", 12));
    EXPECT_EQ(0, KOVAIDiskSetDiskStandby("/dev/sdb"));
    // The emulated drive takes STANDBY IMMEDIATE but reports itself active afterwards.
    ASSERT_EQ(0, KOVAIDiskCheckPower("/dev/sdb", &state));
    EXPECT_EQ(KOVA_DISK_POWER_ACTIVE, state);
    EXPECT_EQ(0, KOVAIDiskFlushBuffer("/dev/sdb"));
    EXPECT_EQ(0, KOVADiskFlushBufferAll());
    EXPECT_EQ(0, KOVADiskSetStandbySeconds(600));
    // libata has no HDIO_DRIVE_RESET or HDIO_SET_DMA (ENOTTY): the defined calls fail here.
    EXPECT_NE(0, KOVAIDiskReset("/dev/sdb"));
}

TEST_F(GuestDisk, SmartTemperatureAndIdentify) {
    // qemu's drive reports the airflow temperature (attribute 190) only.
    EXPECT_EQ(31, KOVADiskTemperatureGet("/dev/sda"));
    // An ATA-7 drive (no rotation rate counts) whose word 84 has no S.M.A.R.T. error logging:
    // the rule takes that for a solid-state disk.
    EXPECT_EQ(1, KOVADiskIsSSD("/dev/sda"));
}

TEST_F(GuestDisk, SectorsOfARealDisk) {
    unsigned char out[512];
    unsigned char in[512] = {};
    for (int i = 0; i < 512; i++)
        out[i] = static_cast<unsigned char>(i * 7);
    ASSERT_EQ(0, KOVAWriteOneSectorToDev("/dev/sdd", 4095, out));
    ASSERT_EQ(0, KOVAReadOneSectorFromDev("sdd", 4095, in));
    EXPECT_EQ(0, memcmp(out, in, sizeof in));
    const int fd = KOVAIDiskRawOpen("/dev/sdd");
    EXPECT_GE(fd, 0);
    close(fd);
}

// The second command interface (ATA PASS-THROUGH over SG_IO) against libata's translation:
// the answer's registers come back in the sense data.
TEST_F(GuestDisk, SecondInterfaceThroughSgIo) {
    const int fd = KOVAIDiskRawOpen("/dev/sdc");
    ASSERT_GE(fd, 0);
    uint8_t state = 0x55;
    EXPECT_EQ(0, ata::command(fd, true, ata::kCheckPower, 0, &state));
    EXPECT_EQ(KOVA_DISK_POWER_ACTIVE, state);
    EXPECT_EQ(0, ata::command(fd, true, ata::kSetStandbyTimer, 12, nullptr));
    EXPECT_EQ(0, ata::command(fd, true, ata::kDrain, 0, nullptr));
    uint16_t id[256];
    ASSERT_EQ(0, ata::identify(fd, true, id));
    EXPECT_EQ('K' << 8 | 'O', id[10]) << "serial \"KOVA-VM-DISK-2\" in IDENTIFY's word order";
    uint8_t smart[ata::kSector];
    ASSERT_EQ(0, ata::smart_read_data(fd, true, smart));
    EXPECT_EQ(31, ata::smart_temperature(smart));
    close(fd);
}

}  // namespace
}  // namespace kova::test
