#include <fcntl.h>
#include <linux/fs.h>

#include <cerrno>
#include <cstdio>
#include <cstring>

#include "core/root.h"
#include "core/sys.h"
#include "disk/ata.h"
#include "disk/disk_internal.h"

namespace kova::disk {

bool is_ide_disk(uint32_t major, uint32_t minor) {
    static constexpr uint32_t kIdeMajors[] = {3, 22, 33, 34, 56, 57, 88, 89, 90, 91};
    if (minor != 0 && minor != 64) return false;
    for (uint32_t m : kIdeMajors)
        if (m == major) return true;
    return false;
}

bool is_scsi_disk(uint32_t major, uint32_t minor) {
    return (major == 8 || (major >= 65 && major <= 135)) && minor % 16 == 0;
}

BayPath::BayPath(int bay) {
    snprintf(path, sizeof path, "/dev/sd%c", 'a' + bay);
}

const char *last_component(const char *path) {
    const char *slash = strrchr(path, '/');
    return slash != nullptr ? slash + 1 : path;
}

UniqueFd open_device(const char *path, int flags) {
    const DevicePath device(path);
    if (!device.ok()) {
        errno = ENAMETOOLONG;
        return UniqueFd();
    }
    return UniqueFd(sys::open(device.c_str(), flags | O_CLOEXEC));
}

int sector_count(int fd, uint32_t *sectors) {
    unsigned long count = 0;
    if (sys::ioctl(fd, BLKGETSIZE, &count) != 0) return -1;
    *sectors = static_cast<uint32_t>(count);
    return 0;
}

bool soc_interface(const char *path) {
    return KOVADiskIsMvSocDriver(path) == 1;
}

int read_identify(const char *path, uint16_t (&words)[256]) {
    const UniqueFd fd(KOVAIDiskRawOpen(path));
    if (!fd) return -1;
    return ata::identify(fd.get(), soc_interface(path), words);
}

}  // namespace kova::disk
