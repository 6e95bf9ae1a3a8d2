// Recognising the appliance's partition layouts.
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>

#include "core/command_line.h"
#include "core/owners.h"
#include "core/root.h"
#include "core/run.h"
#include "kovasdk/raid.h"
#include "partition/partition_internal.h"

using namespace kova;
using namespace kova::partition;

namespace {

constexpr uint64_t kAny = ~0ull;

struct Slot {
    uint64_t start;
    uint64_t size;
    uint32_t type;
};

// The recognition table: earlier disks with plain Linux and swap types (flag 0), and the RAID
// layouts in use (flag 1). Only partition 3's type is compared.
struct Row {
    int layout;
    int flag;
    Slot parts[3];
};
constexpr Row kRows[] = {
    {1, 0, {{63, 272018, 0x83}, {272081, 787185, 0x82}, {kAny, kAny, 0x83}}},
    {2, 0, {{63, 4980087, 0x83}, {4980150, 1044225, 0x82}, {kAny, kAny, 0x83}}},
    {3, 0, {{63, 530082, 0x83}, {530145, 787185, 0x82}, {kAny, kAny, 0x83}}},
    {1, 1, {{63, 1574307, 0xFD}, {1574370, 787185, 0xFD}, {kAny, kAny, 0xFD}}},
    {2, 1, {{63, 4980087, 0xFD}, {4980150, 1044225, 0xFD}, {kAny, kAny, 0xFD}}},
};

constexpr Layout kLayouts[] = {{1, 1574307, 787185, 273105}, {2, 4980087, 1044225, 257040}};

struct PipeCloser {
    void operator()(FILE *f) const { pclose(f); }
};

bool row_matches(const Row &row, const Slot (&found)[3]) {
    for (int i = 0; i < 2; i++) {
        if (found[i].start != row.parts[i].start || found[i].size != row.parts[i].size ||
            found[i].type != row.parts[i].type) {
            return false;
        }
    }
    return found[2].type == row.parts[2].type;
}

// The disk name of a member entry ".../dev-sda1": the text after the last "-" without its
// last character.
bool member_disk(const char *entry, char (&disk)[64]) {
    const char *dash = strrchr(entry, '-');
    if (dash == nullptr || strlen(dash + 1) < 2) return false;
    snprintf(disk, sizeof disk, "%.*s", static_cast<int>(strlen(dash + 1) - 1), dash + 1);
    return true;
}

}  // namespace

namespace kova::partition {

const Layout *layout_of(int id) {
    for (const Layout &layout : kLayouts)
        if (layout.id == id) return &layout;
    return nullptr;
}

}  // namespace kova::partition

int64_t RCPartitionConfigs(int partition, const char *szDisk, uint32_t *pStart, uint32_t *pType) {
    if (partition < 1 || szDisk == nullptr || pStart == nullptr || pType == nullptr) return -1;
    const char *name = strncmp(szDisk, "/dev/", 5) == 0 ? szDisk + 5 : szDisk;
    char device[PATH_MAX];
    snprintf(device, sizeof device, "/dev/%s", name);
    const ProgramPath sfdisk(kSfdisk);
    CommandLine command;
    command.text("%s -l -uS -N%d ", sfdisk.shell_word(), partition).device(device);
    if (!command.ok()) return -1;
    std::unique_ptr<FILE, PipeCloser> pipe(open_shell_pipe(command.c_str()));
    char line[65];
    if (!pipe || fgets(line, sizeof line, pipe.get()) == nullptr) return -1;
    char *words[5];
    int n = 0;
    char *save = nullptr;
    for (char *w = strtok_r(line, " \t\n", &save); w != nullptr && n < 5;
         w = strtok_r(nullptr, " \t\n", &save)) {
        words[n++] = w;
    }
    if (n < 5) return -1;
    *pStart = static_cast<uint32_t>(strtoul(words[1], nullptr, 10));
    *pType = static_cast<uint32_t>(strtoul(words[4], nullptr, 16));
    return strtoll(words[3], nullptr, 10);
}

int BlKOVACheckPartitionLayout(const char *szDisk, int flag, int *pLayout) {
    if (szDisk == nullptr || pLayout == nullptr) return 0;
    Slot found[3];
    for (int i = 0; i < 3; i++) {
        uint32_t start = 0;
        uint32_t type = 0;
        const int64_t size = RCPartitionConfigs(i + 1, szDisk, &start, &type);
        if (size < 0) {
            log_at(LOG_ERR, Site(), "%s:%d %s: dont contain partition [%d]", szDisk, i + 1);
            return 0;
        }
        found[i] = {start, static_cast<uint64_t>(size), type};
    }
    for (const Row &row : kRows) {
        if (row.flag == flag && row_matches(row, found)) {
            *pLayout = row.layout;
            return 1;
        }
    }
    log_at(LOG_ERR, Site(), "%s:%d [%s] is not kovapartition", szDisk);
    return 0;
}

int PartitionLayoutGet(int *pLayout) {
    if (pLayout == nullptr) return fail(ERR_BAD_PARAMETERS);
    int layout = 0;
    // 1. The members of the system array.
    UniqueGlob members;
    const int rc = members.run(RootedPath("/sys/block/md0/md/dev-*").c_str(), GLOB_NOSORT);
    if (rc != 0 && rc != GLOB_NOMATCH) return fail(ERR_UNKNOWN);
    for (size_t i = 0; rc == 0 && i < members.get().gl_pathc && layout == 0; i++) {
        char disk[64];
        int found = 0;
        if (member_disk(members.get().gl_pathv[i], disk) &&
            BlKOVACheckPartitionLayout(disk, 1, &found) == 1) {
            layout = found;
        }
    }
    // 2. The bays: the first initialised disk whose data partition is in an internal array.
    const int bays = layout == 0 ? KOVAMaxDiskGet() : 0;
    for (int bay = 0; bay < bays; bay++) {
        char disk[16];
        snprintf(disk, sizeof disk, "/dev/sd%c", 'a' + bay);
        int found = 0;
        if (BlKOVACheckPartitionLayout(disk, 1, &found) != 1) continue;
        char data[20];
        snprintf(data, sizeof data, "%s3", disk);
        int md = 0;
        if (RAIDDevRAIDGet(data, nullptr, 0, &md) == 1 && md <= 99) {
            layout = found;
            break;
        }
        layout = 0;
    }
    // 3. Nothing to go by: layout 2.
    *pLayout = layout != 0 ? layout : PARTITION_LAYOUT_2;
    return 0;
}
