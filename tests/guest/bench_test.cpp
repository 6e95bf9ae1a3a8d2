// The storage test bench proves itself: its disks are libata's, in the order attached, ATA
// commands reach the emulated drive through every path the disk code uses, and the md driver
// and mdadm are the real ones.
#include <fcntl.h>
#include <linux/fs.h>
#include <linux/hdreg.h>
#include <linux/major.h>
#include <linux/raid/md_p.h>
#include <linux/raid/md_u.h>
#include <scsi/sg.h>
#include <sys/ioctl.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>
#include <unistd.h>

#include <cstdint>
#include <cstring>
#include <filesystem>
#include <string>
#include <vector>

#include "support/guest.h"

namespace kova::test {
namespace {

class GuestBench : public GuestTest {};

std::string disk(int index) {
    return std::string("/dev/sd") + char('a' + index);
}

// An ATA string field of IDENTIFY data, blanks trimmed.
std::string ata_text(const unsigned char *field, size_t size) {
    std::string s(reinterpret_cast<const char *>(field), size);
    while (!s.empty() && (s.back() == ' ' || s.back() == '\0'))
        s.pop_back();
    return s;
}

class Fd {
  public:
    explicit Fd(const std::string &path) : fd_(open(path.c_str(), O_RDONLY | O_NONBLOCK)) {}
    ~Fd() {
        if (fd_ >= 0) close(fd_);
    }
    int get() const { return fd_; }

  private:
    int fd_;
};

// An array made for a test, stopped and wiped afterwards.
class Array {
  public:
    Array(const std::string &md, std::vector<std::string> members)
        : md_(md), members_(std::move(members)) {}
    ~Array() {
        guest_run("mdadm -S " + md_);
        for (const std::string &m : members_)
            guest_run("mdadm --zero-superblock " + m);
    }

