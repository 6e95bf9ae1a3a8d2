// Disks that answer the library's ioctls from recorded data. Each fake disk is a file under the
// sandbox's /dev (so it opens), reported by fstat as a SCSI disk node, with a sysfs entry whose
// device link says which controller carries it; its ioctls (HDIO_DRIVE_CMD, SG_IO, BLKGETSIZE,
// BLKFLSBUF, resets) are answered here and written down in the drive's log.
#pragma once

#include <cstdint>
#include <map>
#include <set>
#include <string>
#include <vector>

namespace kova::test {

struct FakeDrive {
    std::string name;
    int index = 0;
    uint64_t sectors = 8388608;  // BLKGETSIZE's answer (an unsigned long)
    uint16_t identify[256] = {};
    uint8_t smart[512] = {};
    uint8_t power = 0xFF;          // CHECK POWER MODE's answer
    uint8_t caching[24] = {};      // the SoC interface's caching mode page
    int fail_errno = 0;            // every ATA command fails with this when set
    int reset_errno = 0;           // HDIO_DRIVE_RESET and HDIO_SET_DMA fail with this when set
    std::vector<std::string> log;  // "E5", "E3 251", "EF 82", "SG E5", "MODE SELECT 00", ...
};

class FakeDrives {
  public:
    FakeDrives();
    ~FakeDrives();
    FakeDrives(const FakeDrives &) = delete;
    FakeDrives &operator=(const FakeDrives &) = delete;

    // A drive sdX under the current sandbox root, on an AHCI port or on the SoC controller.
    FakeDrive &add(const std::string &name, bool soc = false, const std::string &model = "");
    FakeDrive &drive(const std::string &name) { return drives_.at(name); }
    // A bay whose node is there but holds no disk: opening it fails with ENXIO.
    void add_empty_bay(const std::string &name);
    // Seconds the library asked to sleep.
    const std::vector<unsigned> &sleeps() const { return sleeps_; }

  private:
    std::map<std::string, FakeDrive> drives_;
    std::vector<unsigned> sleeps_;
    std::set<std::string> empty_;
};

// Open descriptors of this process.
int open_descriptors();

}  // namespace kova::test
