// Raw access: opening a disk node, single sectors, and what sector 0 of a USB disk holds.
#include <fcntl.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>

#include "core/sys.h"
#include "disk/disk_internal.h"
#include "kovasdk/partition.h"

using namespace kova;
using namespace kova::disk;

namespace {

constexpr int kSector = 512;
// Deliberately not widened: the sector position is formed in 32 bits, so only the first 4 GiB
// of a disk can be reached (sector 8,388,608 reads sector 0).
constexpr uint32_t position_of(uint32_t sector) {
    return sector << 9;
}

bool is_disk_major(unsigned major) {
    return major == 3 || major == 8 || major == 22 || major == 33 || major == 34 || major == 56 ||
           major == 57 || (major >= 65 && major <= 71) || (major >= 88 && major <= 91) ||
           (major >= 128 && major <= 135);
}

// "/dev/%s" for a bare name.
void device_name(const char *dev, char (&out)[PATH_MAX]) {
    if (strncmp(dev, "/dev/", 5) == 0) {
        snprintf(out, sizeof out, "%s", dev);
    } else {
        snprintf(out, sizeof out, "/dev/%s", dev);
    }
}

// Opens, seeks and moves one sector either way; the defined texts name the direction.
template <class Transfer>
int one_sector(const char *dev, uint32_t sector, int flags, const char *verb_failed,
               Transfer transfer, Site site) {
    char path[PATH_MAX];
    device_name(dev, path);
    const UniqueFd fd = open_device(path, flags);
    if (!fd) {
        const int error = errno;
        return fail(ERR_OPEN_FAILED, site, "%s(%d): failed to open device [%s] (errno = %d)", path,
                    error);
    }
    if (sector != 0 && sys::calls().lseek(fd.get(), position_of(sector), SEEK_SET) < 0) {
        // Logged, but no code is set for a failed seek.
        log_at(LOG_ERR, site, "%s(%d): failed to seek device [%s] (errno = %d)", path, errno);
        return -1;
    }
    if (transfer(fd.get()) != kSector) {
        const int error = errno;
        return fail(ERR_DISK_IO_FAILED, site, verb_failed, path, error);
    }
    return 0;
}

}  // namespace

int KOVAIDiskRawOpen(const char *szDevPath) {
    if (szDevPath == nullptr) return fail(ERR_BAD_PARAMETERS);
    UniqueFd fd = open_device(szDevPath, O_RDONLY | O_NONBLOCK);
    if (!fd) return fail(ERR_OPEN_RAWDEVICE);
    struct stat st {};
    if (sys::fstat(fd.get(), &st) != 0) return fail(ERR_STAT_FAILED);
    // Not a disk node: the bare code 22, not one of the table's codes (kept).
    if (!is_disk_major(major(st.st_rdev))) return fail(22);
    return fd.release();
}

int KOVAReadOneSectorFromDev(const char *szDev, uint32_t sector, void *pBuf) {
    if (szDev == nullptr || pBuf == nullptr) return fail(ERR_BAD_PARAMETERS);
    return one_sector(
        szDev, sector, O_RDONLY, "%s(%d): failed to read device [%s] (errno = %d)",
        [pBuf](int fd) { return sys::calls().read(fd, pBuf, kSector); }, Site());
}

int KOVAWriteOneSectorToDev(const char *szDev, uint32_t sector, const void *pBuf) {
    if (szDev == nullptr || pBuf == nullptr) return fail(ERR_BAD_PARAMETERS);
    return one_sector(
        szDev, sector, O_WRONLY, "%s(%d): failed to write device [%s] (errno = %d)",
        [pBuf](int fd) { return sys::calls().write(fd, pBuf, kSector); }, Site());
}

int KOVAIsUSBDiskFATNoPartition(const char *szDev) {
    if (szDev == nullptr) {
        fail(ERR_BAD_PARAMETERS);
        return 0;
    }
    unsigned char sector[kSector];
    if (KOVAReadOneSectorFromDev(szDev, 0, sector) != 0) return 0;
    if (sector[510] != 0x55 || sector[511] != 0xAA) return 0;
    // A FAT or NTFS type in the first partition entry: the disk is partitioned.
    for (const PART_TYPE *row = PartType; row->szName != nullptr; row++)
        if (row->type == sector[450] && row->flag == 1) return 0;
    const auto jump = [&](unsigned char b1) {
        return sector[0] == 0xEB && sector[1] == b1 && sector[2] == 0x90;
    };
    if (jump(0x3C) && memcmp(sector + 54, "FAT16", 5) == 0) return 1;
    if (jump(0x58) && memcmp(sector + 82, "FAT32", 5) == 0) return 1;
    if (jump(0x52) && memcmp(sector + 3, "NTFS", 4) == 0) return 1;
    return 0;
}
