// What the members' superblocks say, through mdadm's examine output.
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "core/alloc.h"
#include "core/command_line.h"
#include "core/owners.h"
#include "core/run.h"
#include "raid/raid_internal.h"

using namespace kova;
using namespace kova::raid;

namespace {

constexpr int kLine = 1024;

struct PipeCloser {
    void operator()(FILE *f) const { pclose(f); }
};
using UniquePipe = std::unique_ptr<FILE, PipeCloser>;

// The level code of an examine word; any text the appliance does not know counts as RAID5
// (raid10 among them), as it always has.
int level_of(const char *text) {
    if (strcmp(text, "raid5") == 0) return RAID_LEVEL_RAID5;
    if (strcmp(text, "raid1") == 0) return RAID_LEVEL_RAID1;
    if (strcmp(text, "raid0") == 0) return RAID_LEVEL_RAID0;
    if (strcmp(text, "raid6") == 0) return RAID_LEVEL_RAID6;
    if (strcmp(text, "linear") == 0) return RAID_LEVEL_LINEAR;
    return RAID_LEVEL_RAID5;
}

// The array's device of an examine line. Older mdadm prints "/dev/md2"; today's prints the
// array's name, "/dev/md/2" (or "/dev/md/host:2" for another host's array): both are taken
// back to "/dev/md2".
void md_path_of(const char *word, char (&out)[64]) {
    if (strncmp(word, "/dev/md/", 8) == 0) {
        const char *name = word + 8;
        const char *colon = strrchr(name, ':');
        if (colon != nullptr) name = colon + 1;
        if (*name != '\0' && strspn(name, "0123456789") == strlen(name)) {
            // Digits only: an array number fits; a longer one is cut, and then does not parse.
            const int n = snprintf(out, sizeof out, "/dev/md%.*s", 48, name);
            if (n < 0 || static_cast<size_t>(n) >= sizeof out) out[0] = '\0';
            return;
        }
    }
    snprintf(out, sizeof out, "%s", word);
}

// The words of an examine line into *sb.
void parse_examine(char *line, RAID_SB *sb, bool with_level) {
    char *save = nullptr;
    for (char *w = strtok_r(line, " \t\n", &save); w != nullptr;
         w = strtok_r(nullptr, " \t\n", &save)) {
        if (strncmp(w, "/dev/md", 7) == 0) {
            md_path_of(w, sb->szMdPath);
        } else if (strncmp(w, "UUID=", 5) == 0) {
            snprintf(sb->szUUID, sizeof sb->szUUID, "%s", w + 5);
        } else if (with_level && strncmp(w, "level=", 6) == 0) {
            sb->level = level_of(w + 6);
        } else if (with_level && strncmp(w, "num-devices=", 12) == 0) {
            sb->numDevices = atoi(w + 12);
        }
    }
}

// Today's mdadm leaves level and device count out of its brief line for version-1
// superblocks: they are read from the full examine output instead.
void complete_from_examine(const char *device, RAID_SB *sb) {
    CommandLine command;
    command.text("mdadm -E ").device(device).text(" 2>/dev/null");
    if (!command.ok()) return;
    UniquePipe pipe(open_shell_pipe(command.c_str()));
    char line[kLine];
    while (pipe && fgets(line, sizeof line, pipe.get()) != nullptr) {
        char value[64];
        if (sb->level == 0 && sscanf(line, " Raid Level : %63s", value) == 1)
            sb->level = level_of(value);
        if (sb->numDevices == 0 && sscanf(line, " Raid Devices : %63s", value) == 1)
            sb->numDevices = atoi(value);
    }
}

// Runs the brief examine of a device: 1 with the first line in *sb, 0 nothing printed, -1.
int examine(const char *device, const char *redirect, RAID_SB *sb, bool with_level, Site site) {
    CommandLine command;
    command.text("mdadm -E -b ").device(device).text("%s", redirect);
    if (!command.ok()) return fail(ERR_BAD_PARAMETERS);
    UniquePipe pipe(open_shell_pipe(command.c_str()));
    if (!pipe)
        return read_fail(ERR_UNKNOWN, site, "%s:%d Failed to popen cmd = '%s', errno=%m.",
                         command.c_str());
    char line[kLine];
    if (fgets(line, sizeof line, pipe.get()) == nullptr) {
        log_at(LOG_DEBUG, site, "%s:%d Failed to fgets from '%s', errno=%m.", command.c_str());
        return 0;
    }
    line[strcspn(line, "\n")] = '\0';
    if (line[0] == '\0')
        return read_fail(ERR_UNKNOWN, site, "%s:%d unexpected line [%s] produced by [%s]", line,
                         command.c_str());
    parse_examine(line, sb, with_level);
    return 1;
}

}  // namespace

