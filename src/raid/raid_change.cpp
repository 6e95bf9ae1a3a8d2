// Changing arrays: mdadm through the shell, judged by its exit status.
#include <linux/major.h>
#include <linux/raid/md_u.h>
#include <unistd.h>

#include <cstdio>
#include <cstring>

#include "core/command_line.h"
#include "core/root.h"
#include "core/run.h"
#include "kovasdk/disk.h"
#include "kovasdk/partition.h"
#include "raid/raid_internal.h"

using namespace kova;
using namespace kova::raid;

namespace {

constexpr char kQuiet[] = " > /dev/null 2>&1";

// Runs a composed command: its exit status, -1 when it could not run or did not fit.
int run(const CommandLine &command) {
    return command.run();
}

// The partition path of a disk ("%s%d").
void partition_of(const char *disk, int number, char (&out)[160]) {
    snprintf(out, sizeof out, "%s%d", disk, number);
}

}  // namespace

int RAIDCreate(const char *szMdPath, int level, int raidDisks, int spares,
               const KLIBSZLIST *pDevs) {
    const char *level_word = level_text(level);
    if (szMdPath == nullptr || level_word == nullptr || raidDisks < 1 || spares < 0 ||
        pDevs == nullptr) {
        return fail(ERR_BAD_PARAMETERS);
    }
    const int listed = pDevs->nItem;
    if (spares >= listed || listed > raidDisks + spares) return fail(ERR_BAD_PARAMETERS);
    char spare_option[16] = "";
    if (level == RAID_LEVEL_RAID1 || level == RAID_LEVEL_RAID5 || level == RAID_LEVEL_RAID6)
        snprintf(spare_option, sizeof spare_option, "-x%d", spares);
    char size_option[32] = "";
    uint32_t limit = 0;
    if (RAIDSizeLimitGet(&limit) == 1)
        snprintf(size_option, sizeof size_option, "-z %lu", static_cast<unsigned long>(limit));
    CommandLine command;
    command.text("mdadm -C ").device(szMdPath);
    command.text(" -amd -R -l%s %s -n%d %s %s ", level_word, raidDisks == 1 ? "-f" : "", raidDisks,
                 spare_option, size_option);
    for (int i = 0; i < listed; i++)
        command.text(" ").device(SzKLIBSzListGet(pDevs, i));
    // Slots without a device: a degraded creation.
    for (int i = listed; i < raidDisks + spares; i++)
        command.text(" missing");
    command.text("%s", kQuiet);
    if (run(command) != 0) {
        log_at(LOG_ERR, Site(), "%s:%d Failed to do '%s'", command.c_str());
        return fail(ERR_SYS_UNKNOWN);
    }
    KOVARAIDMdTuningPerformance(szMdPath);
    return 0;
}

int RAIDAdd(const char *szMdPath, const char *szDevPath) {
    if (szMdPath == nullptr || szDevPath == nullptr) return fail(ERR_BAD_PARAMETERS);
    CommandLine command;
    command.text("mdadm ").device(szMdPath).text(" -a ").device(szDevPath).text("%s", kQuiet);
    if (run(command) != 0) {
        log_at(LOG_ERR, Site(), "%s:%d Failed to add '%s' into '%s' ", szDevPath, szMdPath);
        return fail(ERR_SYS_UNKNOWN);
    }
    return 0;
}

int RAIDAddRobustCheck(const char *szMdPath, const char *szDevPath) {
    if (szMdPath == nullptr || szDevPath == nullptr) return fail(ERR_BAD_PARAMETERS);
    PRAID_INFO info = nullptr;
    const int read = RAIDInfoGet(szMdPath, &info);
    if (read == 0)
        return fail(ERR_PATH_NOT_FOUND, Site(), "%s:%d Failed to get %s info, errno=[0x%X]",
                    szMdPath, KLIBErrGet());
    if (read < 0) return fail(ERR_SYS_UNKNOWN, Site(), "%s:%d Failed to get %s info", szMdPath);
    const uint64_t member_bytes = info->ullDevSize;
    RAIDInfoFree(info);
    uint32_t sectors = 0;
    const int sized = DiskSizeGet(szDevPath, &sectors);
    if (sized == 0)
        return fail(ERR_PATH_NOT_FOUND, Site(), "%s:%d Failed to get %s size, errno=[0x%X]",
                    szDevPath, KLIBErrGet());
    if (sized < 0) return fail(ERR_SYS_UNKNOWN, Site(), "%s:%d Failed to get %s size", szDevPath);
    if (sectors < (member_bytes + 256) >> 9) return fail(ERR_NOT_ENOUGH_SPACE);
    if (RAIDAdd(szMdPath, szDevPath) != 0)
        return fail(ERR_SYS_UNKNOWN, Site(), "%s:%d Failed to add %s into %s, errno=%m", szDevPath,
                    szMdPath);
    return 0;
}

