// Tests that need a real kernel (md arrays, ATA disks, mounts) run only in the storage test
// bench's guest (scripts/vm/run, make test-vm), never against this machine's own disks. Their
// suites are named Guest*: the guest runs exactly those, and on the host they skip.
#pragma once

#include <gtest/gtest.h>

#include <string>

namespace kova::test {

// True inside the bench's guest: its kernel command line carries "kova.guest=1".
bool in_guest();

// The number of SATA disks the host attached (sda, sdb, ... in that order).
int guest_disks();

// Runs a shell command, its output discarded; returns its exit status (-1 if it did not run).
int guest_run(const std::string &command);

// The whole content of a sysfs or proc file, without the trailing newline.
std::string read_text(const std::string &path);

class GuestTest : public ::testing::Test {
  protected:
    void SetUp() override {
        if (!in_guest())
            GTEST_SKIP() << "needs a real kernel's md and ATA drivers: runs in the storage test "
                            "VM (make test-vm)";
    }
};

// A guest test on the bench's disks: at least four of them, and before and after each test
// every volume unmounted, every array stopped, every superblock and partition table gone.
class GuestStorageTest : public GuestTest {
  protected:
    void SetUp() override;
    void TearDown() override;
};

// Returns the guest's disks to blank.
void wipe_guest_disks();

// Holds the md resync speed down while alive, so that a test sees a rebuild in progress.
class MdSpeedLimit {
  public:
    explicit MdSpeedLimit(int kib_per_second);
    ~MdSpeedLimit();
    MdSpeedLimit(const MdSpeedLimit &) = delete;
    MdSpeedLimit &operator=(const MdSpeedLimit &) = delete;

  private:
    std::string saved_min_;
    std::string saved_max_;
};

}  // namespace kova::test
