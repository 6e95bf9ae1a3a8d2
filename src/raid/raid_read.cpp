// Reading arrays: the md driver's answers, the members in sysfs, the status decision, the
// array record.
#include <fcntl.h>
#include <linux/fs.h>
#include <linux/major.h>
#include <linux/raid/md_u.h>

#include <cctype>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "core/alloc.h"
#include "core/owners.h"
#include "core/root.h"
#include "core/sys.h"
#include "raid/raid_internal.h"

using namespace kova;
using namespace kova::raid;

namespace {

constexpr int kStateLine = 32;

// The first line of a member's sysfs file into line: 0, or -1 (0x0900 / 0x0A00 raised).
int first_line(const char *dir, const char *file, char (&line)[kStateLine + 1]) {
    char path[PATH_MAX];
    snprintf(path, sizeof path, "%s/%s", dir, file);
    const DevicePath rooted(path);
    UniqueFile f(fopen(rooted.c_str(), "re"));
    if (!f) return read_fail(ERR_OPEN_FAILED, Site(), "%s:%d Failed to fopen %s, errno=%m", path);
    if (fgets(line, sizeof line, f.get()) == nullptr)
        return read_fail(ERR_READ_FAILED, Site(), "%s:%d Failed to fgets %s, errno=%m", path);
    return 0;
}

// A member's status from its state file (and its slot for a spare).
int member_status(const char *dir, int *status) {
    char state[kStateLine + 1];
    if (first_line(dir, "state", state) != 0) return -1;
    if (strstr(state, "faulty") != nullptr) {
        *status = RAID_DISK_FAULTY;
    } else if (strstr(state, "error") != nullptr) {
        *status = RAID_DISK_ERROR;
    } else if (strstr(state, "in_sync") == nullptr && strstr(state, "spare") != nullptr) {
        char slot[kStateLine + 1];
        if (first_line(dir, "slot", slot) != 0) return -1;
        *status = strstr(slot, "none") != nullptr ? RAID_DISK_SPARE : RAID_DISK_RECOVERING;
    } else {
        *status = RAID_DISK_IN_SYNC;
    }
    return 0;
}

}  // namespace

int RAIDIoctlInfo(int fd, mdu_array_info_t *pInfo) {
    if (pInfo == nullptr) return fail(ERR_BAD_PARAMETERS);
    if (sys::ioctl(fd, GET_ARRAY_INFO, pInfo) == 0) return 0;
    if (errno == ENODEV) return fail(ERR_PATH_NOT_FOUND);
    return read_fail(ERR_UNKNOWN, Site(), "%s:%d Failed to ioctl for raid status, errno=%m");
}

int RAIDIoctlSize(int fd, uint64_t *pBytes) {
    if (pBytes == nullptr) return fail(ERR_BAD_PARAMETERS);
    if (sys::ioctl(fd, BLKGETSIZE64, pBytes) == 0) return 0;
    if (errno == ENODEV) return fail(ERR_PATH_NOT_FOUND);
    return read_fail(ERR_UNKNOWN, Site(), "%s:%d Failed to ioctl for raid status, errno=%m");
}

int RAIDRebuildStatusGet(int fd, int32_t rebuild[3]) {
    if (rebuild == nullptr) return fail(ERR_BAD_PARAMETERS);
    int32_t words[3] = {0, 0, 0};
    rebuild[0] = rebuild[1] = rebuild[2] = 0;
    if (sys::ioctl(fd, kRebuildRequest, words) != 0) {
        if (errno == ENODEV) return fail(ERR_PATH_NOT_FOUND);
        // A kernel without the appliance's request: no rebuild state to report.
        if (errno == ENOTTY || errno == EINVAL) return 0;
        return read_fail(ERR_UNKNOWN, Site(), "%s:%d Failed to ioctl for sync status, errno=%m");
    }
    if (words[0] == 0) return 0;
    if (words[1] == 0) {
        rebuild[0] = RAID_REBUILD_PENDING;
        return 0;
    }
    rebuild[0] = RAID_REBUILD_RUNNING;
    rebuild[1] = words[1];
    rebuild[2] = words[2];
    return 0;
}

int RAIDDiskCreate(const char *szMemberDir, PRAID_DISK *ppDisk) {
    if (szMemberDir == nullptr || ppDisk == nullptr) return fail(ERR_BAD_PARAMETERS);
    const char *name = strstr(szMemberDir, "dev-");
    if (name == nullptr)
        return read_fail(ERR_BAD_PARAMETERS, Site(), "%s:%d Failed to strstr %s, errno=%m",
                         szMemberDir);
    int status = 0;
    if (member_status(szMemberDir, &status) != 0) {
        log_at(LOG_DEBUG, Site(), "%s:%d Failed to get status from %s, errno=0X%X", szMemberDir,
               KLIBErrGet());
        return -1;
    }
    auto *disk = static_cast<PRAID_DISK>(xcalloc(1, sizeof(RAID_DISK)));
    if (disk == nullptr) return fail(ERR_OUT_OF_MEMORY);
    snprintf(disk->szPath, sizeof disk->szPath, "/dev/%s", name + 4);
    disk->status = status;
    *ppDisk = disk;
    return 0;
}

