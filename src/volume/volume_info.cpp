// The volume record: the file system mounted at the path, the volume group and the arrays
// beneath.
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "core/alloc.h"
#include "core/owners.h"
#include "kovasdk/list.h"
#include "volume/volume_internal.h"

using namespace kova;
using namespace kova::volume;

namespace {

enum class Kind { none, array, group };

struct SzListOwner {
    void operator()(PKLIBSZLIST list) const { KLIBSzListFree(list); }
};
using UniqueSzList = std::unique_ptr<KLIBSZLIST, SzListOwner>;

// Pushes a path to the array list: 0; -1.
int add_array(UniqueSzList &arrays, const char *path) {
    PKLIBSZLIST list = arrays.release();
    const int rc = KLIBSzListPush(&list, path);
    arrays.reset(list);
    return rc < 0 ? -1 : 0;
}

// The md array of the volume path itself, when it has one.
int add_own_array(const VOLUME_INFO &info, UniqueSzList &arrays) {
    if (info.location != VOLUME_LOCATION_INTERNAL && info.location != VOLUME_LOCATION_EBOX)
        return 0;
    char md[128];
    if (VolumePathSwitch(info.szPath, VOLUME_SWITCH_VOL_TO_MD, md, sizeof md) != 0) return -1;
    return add_array(arrays, md);
}

// Step 3: the group of vg_path, its normal physical volumes as the arrays; without the group,
// the path's own array.
int read_group(VOLUME_INFO &info, const char *vg_path, UniqueSzList &arrays) {
    const int rc = vg_info_get(vg_path, &info.pVGInfo);
    if (rc < 0) {
        log_at(LOG_ERR, Site(), "%s:%d Failed to get VG info, path=%s, errno=0X%X", info.szPath,
               KLIBErrGet());
        return -1;
    }
    if (rc == 0) return add_own_array(info, arrays);
    for (const PV_INFO *pv = info.pVGInfo->pPVList; pv != nullptr; pv = pv->pNext) {
        if (pv->state != PV_STATE_NORMAL) continue;
        if (add_array(arrays, pv->szPath) != 0) {
            log_at(LOG_ERR, Site(), "%s:%d Failed to enum normal PV of VG, path=%s, errno=0X%X",
                   info.szPath, KLIBErrGet());
            return -1;
        }
    }
    return 0;
}

bool not_there(uint32_t code) {
    return code == ERR_RAID_BAD_PATH || code == ERR_OPEN_FAILED || code == ERR_PATH_NOT_FOUND;
}

// Step 4: the records of the arrays that run. Another failure abandons the whole list.
void read_arrays(VOLUME_INFO &info, const KLIBSZLIST &arrays) {
    for (int i = 0; i < arrays.nItem; i++) {
        const char *path = SzKLIBSzListGet(&arrays, i);
        PRAID_INFO raid = nullptr;
        const int rc = RAIDInfoGet(path, &raid);
        if (rc == 0 || (rc < 0 && not_there(KLIBErrGet()))) {
            log_at(LOG_DEBUG, Site(), "%s:%d RAID not exist %s", path);
            continue;
        }
        if (rc < 0 || RAIDListPush(&info.pRaidList, raid) != 0) {
            log_at(LOG_ERR, Site(), "%s:%d Failed to get RAID information %s, errno=0X%X", path,
                   KLIBErrGet());
            RAIDInfoFree(raid);
            RAIDListFree(info.pRaidList);
            info.pRaidList = nullptr;
            return;
        }
    }
}

}  // namespace

int VolumeInfoGet(const char *szPath, PVOLUME_INFO *ppInfo) {
    if (szPath == nullptr || ppInfo == nullptr) return fail(ERR_BAD_PARAMETERS);
    VOLUME_INFO parsed{};
    if (VolumePathParse(szPath, &parsed) != 1 || strlen(szPath) >= sizeof parsed.szPath)
        return fail(ERR_BAD_PARAMETERS, Site(), kBadParams);
    UniqueMalloc<VOLUME_INFO> owner(static_cast<PVOLUME_INFO>(xcalloc(1, sizeof(VOLUME_INFO))));
    if (!owner) return fail(ERR_OUT_OF_MEMORY, Site(), "%s:%d Failed to calloc, errno=%m");
    UniqueSzList arrays(PslKLIBSzListAlloc(0));
    if (!arrays)
        return fail(ERR_OUT_OF_MEMORY, Site(), "%s:%d Failed to PslKLIBSzListAlloc, errno=0X%X",
                    KLIBErrGet());
    PVOLUME_INFO info = owner.release();
    ScopeGuard release([&] { VolumeInfoFree(info); });
    info->num = parsed.num;
    info->location = parsed.location;
    snprintf(info->szPath, sizeof info->szPath, "%s", szPath);

    if (fs_info_get(szPath, &info->pFSInfo) < 0)
        return fail(ERR_UNKNOWN, Site(),
                    "%s:%d Failed to get file system info, path=%s, errno=0X%X", szPath,
                    KLIBErrGet());
    Kind kind = Kind::none;
    char vg_path[128] = "";
    if (info->pFSInfo != nullptr) {
        const char *source = info->pFSInfo->szDevice;
        if (strncmp(source, kMdPrefix, strlen(kMdPrefix)) == 0) {
            if (add_array(arrays, source) != 0) return -1;
            kind = Kind::array;
        } else if (lv_group_path(source, vg_path)) {
            kind = Kind::group;
        }
    } else if (info->location == VOLUME_LOCATION_INTERNAL) {
        snprintf(vg_path, sizeof vg_path, "/dev/vg%d", info->num);
        kind = Kind::group;
    } else if (info->location == VOLUME_LOCATION_EBOX) {
        if (add_own_array(*info, arrays) != 0) return -1;
        kind = Kind::array;
    }
    if (kind == Kind::group && read_group(*info, vg_path, arrays) != 0) return -1;

    read_arrays(*info, *arrays);
    if (info->pRaidList == nullptr) {
        vg_info_free(info->pVGInfo);
        info->pVGInfo = nullptr;
    }
    if (info->pFSInfo == nullptr && info->pVGInfo == nullptr && info->pRaidList == nullptr) {
        *ppInfo = nullptr;
        return 0;
    }
    release.dismiss();
    *ppInfo = info;
    return 1;
}

void VolumeInfoFree(PVOLUME_INFO pInfo) {
    if (pInfo == nullptr) return;
    free(pInfo->pFSInfo);
    vg_info_free(pInfo->pVGInfo);
    RAIDListFree(pInfo->pRaidList);
    free(pInfo);
}
