// What the disk family's files share: paths, keys, the defined log texts, the whole-disk rules
// of "/proc/partitions", and the bays.
#pragma once

#include <cstdint>

#include "core/fail.h"
#include "core/owners.h"
#include "kovasdk/disk.h"

namespace kova::disk {

inline constexpr char kProcPartitions[] = "/proc/partitions";
inline constexpr char kSysBlock[] = "/sys/block/";
inline constexpr char kScemdFifo[] = "/tmp/scemd.fifo";
inline constexpr char kUsbStandbyFile[] = "/tmp/standbytime";
inline constexpr char kTuningDevice[] = "/dev/hda3";

// Keys of "/etc.defaults/kovainfo.conf" and "/etc/kovainfo.conf".
inline constexpr char kKeyMaxDisks[] = "maxdisks";
inline constexpr char kKeyEsata[] = "esatadiskname";
inline constexpr char kKeyStandby[] = "standbytimer";
inline constexpr char kKeyUsbStandby[] = "usb_standbytimer";
inline constexpr char kKeyDiskCache[] = "diskcache";
inline constexpr char kKeyRcPower[] = "enableRCPower";

// The internal bays, /dev/sda to /dev/sdj.
inline constexpr int kBays = 10;
inline constexpr int kTuningReadAhead = 1024;
inline constexpr int kResetSettleSeconds = 10;
inline constexpr int kStandbyValue = 251;  // what every disk gets for a non-zero setting

// The path family's texts.
inline constexpr char kBadParams[] = "%s:%d bad paramters";
inline constexpr char kBadPath[] = "%s:%d bad paramters: disk path: %s";
inline constexpr char kBadHost[] = "%s:%d bad paramters: %d";
inline constexpr char kCallocFailed[] = "%s:%d Failed to calloc for %s, errno=%m";
inline constexpr char kParseFailed[] = "%s:%d Failed to parse disk path %s";
inline constexpr char kOpenFailed[] = "%s:%d Failed to open %s, errno=%m";
inline constexpr char kIoctlFailed[] = "%s:%d Failed to ioctl %s, errno=%m";
inline constexpr char kAllocateFailed[] = "%s:%d Failed to allocate, errno=%m";
inline constexpr char kMaxDisksFailed[] =
    "%s:%d Failed to get maxdisks from /etc.defaults/kovainfo.conf, errno=0x%X";
inline constexpr char kDiskInfoFailed[] = "%s:%d Failed to get disk information %s";
inline constexpr char kEboxFailed[] = "%s:%d Failed to get information of ebox: %s";

// A device number in the kernel's encoding.
constexpr uint32_t encode_dev(uint32_t major, uint32_t minor) {
    return (minor & 0xFF) | ((major << 8) & 0xFFF00) | ((minor & ~0xFFu) << 12);
}

// Whole disks of "/proc/partitions": IDE masters and slaves, SCSI disks.
bool is_ide_disk(uint32_t major, uint32_t minor);
bool is_scsi_disk(uint32_t major, uint32_t minor);

// "/dev/sd%c" of bay i (0 = sda).
struct BayPath {
    char path[16];
    explicit BayPath(int bay);
    const char *c_str() const { return path; }
};

// The last component of a path ("sda" of "/dev/sda").
const char *last_component(const char *path);

// Opens a device read-only (rooted as every device path is); errno tells why on -1.
UniqueFd open_device(const char *path, int flags);

// The disk's sector count through BLKGETSIZE on an open device (the kernel's long, taken as
// an unsigned 32-bit value): 0 or -1.
int sector_count(int fd, uint32_t *sectors);

// True when the disk's ATA commands take the SoC interface (KOVADiskIsMvSocDriver() == 1).
bool soc_interface(const char *path);

// IDENTIFY data of the disk (raw-opened): 0, or -1 with the open's error raised.
int read_identify(const char *path, uint16_t (&words)[256]);

}  // namespace kova::disk

namespace kova::disk {

// The ATA standby-timer value of a setting in minutes (0-20, 21, 30-330 by 30, 480), or -1.
int standby_ata_value(int minutes);

// Calls run(bay path) for each of /dev/sda to /dev/sdj that opens; the OR of the results.
int each_bay(int (*run)(const char *path, int argument), int argument);

}  // namespace kova::disk