void RAIDDiskListPush(PRAID_DISK *ppList, PRAID_DISK pDisk) {
    if (ppList == nullptr || pDisk == nullptr) return;
    pDisk->pNext = *ppList;
    *ppList = pDisk;
}

void RAIDDiskListFree(PRAID_DISK pList) {
    while (pList != nullptr) {
        PRAID_DISK next = pList->pNext;
        free(pList);
        pList = next;
    }
}

int RAIDDiskListGet(const char *szMdPath, PRAID_DISK *ppList) {
    if (ppList == nullptr) return fail(ERR_BAD_PARAMETERS);
    int number = 0;
    if (!parse_md(szMdPath, &number))
        return read_fail(ERR_RAID_BAD_PATH, Site(), kBadPath, szMdPath);
    char pattern[64];
    snprintf(pattern, sizeof pattern, "/sys/block/md%d/md/dev-*", number);
    UniqueGlob found;
    const int rc = found.run(RootedPath(pattern).c_str(), 0);
    *ppList = nullptr;
    if (rc == GLOB_NOMATCH) return 0;
    if (rc != 0)
        return read_fail(ERR_UNKNOWN, Site(), "%s:%d failed to glob '%s', errno=%m", pattern);
    PRAID_DISK list = nullptr;
    // Each member pushed at the head: the list comes out in reverse glob order.
    for (size_t i = 0; i < found.get().gl_pathc; i++) {
        PRAID_DISK disk = nullptr;
        if (RAIDDiskCreate(found.get().gl_pathv[i], &disk) != 0) {
            log_at(LOG_DEBUG, Site(), "%s:%d Failed to create disk info from %s ,errno=0X%X",
                   found.get().gl_pathv[i], KLIBErrGet());
            RAIDDiskListFree(list);
            return -1;
        }
        RAIDDiskListPush(&list, disk);
    }
    *ppList = list;
    return static_cast<int>(found.get().gl_pathc);
}

int RAIDDiskListSearch(PRAID_DISK pList, const char *szPath, PRAID_DISK *ppFound) {
    if (szPath == nullptr) return fail(ERR_BAD_PARAMETERS);
    for (PRAID_DISK d = pList; d != nullptr; d = d->pNext) {
        if (strcmp(d->szPath, szPath) == 0) {
            if (ppFound != nullptr) *ppFound = d;
            return 1;
        }
    }
    return 0;
}

int RAIDDiskCount(const RAID_DISK *pList, int status) {
    int n = 0;
    for (const RAID_DISK *d = pList; d != nullptr; d = d->pNext)
        if (d->status == status) n++;
    return n;
}

int RAIDStatusDecide(const mdu_array_info_t *pArray, const RAID_DISK *pList, int *pStatus) {
    if (pArray == nullptr || pStatus == nullptr) return fail(ERR_BAD_PARAMETERS);
    const int in_sync = RAIDDiskCount(pList, RAID_DISK_IN_SYNC);
    const int missing = pArray->raid_disks - in_sync;
    const int tolerated = tolerance(pArray->level, pArray->raid_disks);
    if (pList == nullptr || RAIDDiskCount(pList, RAID_DISK_ERROR) > 0) {
        *pStatus = RAID_STATUS_CRASHED;
    } else if (missing <= 0) {
        *pStatus = RAID_STATUS_NORMAL;
    } else {
        *pStatus = missing > tolerated ? RAID_STATUS_CRASHED : RAID_STATUS_DEGRADE;
    }
    return 0;
}

