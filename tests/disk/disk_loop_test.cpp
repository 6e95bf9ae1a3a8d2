// The disk calls on real block devices without a VM: a loop device over a file of the sandbox,
// reached through a node made with mknod inside the sandbox's /dev. Needs root.
#include <fcntl.h>
#include <linux/loop.h>
#include <sys/ioctl.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>
#include <unistd.h>

#include <cstring>
#include <filesystem>
#include <string>

#include "kovasdk/disk.h"
#include "kovasdk/error.h"
#include "support/sandbox.h"

namespace kova::test {
namespace {

constexpr size_t kDiskBytes = 8 << 20;

class DiskLoop : public SandboxTest {
  protected:
    void SetUp() override {
        if (geteuid() != 0) GTEST_SKIP() << "needs root for a loop device and mknod";
        const int control = open("/dev/loop-control", O_RDWR | O_CLOEXEC);
        if (control < 0) GTEST_SKIP() << "no /dev/loop-control here";
        const int n = ioctl(control, LOOP_CTL_GET_FREE);
        close(control);
        if (n < 0) GTEST_SKIP() << "no free loop device";
        backing_ = path("/disk.img");
        write_file(backing_, std::string(kDiskBytes, '\0'));
        loop_ = "/dev/loop" + std::to_string(n);
        loop_fd_ = open(loop_.c_str(), O_RDWR | O_CLOEXEC);
        const int file = open(backing_.c_str(), O_RDWR | O_CLOEXEC);
        ASSERT_GE(loop_fd_, 0);
        ASSERT_GE(file, 0);
        const int attached = ioctl(loop_fd_, LOOP_SET_FD, file);
        close(file);
        if (attached != 0) GTEST_SKIP() << "cannot attach " << loop_ << ": " << strerror(errno);
        struct stat st {};
        ASSERT_EQ(0, fstat(loop_fd_, &st));
        std::filesystem::create_directories(path("/dev"));
        if (mknod(path("/dev/sda").c_str(), S_IFBLK | 0600, st.st_rdev) != 0)
            GTEST_SKIP() << "mknod refused here: " << strerror(errno);
        // A node whose major has no driver: the kernel answers ENXIO, as for an empty bay.
        ASSERT_EQ(0, mknod(path("/dev/sdb").c_str(), S_IFBLK | 0600, makedev(240, 0)));
    }
    void TearDown() override {
        if (loop_fd_ >= 0) {
            ioctl(loop_fd_, LOOP_CLR_FD, 0);
            close(loop_fd_);
        }
    }
    std::string backing_bytes(size_t offset, size_t size) {
        return read_file(backing_).substr(offset, size);
    }

    std::string backing_;
    std::string loop_;
    int loop_fd_ = -1;
};

TEST_F(DiskLoop, InfoAndSizeOfARealBlockDevice) {
    PDISK_INFO info = nullptr;
    ASSERT_EQ(1, DiskInfoGet("/dev/sda", &info));
    EXPECT_STREQ("/dev/sda", info->szPath);
    EXPECT_EQ(kDiskBytes, info->ullSize);
    EXPECT_STREQ("", info->szModel) << "no sysfs entry: the model stays empty";
    EXPECT_EQ(-1, info->temperature) << "a loop device answers no S.M.A.R.T.";
    DiskInfoFree(info);
    uint32_t sectors = 0;
    EXPECT_EQ(1, DiskSizeGet("/dev/sda", &sectors));
    EXPECT_EQ(kDiskBytes / 512, sectors);
    EXPECT_EQ(1, DiskIsExist("/dev/sda"));

    // ENXIO is an absent disk, not a failure.
    EXPECT_EQ(0, DiskInfoGet("/dev/sdb", &info));
    EXPECT_EQ(0, DiskSizeGet("/dev/sdb", &sectors));
    EXPECT_EQ(0, DiskIsExist("/dev/sdb"));
    // Loop devices are not disks to the raw opener.
    EXPECT_EQ(-1, KOVAIDiskRawOpen("/dev/sda"));
    EXPECT_EQ(22u, KLIBErrGet());
}

TEST_F(DiskLoop, SectorsRoundTripWithinTheFirst4GiB) {
    unsigned char out[512];
    unsigned char in[512] = {};
    memset(out, 0xA5, sizeof out);
    ASSERT_EQ(0, KOVAWriteOneSectorToDev("/dev/sda", 5, out));
    ASSERT_EQ(0, KOVAReadOneSectorFromDev("sda", 5, in));
    EXPECT_EQ(0, memcmp(out, in, sizeof in));
    fsync(loop_fd_);
    EXPECT_EQ(std::string(512, '\xA5'), backing_bytes(5 * 512, 512));

    // Sector 8,388,608 is byte 4 GiB, which in 32 bits is byte 0: it reaches sector 0 (kept).
    memset(out, 0x3C, sizeof out);
    ASSERT_EQ(0, KOVAWriteOneSectorToDev("sda", 0, out));
    ASSERT_EQ(0, KOVAReadOneSectorFromDev("/dev/sda", 8388608, in));
    EXPECT_EQ(0, memcmp(out, in, sizeof in));

    // Past the end: a short read is a disk failure; a missing node an open failure.
    EXPECT_EQ(-1, KOVAReadOneSectorFromDev("/dev/sda", kDiskBytes / 512, in));
    EXPECT_TRUE(raised(ERR_DISK_IO_FAILED));
    EXPECT_EQ(-1, KOVAReadOneSectorFromDev("/dev/sdc", 0, in));
    EXPECT_TRUE(raised(ERR_OPEN_FAILED));
    EXPECT_EQ(-1, KOVAWriteOneSectorToDev(nullptr, 0, out));
    EXPECT_TRUE(raised(ERR_BAD_PARAMETERS));
}

}  // namespace
}  // namespace kova::test
