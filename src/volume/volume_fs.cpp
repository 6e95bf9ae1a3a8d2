// The file system mounted at a path: the mount table, and statfs for a read-only mount.
#include <sys/statvfs.h>

#include <cerrno>
#include <cstdio>
#include <cstring>

#include "core/alloc.h"
#include "core/line_reader.h"
#include "core/owners.h"
#include "core/root.h"
#include "volume/volume_internal.h"

using namespace kova;
using namespace kova::volume;

namespace {

constexpr char kSpace[] = " \t\n";

// Copies text into a record's field, cut to the field's size.
template <size_t N>
void copy_field(char (&field)[N], const char *text) {
    snprintf(field, N, "%.*s", static_cast<int>(N - 1), text);
}

bool read_only(const MountLine &line) {
    if (strncmp(line.options, "ro", 2) == 0 && (line.options[2] == ',' || line.options[2] == '\0'))
        return true;
    struct statvfs st {};
    return statvfs(RootedPath(line.mount_point).c_str(), &st) == 0 && (st.f_flag & ST_RDONLY);
}

}  // namespace

namespace kova::volume {

int each_mount(MountVisitor visit, void *context) {
    UniqueFile table(fopen(RootedPath(kMounts).c_str(), "re"));
    if (!table) {
        if (errno == ENOENT) return 0;
        return fail(ERR_OPEN_FAILED);
    }
    LineReader reader(table.get());
    while (reader.next()) {
        char *save = nullptr;
        MountLine line{};
        line.device = strtok_r(reader.data(), kSpace, &save);
        line.mount_point = strtok_r(nullptr, kSpace, &save);
        line.type = strtok_r(nullptr, kSpace, &save);
        line.options = strtok_r(nullptr, kSpace, &save);
        if (line.options == nullptr) continue;
        if (!visit(line, context)) return 0;
    }
    if (reader.failed()) return fail(reader.failure_code());
    return 0;
}

int fs_info_get(const char *mount_point, PFS_INFO *out) {
    FS_INFO found{};
    bool mounted = false;
    // The last line wins: a later mount on the same point hides the earlier one.
    const int rc = each_mount([&](const MountLine &line) {
        if (strcmp(line.mount_point, mount_point) != 0) return true;
        copy_field(found.szMountPoint, line.mount_point);
        copy_field(found.szDevice, line.device);
        copy_field(found.szType, line.type);
        found.state = read_only(line) ? FS_STATE_READONLY : FS_STATE_WRITABLE;
        mounted = true;
        return true;
    });
    if (rc != 0) return -1;
    *out = nullptr;
    if (!mounted) return 0;
    auto *info = static_cast<PFS_INFO>(xcalloc(1, sizeof(FS_INFO)));
    if (info == nullptr) return fail(ERR_OUT_OF_MEMORY);
    *info = found;
    *out = info;
    return 1;
}

bool lv_group_path(const char *device, char (&vg_path)[128]) {
    constexpr char kMapper[] = "/dev/mapper/";
    const char *name = nullptr;
    size_t length = 0;
    if (strncmp(device, kVgPrefix, strlen(kVgPrefix)) == 0) {
        name = device + strlen("/dev/");
        const char *slash = strchr(name, '/');
        if (slash == nullptr) return false;
        length = static_cast<size_t>(slash - name);
    } else if (strncmp(device, kMapper, strlen(kMapper)) == 0) {
        // The device mapper doubles a dash inside a name; a group "vgN" has none.
        name = device + strlen(kMapper);
        const char *dash = strchr(name, '-');
        if (dash == nullptr || strncmp(name, "vg", 2) != 0) return false;
        length = static_cast<size_t>(dash - name);
    } else {
        return false;
    }
    const int n = snprintf(vg_path, sizeof vg_path, "/dev/%.*s", static_cast<int>(length), name);
    return n > 0 && static_cast<size_t>(n) < sizeof vg_path;
}

}  // namespace kova::volume
