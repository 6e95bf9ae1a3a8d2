// A volume's health and writability, and whether it is a single-disk volume.
#include <cstdio>
#include <cstring>

#include "core/paths.h"
#include "core/root.h"
#include "kovasdk/file.h"
#include "volume/volume_internal.h"

using namespace kova;
using namespace kova::volume;

namespace {

constexpr uint32_t kNotWritable = VOLUME_NOT_MOUNTED | VOLUME_FS_STATE2 |
                                  VOLUME_PV_STATE1_INTERNAL | VOLUME_PV_STATE1_EBOX |
                                  VOLUME_RAID_CRASHED;
constexpr char kSingleDiskLevel[] = "99";  // "md%d_level" of a RAID1 that stands for one disk

// The walk follows the group's count; a list that ends before it is logged.
uint32_t group_flags(const VG_INFO &group) {
    uint32_t flags = 0;
    const PV_INFO *pv = group.pPVList;
    for (int i = 0; i < group.pvCount; i++, pv = pv->pNext) {
        if (pv == nullptr) {
            log_at(LOG_ERR, Site(), "%s:%d Can not render VG status since PV info is NULL.");
            break;
        }
        if (pv->state != PV_STATE_MISSING) continue;
        int md = 0;
        if (!parse_md(pv->szPath, &md)) {
            log_at(LOG_ERR, Site(), kParseRaidFailed, pv->szPath);
            break;
        }
        flags |= md > kEboxBase ? VOLUME_PV_STATE1_EBOX : VOLUME_PV_STATE1_INTERNAL;
    }
    return flags;
}

// Bit 64 for an internal array with a member disk that is not sound in both system arrays.
// The system arrays are read at the first internal array only.
class SystemCheck {
  public:
    ~SystemCheck() {
        if (state_ == State::read) RAIDSystemFree(&system_);
    }
    bool abnormal(const RAID_INFO &array) {
        if (!open()) return false;
        for (const RAID_DISK *d = array.pDiskList; d != nullptr; d = d->pNext) {
            int status = 0;
            const int rc = RAIDSystemDiskStatusGet(&system_, d->szPath, &status);
            if (rc < 0) {
                log_at(LOG_ERR, Site(), "%s:%d Failed to get RAID disk status, errno=0x%X.",
                       KLIBErrGet());
                return false;
            }
            if (rc == 0 || status != 0) return true;
        }
        return false;
    }

  private:
    enum class State { unread, read, failed };
    bool open() {
        if (state_ == State::unread) {
            state_ = RAIDSystemGet(&system_) == 0 ? State::read : State::failed;
            if (state_ == State::failed)
                log_at(LOG_ERR, Site(),
                       "%s:%d Can not render volume status since System RAID can NOT be open.");
        }
        return state_ == State::read;
    }
    RAID_SYSTEM system_{};
    State state_ = State::unread;
};

}  // namespace

int VolumeHealthyCheck(const VOLUME_INFO *pInfo, uint32_t *pFlags) {
    if (pInfo == nullptr || pFlags == nullptr) return fail(ERR_BAD_PARAMETERS);
    if (pInfo->pRaidList == nullptr) return fail(ERR_SYS_UNKNOWN, Site(), "%s:%d Bad parameters.");
    uint32_t flags = 0;
    if (pInfo->pFSInfo == nullptr) {
        flags |= VOLUME_NOT_MOUNTED;
    } else if (pInfo->pFSInfo->state == FS_STATE_READONLY) {
        flags |= VOLUME_FS_STATE2;
    }
    if (pInfo->pVGInfo != nullptr) flags |= group_flags(*pInfo->pVGInfo);
    SystemCheck system;
    bool system_abnormal = false;
    for (const RAID_LIST *node = pInfo->pRaidList; node != nullptr; node = node->pNext) {
        const RAID_INFO *array = node->pRaid;
        if (array == nullptr)
            return fail(ERR_SYS_UNKNOWN, Site(),
                        "%s:%d Can not render RAID status since RAID info is NULL.");
        if (array->status == RAID_STATUS_DEGRADE) flags |= VOLUME_RAID_DEGRADE;
        if (array->status == RAID_STATUS_CRASHED) flags |= VOLUME_RAID_CRASHED;
        if (array->mdNum <= kInternalMax && !system_abnormal)
            system_abnormal = system.abnormal(*array);
    }
    if (system_abnormal) flags |= VOLUME_SYSTEM_PARTITION_ABNORMAL;
    *pFlags = flags;
    return 0;
}

int VolumeIsWritable(const VOLUME_INFO *pInfo, uint32_t *pFlags) {
    uint32_t flags = 0;
    if (VolumeHealthyCheck(pInfo, &flags) != 0) return -1;
    if (pFlags != nullptr) *pFlags = flags;
    return (flags & kNotWritable) == 0 ? 1 : 0;
}

int VolumeIsBasic(const VOLUME_INFO *pInfo) {
    if (pInfo == nullptr) return fail(ERR_BAD_PARAMETERS);
    if (pInfo->pRaidList == nullptr || pInfo->pRaidList->pRaid == nullptr) {
        log_at(LOG_ERR, Site(), kBadParams);
        return 0;
    }
    if (pInfo->pVGInfo != nullptr && pInfo->pVGInfo->pvCount > 1) return 0;
    const RAID_INFO &first = *pInfo->pRaidList->pRaid;
    if (first.level == RAID_LEVEL_RAID0) return first.raidDisks == 1 ? 1 : 0;
    if (first.level != RAID_LEVEL_RAID1) return 0;
    if (first.raidDisks == 1) return 1;
    char key[32];
    char value[16];
    snprintf(key, sizeof key, "md%d_level", first.mdNum);
    if (KLIBFileGetKeyValue(RootedPath(paths::kKovaInfo).c_str(), key, value, sizeof value, 0) <= 0)
        return 0;
    return strcmp(value, kSingleDiskLevel) == 0 ? 1 : 0;
}
