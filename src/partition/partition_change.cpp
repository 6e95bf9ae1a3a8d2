// Making and wiping partitions with the appliance's partition tool.
#include <sys/stat.h>

#include <cerrno>
#include <cstdio>
#include <cstring>

#include "core/command_line.h"
#include "core/root.h"
#include "core/run.h"
#include "partition/partition_internal.h"

using namespace kova;
using namespace kova::partition;

namespace {

constexpr char kQuiet[] = " > /dev/null 2>&1";

bool valid(const char *disk, int partition, Site site) {
    if (disk != nullptr && partition >= 1 && partition <= 4) return true;
    log_at(LOG_ERR, site, "%s:%d Bad parameters");
    fail(ERR_BAD_PARAMETERS, site);
    return false;
}

// disk followed by the partition number, as a device path.
void partition_path(const char *disk, int partition, char (&out)[160]) {
    snprintf(out, sizeof out, "%s%d", disk, partition);
}

}  // namespace

namespace kova::partition {

int remove_entry(const char *disk, int partition) {
    if (!valid(disk, partition, Site())) return -1;
    const ProgramPath sfdisk(kSfdisk);
    CommandLine command;
    command.text("%s -N%d -q -f --no-reread -o0 -z0 -t0 -F -D ", sfdisk.shell_word(), partition)
        .device(disk)
        .text("%s", kQuiet);
    return command.run() == 0 ? 0 : -1;
}

}  // namespace kova::partition

int PartitionCreate(const char *szDiskPath, int mask, const int *pLayout) {
    if (szDiskPath == nullptr) return fail(ERR_BAD_PARAMETERS);
    int id = 0;
    if (pLayout != nullptr) {
        id = *pLayout;
    } else if (PartitionLayoutGet(&id) != 0) {
        log_at(LOG_ERR, Site(), "%s:%d Failed to get partition layout");
        return -1;
    }
    const Layout *layout = layout_of(id);
    if (layout == nullptr) return fail(ERR_BAD_PARAMETERS);
    const ProgramPath sfdisk(kSfdisk);
    // Bit 2 wins: a mask with both bits makes only the data partition (kept).
    if (mask & PARTITION_DATA) {
        CommandLine data;
        data.text("%s -N3 -uS -q -f -j%lu -z-1 -tfd -F ", sfdisk.shell_word(), layout->data_gap)
            .device(szDiskPath)
            .text(" >/dev/null 2>&1");
        const int status = data.run();
        if (status != 0) {
            log_at(LOG_ERR, Site(), "%s:%d Failed to [%s], err=%d", data.c_str(), status);
            return fail(ERR_SYS_UNKNOWN);
        }
        return 0;
    }
    if (!(mask & PARTITION_SYSTEM)) return fail(ERR_BAD_PARAMETERS);
    CommandLine system;
    system.text("%s -N1 -uS -q -f -j63 -z%lu -tfd -F ", sfdisk.shell_word(), layout->system_sectors)
        .device(szDiskPath)
        .text("%s", kQuiet);
    int status = system.run();
    if (status != 0) {
        log_at(LOG_ERR, Site(), "%s:%d Failed to partition disk %s, err=%d", szDiskPath, status);
        return fail(ERR_SYS_UNKNOWN);
    }
    CommandLine swap;
    swap.text("%s -N2 -uS -q -f -j0 -z%lu -tfd -F ", sfdisk.shell_word(), layout->swap_sectors)
        .device(szDiskPath)
        .text("%s", kQuiet);
    status = swap.run();
    if (status != 0) {
        log_at(LOG_ERR, Site(), "%s:%d Failed to [%s], err=%d", swap.c_str(), status);
        return fail(ERR_SYS_UNKNOWN);
    }
    return 0;
}

int PartitionCleanFS(const char *szDiskPath, int partition) {
    if (!valid(szDiskPath, partition, Site())) return -1;
    char path[160];
    partition_path(szDiskPath, partition, path);
    // No node, no partition to wipe. Where the kernel makes /dev, dd would otherwise leave a
    // plain file in the partition's place, and the partition, once made, would get no node.
    struct stat st {};
    if (stat(DevicePath(path).c_str(), &st) != 0 && errno == ENOENT) return -1;
    CommandLine command;
    command.text("dd if=/dev/zero of=").device(path).text(" count=16%s", kQuiet);
    return command.run() == 0 ? 0 : -1;
}

int PartitionCleanRAID(const char *szDiskPath, int partition) {
    if (!valid(szDiskPath, partition, Site())) return -1;
    char path[160];
    partition_path(szDiskPath, partition, path);
    CommandLine command;
    command.text("mdadm --zero-superblock ").device(path).text("%s", kQuiet);
    return command.run() == 0 ? 0 : -1;
}

int PartitionClean(const char *szDiskPath, int mask) {
    if (szDiskPath == nullptr) {
        log_at(LOG_ERR, Site(), "%s:%d Bad parameters");
        return fail(ERR_BAD_PARAMETERS);
    }
    const ProgramPath sfdisk(kSfdisk);
    // Each step's result is ignored: this clears a disk as far as it can.
    const auto clear = [&](int partition, bool signature) {
        PartitionCleanFS(szDiskPath, partition);
        PartitionCleanRAID(szDiskPath, partition);
        remove_entry(szDiskPath, partition);
        if (!signature) return;
        CommandLine command;
        command.text("%s -M1 ", sfdisk.shell_word()).device(szDiskPath);
        const int status = command.run();
        if (status != 0)
            log_at(LOG_ERR, Site(), "%s:%d Failed to add ms-dos signature to %s, err=%d",
                   szDiskPath, status);
    };
    if (mask & PARTITION_DATA) {
        clear(3, false);
        clear(4, false);
    }
    if (mask & PARTITION_SYSTEM) {
        clear(1, true);
        clear(2, true);
    }
    return 0;
}
