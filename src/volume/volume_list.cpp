// Lists of volumes, counting them, and the enumeration of every volume of the machine.
#include <cctype>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "core/alloc.h"
#include "kovasdk/list.h"
#include "volume/volume_internal.h"

using namespace kova;
using namespace kova::volume;

namespace {

constexpr char kEnumFsFailed[] =
    "%s:%d Failed to enumerate volume info by FILE System, errno=0X%04X";

// Adds the volume of path unless the list has it: 0 (also when nothing exists there); -1 with
// the failing step logged in the source's own words.
int add_volume(PVOLUME_LIST *list, const char *path, const char *get_failed,
               const char *push_failed) {
    if (VolumeInfoListSearch(*list, path, nullptr) == 1) return 0;
    PVOLUME_INFO info = nullptr;
    const int rc = VolumeInfoGet(path, &info);
    if (rc < 0) {
        log_at(LOG_ERR, Site(), get_failed, path, KLIBErrGet());
        return -1;
    }
    if (rc == 0) return 0;
    if (VolumeInfoListPush(list, info) != 0) {
        log_at(LOG_ERR, Site(), push_failed, path, KLIBErrGet());
        VolumeInfoFree(info);
        return -1;
    }
    return 0;
}

// The mount points under /volume, in table order.
int mounted_volumes(PKLIBSZLIST *paths) {
    bool failed = false;
    const int rc = each_mount([&](const MountLine &line) {
        VOLUME_INFO parsed{};
        if (strncmp(line.mount_point, kVolumePrefix, strlen(kVolumePrefix)) != 0) return true;
        if (VolumePathParse(line.mount_point, &parsed) != 1) return true;
        failed = KLIBSzListPush(paths, line.mount_point) < 0;
        return !failed;
    });
    return rc != 0 || failed ? -1 : 0;
}

int by_file_system(PVOLUME_LIST *list) {
    PKLIBSZLIST paths = PslKLIBSzListAlloc(0);
    if (paths == nullptr || mounted_volumes(&paths) != 0) {
        log_at(LOG_ERR, Site(), "%s:%d Failed to enumerate file system path, errno=0X%04X",
               KLIBErrGet());
        KLIBSzListFree(paths);
        return -1;
    }
    int rc = 0;
    for (int i = 0; i < paths->nItem && rc == 0; i++)
        rc = add_volume(list, SzKLIBSzListGet(paths, i),
                        "%s:%d Failed to get volume information: %s, errno=0X%04X",
                        "%s:%d Failed to push volume information: %s, errno=0X%04X");
    KLIBSzListFree(paths);
    return rc;
}

int by_volume_group(PVOLUME_LIST *list) {
    PKLIBSZLIST groups = PslKLIBSzListAlloc(0);
    if (groups == nullptr) return -1;
    bool failed = false;
    int rc = each_pv([&](const PvLine &line) {
        char vg[128];
        if (snprintf(vg, sizeof vg, "/dev/%s", line.group) >= static_cast<int>(sizeof vg))
            return true;
        if (KLIBSzListFind(groups, vg) >= 0) return true;
        failed = KLIBSzListPush(&groups, vg) < 0;
        return !failed;
    });
    if (rc != 0 || failed) rc = -1;
    for (int i = 0; i < groups->nItem && rc == 0; i++) {
        char path[128];
        // A group that is not named vgN has no volume path.
        if (VolumePathSwitch(SzKLIBSzListGet(groups, i), VOLUME_SWITCH_VG_TO_VOL, path,
                             sizeof path) != 0)
            continue;
        rc = add_volume(list, path, "%s:%d Failed to get volume information %s, errno=0X%04X",
                        "%s:%d Failed to push volume information %s, errno=0X%04X");
    }
    KLIBSzListFree(groups);
    return rc;
}

int by_array(PVOLUME_LIST *list) {
    PKLIBSZLIST arrays = PslKLIBSzListAlloc(0);
    if (arrays == nullptr || RAIDPathEnum(&arrays) != 0) {
        KLIBSzListFree(arrays);
        return -1;
    }
    int rc = 0;
    for (int i = 0; i < arrays->nItem && rc == 0; i++) {
        const char *md = SzKLIBSzListGet(arrays, i);
        if (strcmp(md, kMd0) == 0 || strcmp(md, kMd1) == 0) continue;
        char path[128];
        if (VolumePathSwitch(md, VOLUME_SWITCH_MD_TO_VOL, path, sizeof path) != 0) continue;
        rc = add_volume(list, path, "%s:%d Failed to get volume information %s, errno=0X%04X",
                        "%s:%d Failed to push volume information %s, errno=0X%04X");
    }
    KLIBSzListFree(arrays);
    return rc;
}

}  // namespace

