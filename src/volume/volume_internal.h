// What the volume family's files share: the fixed paths and texts, the readers of the mount
// table and of the volume groups' status file, and the record parts they build.
#pragma once

#include <cstdint>
#include <type_traits>

#include "core/fail.h"
#include "kovasdk/volume.h"

namespace kova::volume {

inline constexpr char kMounts[] = "/proc/mounts";
inline constexpr char kLvmStatus[] = "/tmp/lvm.status";
inline constexpr char kActionFile[] = "/tmp/webman/modules/volume";
inline constexpr char kVolumePrefix[] = "/volume";
inline constexpr char kMdPrefix[] = "/dev/md";
inline constexpr char kVgPrefix[] = "/dev/vg";
inline constexpr char kMd0[] = "/dev/md0";
inline constexpr char kMd1[] = "/dev/md1";
inline constexpr int kEboxBase = 100;    // /volumeXN lies on /dev/md(N + 100)
inline constexpr int kInternalMax = 99;  // arrays numbered above belong to expansion units
// KOVAVolIDParse's code for a path without a volume number; it has no message of its own.
inline constexpr uint32_t kErrNoVolumeId = 0x9900;

inline constexpr char kBadParams[] = "%s:%d Bad parameters";
inline constexpr char kParseRaidFailed[] = "%s:%d Failed to parse raid path %s, errno=%m";

// One line of the mount table, its words split in place.
struct MountLine {
    const char *device;
    const char *mount_point;
    const char *type;
    const char *options;
};
using MountVisitor = bool (*)(const MountLine &line, void *context);

// Calls visit for each line of /proc/mounts until it returns false: 0, or -1 (raised) when the
// table cannot be read. Without a table (an offline image) nothing is mounted.
int each_mount(MountVisitor visit, void *context);
template <class F>
int each_mount(F &&visit) {
    using Visit = std::remove_reference_t<F>;
    return each_mount(
        [](const MountLine &line, void *context) { return (*static_cast<Visit *>(context))(line); },
        &visit);
}

// The file system mounted at mount_point (the last line naming it): 1 with *out (malloc'ed),
// 0 when nothing is mounted there, -1.
int fs_info_get(const char *mount_point, PFS_INFO *out);

// One line of /tmp/lvm.status.
struct PvLine {
    const char *group;  // "vg1"
    const char *path;   // "/dev/md2"
    int state;          // PV_STATE_...
};
using PvVisitor = bool (*)(const PvLine &line, void *context);

// Calls visit for each well-formed line of /tmp/lvm.status until it returns false: 0, or -1
// (raised) when the file is there but cannot be read. A missing file holds no groups.
int each_pv(PvVisitor visit, void *context);
template <class F>
int each_pv(F &&visit) {
    using Visit = std::remove_reference_t<F>;
    return each_pv(
        [](const PvLine &line, void *context) { return (*static_cast<Visit *>(context))(line); },
        &visit);
}

// The group of a path "/dev/vgN": 1 with *out (malloc'ed, with its physical volumes), 0 when
// /tmp/lvm.status does not list it, -1.
int vg_info_get(const char *vg_path, PVG_INFO *out);
void vg_info_free(PVG_INFO info);

// The group path of a logical volume's device ("/dev/vg1/lv1", "/dev/mapper/vg1-lv1"); false
// for any other device.
bool lv_group_path(const char *device, char (&vg_path)[128]);

// N of "/dev/mdN"; false when the path does not have that form.
bool parse_md(const char *path, int *number);

}  // namespace kova::volume
