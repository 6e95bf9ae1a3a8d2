// The path family's records: one disk, the internal bays, an expansion unit's disks.
#include <fcntl.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "core/alloc.h"
#include "core/paths.h"
#include "core/root.h"
#include "disk/disk_internal.h"
#include "kovasdk/file.h"

using namespace kova;
using namespace kova::disk;

namespace {

// Opens the disk: 1 open, 0 absent, -1 failed (logged at the caller's site). A bay without a
// disk answers ENXIO from its static node; where /dev is made by the kernel (devtmpfs) it has
// no node at all, so ENOENT is absence too.
int open_present(const char *path, UniqueFd *fd, Site site) {
    *fd = open_device(path, O_RDONLY);
    if (*fd) return 1;
    if (errno == ENXIO || errno == ENOENT) return 0;
    log_at(LOG_ERR, site, kOpenFailed, path);
    return -1;
}

// Adds the present disks of paths to *list, the last path first; -1 when one failed.
int push_disks(const char *const *paths, int count, PDISK_LIST *list) {
    int found = 0;
    for (int i = count - 1; i >= 0; i--) {
        PDISK_INFO info = nullptr;
        const int rc = DiskInfoGet(paths[i], &info);
        if (rc < 0) {
            log_at(LOG_ERR, Site(), kDiskInfoFailed, paths[i]);
            return -1;
        }
        if (rc == 1) {
            DiskListPush(list, info);
            found++;
        }
    }
    return found;
}

}  // namespace

int DiskInfoGet(const char *szPath, PDISK_INFO *ppInfo) {
    if (szPath == nullptr || ppInfo == nullptr) {
        log_at(LOG_ERR, Site(), kBadParams);
        return -1;
    }
    UniqueMalloc<DISK_INFO> info(static_cast<PDISK_INFO>(xcalloc(1, sizeof(DISK_INFO))));
    if (!info) {
        log_at(LOG_ERR, Site(), kCallocFailed, szPath);
        return -1;
    }
    if (DiskPathParse(szPath, info.get()) != 0) {
        log_at(LOG_ERR, Site(), kParseFailed, szPath);
        return -1;
    }
    char path[sizeof info->szPath];
    if (info->nameLen == 2) {
        snprintf(path, sizeof path, "/dev/sd%c%c", info->firstIdx + 96, info->idx + 96);
    } else {
        snprintf(path, sizeof path, "/dev/sd%c", info->idx + 96);
    }
    UniqueFd fd;
    const int present = open_present(path, &fd, Site());
    if (present <= 0) return present;
    uint32_t sectors = 0;
    if (sector_count(fd.get(), &sectors) != 0) {
        log_at(LOG_ERR, Site(), kIoctlFailed, path);
        return -1;
    }
    memcpy(info->szPath, path, sizeof path);
    KOVALnxDiskGetModel(path, info->szModel, sizeof info->szModel);
    // The product as two 32-bit words, as it always was: high = count >> 23, low = count << 9.
    const uint32_t high = sectors >> 23;
    const uint32_t low = sectors << 9;
    info->ullSize = static_cast<uint64_t>(high) << 32 | low;
    info->temperature = KOVADiskTemperatureGet(path);
    *ppInfo = info.release();
    return 1;
}

void DiskInfoFree(PDISK_INFO pInfo) {
    free(pInfo);
}

void DiskListPush(PDISK_LIST *ppList, PDISK_INFO pInfo) {
    if (ppList == nullptr || pInfo == nullptr) return;
    auto *node = static_cast<PDISK_LIST>(xmalloc(sizeof(DISK_LIST)));
    if (node == nullptr) {
        log(LOG_ERR, kAllocateFailed, "disk_list_push", __LINE__);
        return;
    }
    node->pDisk = pInfo;
    node->pNext = *ppList;
    *ppList = node;
}

void DiskInfoEnumFree(PDISK_LIST pList) {
    while (pList != nullptr) {
        PDISK_LIST next = pList->pNext;
        DiskInfoFree(pList->pDisk);
        free(pList);
        pList = next;
    }
}

int DiskInfoEnum(PDISK_LIST *ppList) {
    if (ppList == nullptr) {
        log_at(LOG_ERR, Site(), kBadParams);
        return -1;
    }
    char value[16] = "";
    const RootedPath factory(paths::kKovaInfoDefaults);
    if (KLIBFileGetKeyValue(factory.c_str(), kKeyMaxDisks, value, sizeof value, 0) <= 0) {
        log_at(LOG_ERR, Site(), kMaxDisksFailed, KLIBErrGet());
        return -1;
    }
    const int bays = atoi(value);
    PDISK_LIST list = nullptr;
    int found = 0;
    // Downwards, pushing at the head: the list comes out in ascending bay order.
    for (int bay = bays - 1; bay >= 0; bay--) {
        const BayPath path(bay);
        if (KOVAEBoxDevIs(path.c_str()) == 1) continue;
        const char *one[] = {path.c_str()};
        const int rc = push_disks(one, 1, &list);
        if (rc < 0) {
            DiskInfoEnumFree(list);
            return -1;
        }
        found += rc;
    }
    *ppList = list;
    return found;
}

int DiskInfoEnumFromEBox(int host, PDISK_LIST *ppList) {
    if (host < 0 || ppList == nullptr) {
        log_at(LOG_ERR, Site(), kBadHost, host);
        return -1;
    }
    char name[16];
    snprintf(name, sizeof name, "host%d", host);
    PKOVAEBOXINFO unit = nullptr;
    if (KOVAEBoxInfoGet(name, &unit) != 0) {
        log_at(LOG_ERR, Site(), kEboxFailed, name);
        return -1;
    }
    const ScopeGuard release([&] { KOVAEBoxInfoFree(unit); });
    PDISK_LIST list = nullptr;
    const int count = unit->pDisks->nItem;
    const char **disks = static_cast<const char **>(xcalloc(count + 1, sizeof(char *)));
    if (disks == nullptr) {
        log_at(LOG_ERR, Site(), kAllocateFailed);
        return -1;
    }
    const ScopeGuard free_disks([&] { free(disks); });
    for (int i = 0; i < count; i++)
        disks[i] = SzKLIBSzListGet(unit->pDisks, i);
    const int found = push_disks(disks, count, &list);
    if (found < 0) {
        DiskInfoEnumFree(list);
        return -1;
    }
    *ppList = list;
    return found;
}

int DiskSizeGet(const char *szPath, uint32_t *pSectors) {
    if (szPath == nullptr || pSectors == nullptr) {
        log_at(LOG_ERR, Site(), kBadParams);
        return -1;
    }
    UniqueFd fd;
    const int present = open_present(szPath, &fd, Site());
    if (present <= 0) return present;
    if (sector_count(fd.get(), pSectors) != 0) {
        log_at(LOG_ERR, Site(), kIoctlFailed, szPath);
        return -1;
    }
    return 1;
}

int DiskIsExist(const char *szPath) {
    if (szPath == nullptr) return fail(ERR_BAD_PARAMETERS);
    uint32_t sectors = 0;
    return DiskSizeGet(szPath, &sectors) == 1 ? 1 : 0;
}