int RAIDInfoGet(const char *szMdPath, PRAID_INFO *ppInfo) {
    if (ppInfo == nullptr) return fail(ERR_BAD_PARAMETERS);
    int number = 0;
    if (!parse_md(szMdPath, &number))
        return read_fail(ERR_RAID_BAD_PATH, Site(), kBadPath, szMdPath);
    UniqueMalloc<RAID_INFO> info(static_cast<PRAID_INFO>(xcalloc(1, sizeof(RAID_INFO))));
    if (!info) return read_fail(ERR_OUT_OF_MEMORY, Site(), "%s:%d Failed to calloc, errno=%m");
    ScopeGuard members([&] { RAIDDiskListFree(info->pDiskList); });
    const DevicePath device(szMdPath);
    const UniqueFd fd(sys::open(device.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC));
    if (!fd) {
        // No node: the kernel's /dev shows no array that is not running.
        if (errno == ENOENT || errno == ENXIO) {
            fail(ERR_PATH_NOT_FOUND);
            return 0;
        }
        return read_fail(ERR_OPEN_FAILED, Site(), kOpenFailed, szMdPath);
    }
    mdu_array_info_t array{};
    if (RAIDIoctlInfo(fd.get(), &array) != 0) {
        if (KLIBErrGet() == ERR_PATH_NOT_FOUND) return 0;
        log_at(LOG_DEBUG, Site(), "%s:%d Failed to ioctl for raid status, errno=0X%X",
               KLIBErrGet());
        return -1;
    }
    info->mdNum = number;
    snprintf(info->szPath, sizeof info->szPath, "%s", szMdPath);
    info->level = level_code(array.level);
    if (info->level == 0)
        log_at(LOG_DEBUG, Site(), "%s:%d Not supported RAID level: %d", array.level);
    info->ullDevSize = static_cast<uint64_t>(static_cast<uint32_t>(array.size)) * 1024;
    info->raidDisks = array.raid_disks;
    if (RAIDIoctlSize(fd.get(), &info->ullArraySize) != 0) {
        log_at(LOG_DEBUG, Site(), "%s:%d Failed to ioctl for raid size, errno=0X%X", KLIBErrGet());
        return -1;
    }
    if (RAIDDiskListGet(szMdPath, &info->pDiskList) < 0) {
        log_at(LOG_DEBUG, Site(), "%s:%d Failed to get disk list for /dev/md%d, errno=0X%X", number,
               KLIBErrGet());
        return -1;
    }
    info->eboxIdx = -1;
    const char *first = info->pDiskList != nullptr ? info->pDiskList->szPath : "";
    // "/dev/sd", exactly two letters, then the partition number: an expansion unit's disk.
    if (strncmp(first, "/dev/sd", 7) == 0 && islower(first[7]) && islower(first[8]) &&
        !isalpha(first[9])) {
        info->eboxIdx = first[7] - 'a';
    }
    if (RAIDRebuildStatusGet(fd.get(), info->rebuild) != 0) {
        // The same text as the member list's failure, as it always was.
        log_at(LOG_DEBUG, Site(), "%s:%d Failed to get disk list for /dev/md%d, errno=0X%X", number,
               KLIBErrGet());
        return -1;
    }
    if (RAIDStatusDecide(&array, info->pDiskList, &info->status) != 0) {
        log_at(LOG_DEBUG, Site(), "%s:%d Failed to decide raid status for /dev/md%d, errno=0X%X",
               number, KLIBErrGet());
        return -1;
    }
    members.dismiss();
    *ppInfo = info.release();
    return 1;
}

void RAIDInfoFree(PRAID_INFO pInfo) {
    if (pInfo == nullptr) return;
    RAIDDiskListFree(pInfo->pDiskList);
    free(pInfo);
}

int RAIDIsDetected(const char *szMdPath) {
    if (szMdPath == nullptr) return fail(ERR_BAD_PARAMETERS);
    mdu_array_info_t array{};
    const int rc = array_info(szMdPath, &array);
    if (rc < 0 && KLIBErrGet() != ERR_OPEN_FAILED)
        log_at(LOG_DEBUG, Site(), "%s:%d Failed to ioctl %s, errno=0X%X", szMdPath, KLIBErrGet());
    return rc;
}

int RAIDPathEnum(PKLIBSZLIST *ppList) {
    if (ppList == nullptr || *ppList == nullptr) return fail(ERR_BAD_PARAMETERS);
    const RootedPath pattern("/sys/block/md*");
    UniqueGlob found;
    const int rc = found.run(pattern.c_str(), 0);
    if (rc == GLOB_NOMATCH) return 0;
    if (rc != 0)
        return read_fail(ERR_UNKNOWN, Site(), "%s:%d failed to glob '%s', errno=%m",
                         "/sys/block/md*");
    const size_t root = strlen(RootedPath("/").c_str()) - 1;
    for (size_t i = 0; i < found.get().gl_pathc; i++) {
        const char *entry = found.get().gl_pathv[i] + root;
        int number = 0;
        if (sscanf(entry, "/sys/block/md%d", &number) != 1) {
            log_at(LOG_DEBUG, Site(), "%s:%d Failed to parse raid path %s, errno=%m", entry);
            continue;
        }
        char path[32];
        snprintf(path, sizeof path, "/dev/md%d", number);
        if (RAIDIsDetected(path) == 1 && KLIBSzListPush(ppList, path) < 0) return -1;
    }
    return 0;
}