  private:
    std::string md_;
    std::vector<std::string> members_;
};

TEST_F(GuestBench, DisksAreLibataDisksNamedInAttachOrder) {
    ASSERT_GE(guest_disks(), 2);
    for (int i = 0; i < guest_disks(); i++) {
        SCOPED_TRACE(disk(i));
        Fd fd(disk(i));
        ASSERT_GE(fd.get(), 0);
        hd_driveid id{};
        ASSERT_EQ(0, ioctl(fd.get(), HDIO_GET_IDENTITY, &id));
        EXPECT_EQ("KOVA-VM-DISK-" + std::to_string(i), ata_text(id.serial_no, sizeof id.serial_no));
        EXPECT_EQ("KOVA VM DISK " + std::to_string(i), ata_text(id.model, sizeof id.model));
        uint64_t bytes = 0;
        ASSERT_EQ(0, ioctl(fd.get(), BLKGETSIZE64, &bytes));
        EXPECT_GT(bytes, 3328599654ULL) << "the appliance's partition layout needs > 3.1 GiB";
        // libata's port i+1 on the one AHCI controller.
        std::string device = std::filesystem::canonical("/sys/block/" + disk(i).substr(5));
        EXPECT_NE(std::string::npos, device.find("/ata" + std::to_string(i + 1) + "/")) << device;
    }
}

TEST_F(GuestBench, AtaCommandsReachTheDrive) {
    Fd fd(disk(0));
    ASSERT_GE(fd.get(), 0);

    // CHECK POWER MODE through HDIO_DRIVE_CMD: the emulated drive is always active (0xFF).
    unsigned char power[4] = {WIN_CHECKPOWERMODE1, 0, 0, 0};
    ASSERT_EQ(0, ioctl(fd.get(), HDIO_DRIVE_CMD, power));
    EXPECT_EQ(0xFF, power[2]);

    // S.M.A.R.T. READ DATA: 512 bytes whose sum is 0 modulo 256.
    unsigned char smart[4 + 512] = {WIN_SMART, 0, SMART_READ_VALUES, 1};
    ASSERT_EQ(0, ioctl(fd.get(), HDIO_DRIVE_CMD, smart));
    unsigned sum = 0;
    for (int i = 0; i < 512; i++)
        sum += smart[4 + i];
    EXPECT_EQ(0u, sum % 256);

    // IDENTIFY DEVICE as ATA PASS-THROUGH (16) through SG_IO: the serial number (words 10-19,
    // each word's bytes swapped) is the one the host gave the first disk.
    unsigned char cdb[16] = {0x85, 4 << 1, 0x0e, 0, 0, 0, 1, 0, 0, 0, 0, 0, 0, 0, 0xEC, 0};
    unsigned char data[512] = {};
    unsigned char sense[32] = {};
    sg_io_hdr_t io{};
    io.interface_id = 'S';
    io.cmd_len = sizeof cdb;
    io.cmdp = cdb;
    io.dxfer_direction = SG_DXFER_FROM_DEV;
    io.dxfer_len = sizeof data;
    io.dxferp = data;
    io.mx_sb_len = sizeof sense;
    io.sbp = sense;
    io.timeout = 10000;
    ASSERT_EQ(0, ioctl(fd.get(), SG_IO, &io));
    EXPECT_EQ(0, io.status & 0x7e);
    unsigned char serial[20];
    for (int i = 0; i < 20; i += 2) {
        serial[i] = data[20 + i + 1];
        serial[i + 1] = data[20 + i];
    }
    EXPECT_EQ("KOVA-VM-DISK-0", ata_text(serial, sizeof serial));
}

TEST_F(GuestBench, Raid1LevelAndMembersThroughMdIoctlsAndSysfs) {
    ASSERT_EQ(0, guest_run("mdadm -C /dev/md9 -amd -R -l1 -n2 --assume-clean /dev/sda /dev/sdb"));
    Array array("/dev/md9", {"/dev/sda", "/dev/sdb"});

    Fd md("/dev/md9");
    ASSERT_GE(md.get(), 0);
    mdu_array_info_t info{};
    ASSERT_EQ(0, ioctl(md.get(), GET_ARRAY_INFO, &info));
    EXPECT_EQ(1, info.level);
    EXPECT_EQ(2, info.raid_disks);
    EXPECT_EQ(2, info.active_disks);
    EXPECT_EQ(0, info.failed_disks);

    for (int number = 0; number < 2; number++) {
        SCOPED_TRACE(number);
        mdu_disk_info_t member{};
        member.number = number;
        ASSERT_EQ(0, ioctl(md.get(), GET_DISK_INFO, &member));
        struct stat st {};
        ASSERT_EQ(0, stat(disk(number).c_str(), &st));
        EXPECT_EQ(SCSI_DISK0_MAJOR, member.major);
        EXPECT_EQ(makedev(member.major, member.minor), st.st_rdev);
        EXPECT_TRUE(member.state & (1 << MD_DISK_ACTIVE));
        EXPECT_TRUE(member.state & (1 << MD_DISK_SYNC));
    }

    EXPECT_EQ("raid1", read_text("/sys/block/md9/md/level"));
    EXPECT_EQ("2", read_text("/sys/block/md9/md/raid_disks"));
    EXPECT_EQ("in_sync", read_text("/sys/block/md9/md/dev-sda/state"));
    EXPECT_EQ("in_sync", read_text("/sys/block/md9/md/dev-sdb/state"));
    EXPECT_EQ("idle", read_text("/sys/block/md9/md/sync_action"));
}

TEST_F(GuestBench, ResyncIsSeenWhileTheSpeedIsHeldDown) {
    MdSpeedLimit slow(1000);
    ASSERT_EQ(0, guest_run("mdadm -C /dev/md9 -amd -R -l1 -n2 /dev/sda /dev/sdb"));
    Array array("/dev/md9", {"/dev/sda", "/dev/sdb"});
    EXPECT_EQ("resync", read_text("/sys/block/md9/md/sync_action"));
    std::string completed = read_text("/sys/block/md9/md/sync_completed");
    EXPECT_NE("none", completed);
    EXPECT_NE(std::string::npos, completed.find(" / ")) << completed;
}

}  // namespace
}  // namespace kova::test