int VolumeInfoListPush(PVOLUME_LIST *ppList, PVOLUME_INFO pInfo) {
    if (ppList == nullptr || pInfo == nullptr) return fail(ERR_BAD_PARAMETERS);
    auto *node = static_cast<PVOLUME_LIST>(xcalloc(1, sizeof(VOLUME_LIST)));
    if (node == nullptr) return fail(ERR_OUT_OF_MEMORY, Site(), "%s:%d Failed to calloc, errno=%m");
    node->pVolume = pInfo;
    PVOLUME_LIST *tail = ppList;
    while (*tail != nullptr)
        tail = &(*tail)->pNext;
    *tail = node;
    return 0;
}

int VolumeInfoListSearch(PVOLUME_LIST pList, const char *szPath, PVOLUME_INFO *ppFound) {
    if (szPath == nullptr) return fail(ERR_BAD_PARAMETERS);
    for (PVOLUME_LIST node = pList; node != nullptr; node = node->pNext) {
        if (node->pVolume == nullptr || strcmp(node->pVolume->szPath, szPath) != 0) continue;
        if (ppFound != nullptr) *ppFound = node->pVolume;
        return 1;
    }
    return 0;
}

void VolumeInfoListFree(PVOLUME_LIST pList) {
    while (pList != nullptr) {
        PVOLUME_LIST next = pList->pNext;
        VolumeInfoFree(pList->pVolume);
        free(pList);
        pList = next;
    }
}

int VolumeCount(PVOLUME_LIST pList, const int *pLocation) {
    int count = 0;
    for (PVOLUME_LIST node = pList; node != nullptr; node = node->pNext) {
        if (node->pVolume == nullptr) {
            log_at(LOG_ERR, Site(), "%s:%d NULL volume info in the list");
            continue;
        }
        const char *path = node->pVolume->szPath;
        const size_t prefix = strlen(kVolumePrefix);
        if (pLocation == nullptr) {
            count++;
        } else if (*pLocation == VOLUME_LOCATION_INTERNAL) {
            if (strncmp(path, kVolumePrefix, prefix) == 0 &&
                isdigit(static_cast<unsigned char>(path[prefix])))
                count++;
        } else if (*pLocation == VOLUME_LOCATION_EBOX) {
            if (strncmp(path, "/volumeX", prefix + 1) == 0) count++;
        } else {
            log_at(LOG_ERR, Site(), "%s:%d Unsupport volume location type: %d", *pLocation);
            count++;
        }
    }
    return count;
}

int VolumeInfoEnum(PVOLUME_LIST *ppList) {
    if (ppList == nullptr) return fail(ERR_BAD_PARAMETERS);
    PVOLUME_LIST list = nullptr;
    const char *failed = nullptr;
    if (by_file_system(&list) != 0) {
        failed = kEnumFsFailed;
    } else if (by_volume_group(&list) != 0) {
        failed = "%s:%d Failed to enumerate volume info by LVM, errno=0X%04X";
    } else if (by_array(&list) != 0) {
        failed = "%s:%d Failed to enumerate volume info by RAID, errno=0X%04X";
    }
    if (failed != nullptr) {
        log_at(LOG_ERR, Site(), failed, KLIBErrGet());
        VolumeInfoListFree(list);
        return -1;
    }
    *ppList = list;
    return VolumeCount(list, nullptr);
}
