// The storage families' text inputs, as a hostile or broken system would leave them: a
// "/proc/partitions" table, the expansion units' settings, "/tmp/lvm.status" and "/proc/mounts".
// The first byte picks the file; the rest is its content. Every reader must refuse or read it
// without touching memory outside what it owns, and hand back only well-formed records.
#include <sys/stat.h>
#include <unistd.h>

#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <string>

#include "kovasdk/disk.h"
#include "kovasdk/volume.h"

namespace {

std::string g_root;

void write(const std::string &path, const uint8_t *data, size_t size) {
    FILE *f = fopen((g_root + path).c_str(), "w");
    if (f == nullptr) abort();
    fwrite(data, 1, size, f);
    fclose(f);
}

void partitions(const uint8_t *data, size_t size) {
    write("/proc/partitions", data, size);
    uint32_t *devs = nullptr;
    const int n = KOVADiskEnum(KOVA_DISK_TYPE_LINUX, &devs);
    if (n > 0) {
        for (int i = 0; i < n; i++) {
            PKOVADISKINFO info = nullptr;
            if (KOVADiskGetInfo(KOVA_DISK_TYPE_LINUX, devs[i], &info) == 0) free(info);
        }
        free(devs);
    } else if (devs != nullptr) {
        abort();  // nothing found, nothing handed out
    }
}

void units(const uint8_t *data, size_t size) {
    write(KOVA_EBOX_CONF, data, size);
    KOVAEBoxDevIs("/dev/sdk");
    PKOVAEBOXINFO unit = nullptr;
    if (KOVAEBoxInfoGet("host5", &unit) == 0) {
        if (unit->pDisks == nullptr || strcmp(unit->szHost, "host5") != 0) abort();
        KOVAEBoxInfoFree(unit);
    }
}

void groups(const uint8_t *data, size_t size) {
    write("/tmp/lvm.status", data, size);
    char path[64];
    VolumePathSwitch("/dev/md2", VOLUME_SWITCH_MD_TO_VOL, path, sizeof path);
    PVOLUME_INFO info = nullptr;
    if (VolumeInfoGet("/volume1", &info) == 1) VolumeInfoFree(info);
}

void mounts(const uint8_t *data, size_t size) {
    write("/proc/mounts", data, size);
    PVOLUME_LIST list = nullptr;
    if (VolumeInfoEnum(&list) >= 0) VolumeInfoListFree(list);
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int *, char ***) {
    // A root of its own inside the fuzzing root (the build tree), never beside the sources.
    const char *base = getenv("KOVA_ROOT");
    std::string dir = base != nullptr && base[0] != '\0' ? base : ".";
    mkdir(dir.c_str(), 0755);
    dir += "/storage.XXXXXX";
    if (mkdtemp(dir.data()) == nullptr) abort();
    char *absolute = realpath(dir.c_str(), nullptr);
    if (absolute == nullptr) abort();
    g_root = absolute;
    free(absolute);
    for (const char *sub : {"/proc", "/tmp", "/usr", "/usr/kova", "/usr/kova/etc", "/etc"})
        mkdir((g_root + sub).c_str(), 0755);
    setenv("KOVA_ROOT", g_root.c_str(), 1);
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    if (size == 0) return 0;
    switch (data[0] % 4) {
        case 0:
            partitions(data + 1, size - 1);
            break;
        case 1:
            units(data + 1, size - 1);
            break;
        case 2:
            groups(data + 1, size - 1);
            break;
        case 3:
            mounts(data + 1, size - 1);
            break;
    }
    return 0;
}
