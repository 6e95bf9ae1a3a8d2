// Sizes: what a replacement member needs, whether an array can grow, the size limit, the stripe
// width, the number of bays.
#include <linux/major.h>
#include <linux/raid/md_u.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "core/owners.h"
#include "core/paths.h"
#include "core/root.h"
#include "core/run.h"
#include "kovasdk/disk.h"
#include "kovasdk/partition.h"
#include "raid/raid_internal.h"

using namespace kova;
using namespace kova::raid;

namespace {

constexpr uint64_t kDataStartLayout1 = 1348945920;
constexpr uint64_t kDataStartLayout2 = 3216084480;

struct PipeCloser {
    void operator()(FILE *f) const { pclose(f); }
};

}  // namespace

int RAIDRequireDevSizeGet(const RAID_INFO *pInfo, uint64_t *pBytes) {
    if (pInfo == nullptr || pBytes == nullptr) return fail(ERR_BAD_PARAMETERS);
    if (pInfo->level == RAID_LEVEL_RAID0 || pInfo->level == RAID_LEVEL_LINEAR) {
        *pBytes = 0;
        return 0;
    }
    if (pInfo->mdNum >= kEboxMin) {
        *pBytes = pInfo->ullDevSize + kMemberReserve;
        return 0;
    }
    int layout = 0;
    if (PartitionLayoutGet(&layout) != 0) {
        log_at(LOG_DEBUG, Site(), "%s:%d Failed to get layout partition for %s, errno=0x%X",
               pInfo->szPath, KLIBErrGet());
        return -1;
    }
    const uint64_t data_start = layout == 1 ? kDataStartLayout1 : kDataStartLayout2;
    *pBytes = pInfo->ullDevSize + data_start + kMemberReserve;
    return 0;
}

int RAIDExpansible(const RAID_INFO *pInfo, uint64_t *pNewKiB) {
    if (pInfo == nullptr || pNewKiB == nullptr) return fail(ERR_BAD_PARAMETERS);
    uint32_t smallest = 0;
    bool found = false;
    for (const RAID_DISK *d = pInfo->pDiskList; d != nullptr; d = d->pNext) {
        uint32_t sectors = 0;
        if (DiskSizeGet(d->szPath, &sectors) != 1) continue;
        if (!found || sectors < smallest) smallest = sectors;
        found = true;
    }
    if (!found) {
        log_at(LOG_DEBUG, Site(), "%s:%d bad parameters");
        log_at(LOG_DEBUG, Site(), "%s:%d Failed to get minimal device size, %s", pInfo->szPath);
        return fail(ERR_BAD_PARAMETERS);
    }
    // The md superblock's 128 sectors at the 64 KiB-aligned end of the member.
    uint64_t usable = ((static_cast<uint64_t>(smallest) & ~127ull) - 128) >> 1;
    uint32_t limit = 0;
    if (RAIDSizeLimitGet(&limit) == 1 && limit < usable) usable = limit;
    if (usable > pInfo->ullDevSize / 1024) {
        *pNewKiB = usable;
        return 1;
    }
    return 0;
}

int RAIDSizeLimitGet(uint32_t *pKiB) {
    if (pKiB == nullptr) return fail(ERR_BAD_PARAMETERS);
    *pKiB = 0;
    UniqueGlob found;
    if (found.run(RootedPath("/tmp/volume.*").c_str(), 0) != 0 || found.get().gl_pathc == 0)
        return 0;
    const char *dot = strrchr(found.get().gl_pathv[0], '.');
    *pKiB = static_cast<uint32_t>(atoi(dot + 1)) << 20;
    return 1;
}

int RAIDMdStripeSizeGet(const char *szMdPath) {
    if (szMdPath == nullptr) return fail(ERR_BAD_PARAMETERS);
    mdu_array_info_t array{};
    if (array_info(szMdPath, &array) != 1) return -1;
    int data_slots = 0;
    switch (level_code(array.level)) {
        case RAID_LEVEL_RAID1:
        case RAID_LEVEL_LINEAR:
            return 0;
        case RAID_LEVEL_RAID0:
            data_slots = array.raid_disks;
            break;
        case RAID_LEVEL_RAID5:
            data_slots = array.raid_disks - 1;
            break;
        case RAID_LEVEL_RAID6:
            data_slots = array.raid_disks - 2;
            break;
        default:
            log_at(LOG_DEBUG, Site(), "%s:%d unknown raid type [%d]", array.level);
            return fail(ERR_UNKNOWN);
    }
    const char *name = strrchr(szMdPath, '/') + 1;
    char path[PATH_MAX];
    snprintf(path, sizeof path, "%s%s/md/chunk_size", kSysBlock, name);
    UniqueFile file(fopen(RootedPath(path).c_str(), "re"));
    if (!file) return fail(ERR_OPEN_FAILED);
    unsigned long chunk = 0;
    if (fscanf(file.get(), "%lu", &chunk) != 1)
        return read_fail(ERR_READ_FAILED, Site(), "%s:%d failed to get value from '%s'", path);
    return static_cast<int>((chunk * static_cast<unsigned long>(data_slots)) >> 10);
}

int KOVAMaxDiskGet(void) {
    const ProgramPath program("/bin/get_key_value");
    char file[PATH_MAX];
    if (!shell_word(RootedPath(paths::kKovaInfoDefaults).c_str(), file, sizeof file)) return 0;
    char command[PATH_MAX * 3];
    snprintf(command, sizeof command, "%s %s %s", program.shell_word(), file, "maxdisks");
    std::unique_ptr<FILE, PipeCloser> pipe(open_shell_pipe(command));
    if (!pipe) {
        log_at(LOG_ERR, Site(), "%s(%d) Failed to popen cmd = '%s', errno=%s/%d.", command,
               strerror(errno), errno);
        return 0;
    }
    char line[64];
    if (fgets(line, sizeof line, pipe.get()) == nullptr) {
        log_at(LOG_ERR, Site(), "%s(%d) Failed to fgets cmd = '%s', errno=%s/%d.", command,
               strerror(errno), errno);
        return 0;
    }
    return atoi(line);
}
