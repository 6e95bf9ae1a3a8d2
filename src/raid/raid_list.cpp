// Lists of arrays, and the system arrays md0 and md1.
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "core/alloc.h"
#include "raid/raid_internal.h"

using namespace kova;
using namespace kova::raid;

namespace {

bool rebuild_matches(const RAID_INFO &info, int wanted) {
    if (info.rebuild[0] == RAID_REBUILD_NONE) return wanted == 0;
    const bool redundant = info.level == RAID_LEVEL_RAID1 || info.level == RAID_LEVEL_RAID5 ||
                           info.level == RAID_LEVEL_RAID6;
    return wanted == 1 && redundant;
}

bool matches(const RAID_INFO &info, const RAID_SEARCH &criteria) {
    bool found = false;
    if (criteria.mode == RAID_SEARCH_PATH) {
        found = strcmp(info.szPath, criteria.szKey) == 0;
    } else if (criteria.mode == RAID_SEARCH_MEMBER) {
        found = RAIDDiskListSearch(info.pDiskList, criteria.szKey, nullptr) == 1;
    }
    if (found && criteria.pRebuild != nullptr) found = rebuild_matches(info, *criteria.pRebuild);
    return found;
}

// One system array, or the failure of RAIDSystemGet.
int read_system_array(const char *path, PRAID_INFO *out) {
    if (RAIDInfoGet(path, out) == 1) return 0;
    log_at(LOG_DEBUG, Site(), "%s:%d Failed to get information of %s, errno=0x%X.", path,
           KLIBErrGet());
    return fail(ERR_SYS_UNKNOWN);
}

}  // namespace

int RAIDListPush(PRAID_LIST *ppList, PRAID_INFO pInfo) {
    if (ppList == nullptr || pInfo == nullptr) return fail(ERR_BAD_PARAMETERS);
    auto *node = static_cast<PRAID_LIST>(xcalloc(1, sizeof(RAID_LIST)));
    if (node == nullptr) return read_fail(ERR_OUT_OF_MEMORY, Site(), kAllocateFailed);
    node->pRaid = pInfo;
    if (*ppList == nullptr) {
        *ppList = node;
        return 0;
    }
    // Behind the head, not at the end: first, then the others newest first (kept).
    node->pNext = (*ppList)->pNext;
    (*ppList)->pNext = node;
    return 0;
}

void RAIDListFree(PRAID_LIST pList) {
    while (pList != nullptr) {
        PRAID_LIST next = pList->pNext;
        RAIDInfoFree(pList->pRaid);
        free(pList);
        pList = next;
    }
}

int RAIDListSearch(PRAID_LIST pList, const RAID_SEARCH *pCriteria, PRAID_INFO *ppFound) {
    if (pCriteria == nullptr || pCriteria->szKey == nullptr || ppFound == nullptr)
        return fail(ERR_BAD_PARAMETERS);
    for (PRAID_LIST node = pList; node != nullptr; node = node->pNext) {
        if (node->pRaid == nullptr) {
            log_at(LOG_DEBUG, Site(), "%s:%d RAID_INFO is NULL");
            continue;
        }
        if (matches(*node->pRaid, *pCriteria)) {
            *ppFound = node->pRaid;
            return 1;
        }
    }
    return 0;
}

int RAIDSystemGet(PRAID_SYSTEM pSystem) {
    if (pSystem == nullptr) return fail(ERR_BAD_PARAMETERS);
    pSystem->pMd0 = pSystem->pMd1 = nullptr;
    if (read_system_array(kMd0, &pSystem->pMd0) != 0) return -1;
    if (read_system_array(kMd1, &pSystem->pMd1) != 0) {
        RAIDSystemFree(pSystem);
        return -1;
    }
    return 0;
}

void RAIDSystemFree(PRAID_SYSTEM pSystem) {
    if (pSystem == nullptr) return;
    RAIDInfoFree(pSystem->pMd0);
    RAIDInfoFree(pSystem->pMd1);
    pSystem->pMd0 = pSystem->pMd1 = nullptr;
}

int RAIDSystemDiskStatusGet(const RAID_SYSTEM *pSystem, const char *szDisk, int *pStatus) {
    if (pSystem == nullptr || szDisk == nullptr || pStatus == nullptr)
        return fail(ERR_BAD_PARAMETERS);
    char disk[128];
    disk_of(szDisk, disk);
    char first[140];
    char second[140];
    snprintf(first, sizeof first, "%s1", disk);
    snprintf(second, sizeof second, "%s2", disk);
    PRAID_DISK in_md0 = nullptr;
    PRAID_DISK in_md1 = nullptr;
    if (pSystem->pMd0 != nullptr) RAIDDiskListSearch(pSystem->pMd0->pDiskList, first, &in_md0);
    if (pSystem->pMd1 != nullptr) RAIDDiskListSearch(pSystem->pMd1->pDiskList, second, &in_md1);
    if (in_md0 == nullptr && in_md1 == nullptr) return 0;
    const auto failing = [](const RAID_DISK *d) {
        return d->status == RAID_DISK_FAULTY || d->status == RAID_DISK_ERROR;
    };
    const bool healthy =
        in_md0 != nullptr && in_md1 != nullptr && !failing(in_md0) && !failing(in_md1);
    *pStatus = healthy ? 0 : 1;
    return 1;
}