int RAIDStop(const char *szMdPath) {
    if (szMdPath == nullptr) return fail(ERR_BAD_PARAMETERS);
    CommandLine command;
    command.text("mdadm -S ").device(szMdPath).text("%s", kQuiet);
    if (run(command) != 0) {
        log_at(LOG_ERR, Site(), "%s:%d Failed to mdadm stop '%s'", szMdPath);
        return fail(ERR_SYS_UNKNOWN);
    }
    return 0;
}

int RAIDCleanSuperblock(const RAID_INFO *pInfo) {
    if (pInfo == nullptr || pInfo->pDiskList == nullptr) return fail(ERR_BAD_PARAMETERS);
    int result = 0;
    // Every member is wiped; only the last wipe decides the result (kept).
    for (const RAID_DISK *d = pInfo->pDiskList; d != nullptr; d = d->pNext) {
        CommandLine command;
        command.text("mdadm --zero-superblock ").device(d->szPath).text("%s", kQuiet);
        result = run(command) == 0 ? 0 : -1;
        if (result != 0) log_at(LOG_ERR, Site(), "%s:%d Failed to mdadm stop '%s'", d->szPath);
    }
    return result == 0 ? 0 : fail(ERR_SYS_UNKNOWN);
}

int RAIDRemove(const RAID_INFO *pInfo) {
    if (pInfo == nullptr) return fail(ERR_BAD_PARAMETERS);
    const int stopped = RAIDStop(pInfo->szPath);
    if (stopped == 0) RAIDCleanSuperblock(pInfo);
    return stopped;
}

int RAIDDevCountChange(const char *szMdPath, int count) {
    if (szMdPath == nullptr || count <= 0) {
        log_at(LOG_ERR, Site(), "%s:%d Bad parameters: diskCount=%d ", count);
        return fail(ERR_BAD_PARAMETERS);
    }
    CommandLine command;
    command.text("mdadm --grow ").device(szMdPath).text(" -n %d >/dev/null 2>&1\n", count);
    const int status = run(command);
    if (status != 0) {
        log_at(LOG_ERR, Site(), "%s:%d mdadm failed to grow %s, disk count=%d, errno=%d", szMdPath,
               count, status);
        return fail(ERR_SYS_UNKNOWN);
    }
    return 0;
}

int RAIDExpand(const char *szMdPath, uint64_t ullKiB) {
    if (szMdPath == nullptr || ullKiB == 0) {
        log_at(LOG_ERR, Site(), "%s:%d bad parameters");
        return fail(ERR_BAD_PARAMETERS);
    }
    CommandLine command;
    command.text("mdadm --grow ")
        .device(szMdPath)
        .text(" -z %llu >/dev/null 2>&1\n", static_cast<unsigned long long>(ullKiB));
    if (run(command) != 0) {
        log_at(LOG_ERR, Site(), "%s:%d mdadm failed to grow %s to size: %llu\n", szMdPath,
               static_cast<unsigned long long>(ullKiB));
        return fail(ERR_SYS_UNKNOWN);
    }
    return 0;
}

int RAIDAssemble(const RAID_SB *pSB, const KLIBSZLIST *pDevs) {
    if (pSB == nullptr || pDevs == nullptr || pDevs->nItem < 1) return fail(ERR_BAD_PARAMETERS);
    CommandLine assemble;
    assemble.text("mdadm ").device(pSB->szMdPath).text(" -A -u ").word(pSB->szUUID).text(" --run");
    for (int i = 0; i < pDevs->nItem; i++)
        assemble.text(" ").device(SzKLIBSzListGet(pDevs, i));
    assemble.text("%s", kQuiet);
    run(assemble);
    CommandLine start;
    start.text("mdadm --run ").device(pSB->szMdPath).text(" ");
    run(start);
    // Neither exit status is judged, as it always was.
    return 0;
}

int RAIDSystemAdd(const char *szDiskPath) {
    if (szDiskPath == nullptr) return fail(ERR_BAD_PARAMETERS);
    char first[160];
    char second[160];
    partition_of(szDiskPath, 1, first);
    partition_of(szDiskPath, 2, second);
    int result = 0;
    if (RAIDAdd(kMd0, first) != 0) {
        log_at(LOG_ERR, Site(), "%s:%d Failed to add %s into /dev/md0", first);
        result = -1;
    }
    if (RAIDAdd(kMd1, second) != 0) {
        log_at(LOG_ERR, Site(), "%s:%d Failed to add %s into /dev/md1", second);
        result = -1;
    }
    return result;
}