int RAIDSBGet(const char *szDevPath, PRAID_SB pSB) {
    if (szDevPath == nullptr || pSB == nullptr) return fail(ERR_BAD_PARAMETERS);
    return examine(szDevPath, "", pSB, false, Site());
}

int RAIDSBPush(PRAID_SB_LIST *ppList, PRAID_SB pSB) {
    if (ppList == nullptr || pSB == nullptr) return fail(ERR_BAD_PARAMETERS);
    auto *node = static_cast<PRAID_SB_LIST>(xcalloc(1, sizeof(RAID_SB_LIST)));
    if (node == nullptr) return read_fail(ERR_OUT_OF_MEMORY, Site(), kAllocateFailed);
    node->pSB = pSB;
    if (*ppList == nullptr) {
        *ppList = node;
        return 0;
    }
    node->pNext = (*ppList)->pNext;
    (*ppList)->pNext = node;
    return 0;
}

void RAIDScanFree(PRAID_SB_LIST pNode) {
    if (pNode == nullptr) return;
    free(pNode->pSB);
    free(pNode);
}

void RAIDSBEnumFree(PRAID_SB_LIST pList) {
    while (pList != nullptr) {
        PRAID_SB_LIST next = pList->pNext;
        RAIDScanFree(pList);
        pList = next;
    }
}

int RAIDScan(const KLIBSZLIST *pDevs, int mode, PRAID_SB_LIST *ppList) {
    if (pDevs == nullptr || pDevs->nItem <= 0 || ppList == nullptr)
        return read_fail(ERR_BAD_PARAMETERS, Site(), kBadParams);
    int kept = 0;
    for (int i = 0; i < pDevs->nItem; i++) {
        const char *device = SzKLIBSzListGet(pDevs, i);
        UniqueMalloc<RAID_SB> sb(static_cast<PRAID_SB>(xcalloc(1, sizeof(RAID_SB))));
        if (!sb) return fail(ERR_OUT_OF_MEMORY);
        if (examine(device, " 2>/dev/null", sb.get(), true, Site()) != 1) continue;
        int number = 0;
        if (!parse_md(sb->szMdPath, &number)) continue;
        if (mode == RAID_SCAN_EBOX && number <= 100) continue;
        if (sb->level == 0 || sb->numDevices == 0) complete_from_examine(device, sb.get());
        if (RAIDSBPush(ppList, sb.get()) != 0) return -1;
        sb.release();
        kept++;
    }
    return kept;
}

int RAIDDevRAIDGet(const char *szDevPath, char *szMdPath, int cbMdPath, int *pMdNum) {
    if (szDevPath == nullptr) return fail(ERR_BAD_PARAMETERS);
    RAID_SB sb{};
    if (RAIDSBGet(szDevPath, &sb) != 1) return 0;
    int number = 0;
    if (!parse_md(sb.szMdPath, &number)) {
        log_at(LOG_DEBUG, Site(), "%s:%d Failed to sscanf [%s], errno=%m", sb.szMdPath);
        return 0;
    }
    PRAID_INFO info = nullptr;
    if (RAIDInfoGet(sb.szMdPath, &info) != 1) return 0;
    const int member = RAIDDiskListSearch(info->pDiskList, szDevPath, nullptr);
    RAIDInfoFree(info);
    if (member != 1) return 0;
    if (szMdPath != nullptr && cbMdPath > 0) snprintf(szMdPath, cbMdPath, "%s", sb.szMdPath);
    if (pMdNum != nullptr) *pMdNum = number;
    return 1;
}

int RAIDDiskIsUsedByInternalRAID(const char *szDiskPath) {
    if (szDiskPath == nullptr) return fail(ERR_BAD_PARAMETERS);
    char partition[160];
    snprintf(partition, sizeof partition, "%s3", szDiskPath);
    int number = 0;
    return RAIDDevRAIDGet(partition, nullptr, 0, &number) == 1 && number <= kInternalMax ? 1 : 0;
}
