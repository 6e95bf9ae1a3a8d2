// The device-number family: whole disks of "/proc/partitions" and their records.
#include <fcntl.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "core/alloc.h"
#include "core/line_reader.h"
#include "core/root.h"
#include "disk/disk_internal.h"

using namespace kova;
using namespace kova::disk;

namespace {

struct Partition {
    uint32_t major;
    uint32_t minor;
    char name[64];
    int fields;
};

// Splits a line of "/proc/partitions" on blanks and tabs: major, minor, blocks, name.
Partition split(char *line) {
    Partition p{};
    char *save = nullptr;
    for (char *word = strtok_r(line, " \t\n", &save); word != nullptr;
         word = strtok_r(nullptr, " \t\n", &save)) {
        switch (p.fields++) {
            case 0:
                p.major = static_cast<uint32_t>(strtoul(word, nullptr, 10));
                break;
            case 1:
                p.minor = static_cast<uint32_t>(strtoul(word, nullptr, 10));
                break;
            case 3:
                snprintf(p.name, sizeof p.name, "%s", word);
                break;
        }
    }
    return p;
}

bool is_disk(const Partition &p) {
    return is_ide_disk(p.major, p.minor) || is_scsi_disk(p.major, p.minor);
}

// Calls visit(partition) for every line of "/proc/partitions" until it returns false. False
// when the file cannot be read (ERR_OPEN_FAILED, or the reader's code, raised).
template <class Visit>
bool each_partition(Visit visit) {
    const RootedPath path(kProcPartitions);
    UniqueFile file(fopen(path.c_str(), "re"));
    if (!file) {
        fail(ERR_OPEN_FAILED);
        return false;
    }
    LineReader reader(file.get());
    while (reader.next()) {
        if (!visit(split(reader.data()))) return true;
    }
    if (reader.failed()) {
        fail(reader.failure_code());
        return false;
    }
    return true;
}

// The record of one whole disk: its node opened and sized.
int make_record(const Partition &p, PKOVADISKINFO *out) {
    char node[80];
    snprintf(node, sizeof node, "/dev/%s", p.name);
    const UniqueFd fd = open_device(node, O_RDONLY | O_NONBLOCK);
    uint32_t sectors = 0;
    if (!fd || sector_count(fd.get(), &sectors) != 0) return fail(ERR_DISK_IO_FAILED);
    auto *info = static_cast<PKOVADISKINFO>(xcalloc(1, sizeof(KOVADISKINFO)));
    if (info == nullptr) return fail(ERR_OUT_OF_MEMORY);
    info->dev = encode_dev(p.major, p.minor);
    memcpy(info->szName, p.name, sizeof info->szName);
    info->fields = KOVA_DISK_INFO_DEV | KOVA_DISK_INFO_NAME | KOVA_DISK_INFO_SIZE;
    info->sizeMiB = sectors >> 11;
    *out = info;
    return 0;
}

template <class Match>
int get_info(int type, PKOVADISKINFO *ppInfo, Match match) {
    if (type != KOVA_DISK_TYPE_LINUX || ppInfo == nullptr) return fail(ERR_BAD_PARAMETERS);
    Partition found{};
    bool matched = false;
    if (!each_partition([&](const Partition &p) {
            if (p.fields < 4 || !is_disk(p) || !match(p)) return true;
            found = p;
            matched = true;
            return false;
        })) {
        return -1;
    }
    if (!matched) return fail(ERR_NO_DISK_ID);
    return make_record(found, ppInfo);
}

}  // namespace

int KOVADiskEnum(int type, uint32_t **ppDevs) {
    if (type != KOVA_DISK_TYPE_LINUX || ppDevs == nullptr) return fail(ERR_BAD_PARAMETERS);
    // Two passes over the file: IDE disks first, then SCSI disks, each in file order.
    uint32_t *devs = nullptr;
    int count = 0;
    int capacity = 0;
    bool out_of_memory = false;
    for (auto pass : {is_ide_disk, is_scsi_disk}) {
        const bool read = each_partition([&](const Partition &p) {
            if (p.fields < 2 || !pass(p.major, p.minor)) return true;
            if (count == capacity) {
                const int grown = capacity == 0 ? 16 : capacity * 2;
                auto *bigger = static_cast<uint32_t *>(xrealloc(devs, grown * sizeof *devs));
                if (bigger == nullptr) {
                    out_of_memory = true;
                    return false;
                }
                devs = bigger;
                capacity = grown;
            }
            devs[count++] = encode_dev(p.major, p.minor);
            return true;
        });
        if (!read || out_of_memory) {
            free(devs);
            return out_of_memory ? fail(ERR_OUT_OF_MEMORY) : -1;
        }
    }
    if (count == 0) {
        free(devs);
        return 0;
    }
    *ppDevs = devs;
    return count;
}

int KOVADiskGetInfo(int type, uint32_t dev, PKOVADISKINFO *ppInfo) {
    return get_info(type, ppInfo,
                    [dev](const Partition &p) { return encode_dev(p.major, p.minor) == dev; });
}

int KOVALnxDiskGetInfo(int type, const char *szDevPath, PKOVADISKINFO *ppInfo) {
    if (szDevPath == nullptr) return fail(ERR_BAD_PARAMETERS);
    const char *name = strncmp(szDevPath, "/dev/", 5) == 0 ? szDevPath + 5 : szDevPath;
    return get_info(type, ppInfo, [name](const Partition &p) { return strcmp(p.name, name) == 0; });
}