int RAIDDiskInit(const char *szDiskPath, int mode) {
    if (szDiskPath == nullptr || (mode != RAID_DISK_INIT_JOIN && mode != RAID_DISK_INIT_CLEAN)) {
        log_at(LOG_ERR, Site(), kBadParams);
        return fail(ERR_BAD_PARAMETERS);
    }
    if (mode == RAID_DISK_INIT_CLEAN) {
        if (PartitionClean(szDiskPath, 3) != 0)
            return fail(ERR_SYS_UNKNOWN, Site(),
                        "%s:%d Failed to clean all partition of %s, errno=0x%X", szDiskPath,
                        KLIBErrGet());
        return 0;
    }
    RAID_SYSTEM system{};
    if (RAIDSystemGet(&system) != 0)
        return fail(ERR_SYS_UNKNOWN, Site(),
                    "%s:%d Failed to get system RAID info for %s, errno=0x%X", szDiskPath,
                    KLIBErrGet());
    int in_system = 0;
    const int member = RAIDSystemDiskStatusGet(&system, szDiskPath, &in_system);
    RAIDSystemFree(&system);
    if (member == 0) {
        if (PartitionClean(szDiskPath, 3) != 0)
            return fail(ERR_SYS_UNKNOWN, Site(),
                        "%s:%d Failed to clean partition of %s, errno=0x%X", szDiskPath,
                        KLIBErrGet());
        if (PartitionCreate(szDiskPath, 1, nullptr) != 0)
            return fail(ERR_SYS_UNKNOWN, Site(),
                        "%s:%d Failed to create system partition of %s, errno=0x%X", szDiskPath,
                        KLIBErrGet());
        if (RAIDSystemAdd(szDiskPath) != 0)
            return fail(ERR_SYS_UNKNOWN, Site(),
                        "%s:%d Failed to insert system partition of %s, errno=0x%X", szDiskPath,
                        KLIBErrGet());
    }
    if (PartitionCreate(szDiskPath, 2, nullptr) != 0)
        return fail(ERR_SYS_UNKNOWN, Site(),
                    "%s:%d Failed to create data partition of %s, errno=0x%X", szDiskPath,
                    KLIBErrGet());
    return 0;
}

int KOVARAIDMdTuningPerformance(const char *szMdPath) {
    if (szMdPath == nullptr || strncmp(szMdPath, "/dev/md", 7) != 0) {
        log_at(LOG_ERR, Site(), "%s:%d illegal device path: %s ",
               szMdPath != nullptr ? szMdPath : "NULL");
        return fail(ERR_BAD_PARAMETERS);
    }
    mdu_array_info_t array{};
    if (array_info(szMdPath, &array) != 1) {
        log_at(LOG_ERR, Site(), "%s:%d failed to get raid info: %s ", szMdPath);
        return -1;
    }
    switch (level_code(array.level)) {
        case RAID_LEVEL_RAID1:
            return KOVASysBlkDevReadAheadSet(szMdPath, kReadAhead) == 0 ? 0 : -1;
        case RAID_LEVEL_RAID5:
            KOVARAIDMdStripeCacheSizeSet(szMdPath, kStripeCache);
            break;
    }
    return 0;
}

int KOVARAIDMdStripeCacheSizeSet(const char *szMdPath, int value) {
    const char *slash = szMdPath != nullptr ? strrchr(szMdPath, '/') : nullptr;
    if (slash == nullptr) {
        log_at(LOG_ERR, Site(), "%s:%d Illegal path : '%s', skip setting stripe size. ",
               szMdPath != nullptr ? szMdPath : "NULL");
        return fail(ERR_BAD_PARAMETERS);
    }
    char file[PATH_MAX];
    snprintf(file, sizeof file, "%s%s/md/stripe_cache_size", kSysBlock, slash + 1);
    const RootedPath rooted(file);
    // An array without a stripe cache (not RAID5/6): nothing to set.
    if (access(rooted.c_str(), F_OK) != 0) return 0;
    const ProgramPath echo("/bin/echo");
    CommandLine command;
    command.text("%s %d > ", echo.shell_word(), value).word(rooted.c_str());
    const int status = run(command);
    if (status != 0) {
        log_at(LOG_ERR, Site(),
               "%s:%d Failed to change stripe cache size of '%s', WEXITSTATUS(err)=%d", szMdPath,
               status);
        return fail(ERR_SYS_UNKNOWN);
    }
    return 0;
}
