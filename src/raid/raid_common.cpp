#include <fcntl.h>
#include <linux/major.h>
#include <linux/raid/md_u.h>

#include <cctype>
#include <cerrno>
#include <cstdio>
#include <cstring>

#include "core/owners.h"
#include "core/root.h"
#include "core/sys.h"
#include "raid/raid_internal.h"

namespace kova::raid {

bool parse_md(const char *path, int *number) {
    return path != nullptr && sscanf(path, "/dev/md%d", number) == 1;
}

int level_code(int md_level) {
    switch (md_level) {
        case 0:
            return RAID_LEVEL_RAID0;
        case 1:
            return RAID_LEVEL_RAID1;
        case 5:
            return RAID_LEVEL_RAID5;
        case 6:
            return RAID_LEVEL_RAID6;
        case -1:
            return RAID_LEVEL_LINEAR;
    }
    return 0;
}

int tolerance(int md_level, int raid_disks) {
    switch (md_level) {
        case 1:
            return raid_disks - 1;
        case 5:
            return 1;
        case 6:
            return 2;
    }
    return 0;
}

const char *level_text(int code) {
    switch (code) {
        case RAID_LEVEL_RAID0:
            return "0";
        case RAID_LEVEL_RAID1:
            return "1";
        case RAID_LEVEL_RAID5:
            return "5";
        case RAID_LEVEL_RAID6:
            return "6";
        case RAID_LEVEL_LINEAR:
            return "linear";
    }
    return nullptr;
}

int array_info(const char *md_path, mdu_array_info_t *info) {
    const DevicePath device(md_path);
    const UniqueFd fd(sys::open(device.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC));
    if (!fd) {
        if (errno == ENOENT || errno == ENXIO) {
            fail(ERR_PATH_NOT_FOUND);
            return 0;
        }
        return read_fail(ERR_OPEN_FAILED, Site(), kOpenFailed, md_path);
    }
    if (RAIDIoctlInfo(fd.get(), info) == 0) return 1;
    return KLIBErrGet() == ERR_PATH_NOT_FOUND ? 0 : -1;
}

void disk_of(const char *partition, char (&out)[128]) {
    snprintf(out, sizeof out, "%s", partition);
    for (char *p = out; *p != '\0'; p++) {
        if (isdigit(static_cast<unsigned char>(*p))) {
            *p = '\0';
            break;
        }
    }
}

}  // namespace kova::raid
