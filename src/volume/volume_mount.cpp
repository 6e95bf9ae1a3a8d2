// Mounting and unmounting volumes, and the mount record of /volumeN.
#include <sys/stat.h>
#include <sys/statfs.h>

#include <cerrno>
#include <climits>
#include <cstdio>
#include <cstring>
#include <memory>

#include "core/command_line.h"
#include "core/root.h"
#include "core/run.h"
#include "core/sys.h"
#include "volume/volume_internal.h"

using namespace kova;
using namespace kova::volume;

namespace {

constexpr char kUmount[] = "/bin/umount";

struct PipeCloser {
    void operator()(FILE *f) const { pclose(f); }
};
using UniquePipe = std::unique_ptr<FILE, PipeCloser>;

// A line "%s(%d)[%X]..." naming the function (these lines name it, not the file), with errno.
template <class... Args>
int fail_named(uint32_t code, const char *function, int line, const char *format, Args... args) {
    const int saved = errno;
    log(LOG_ERR, format, function, line, saved, args...);
    KLIBErrSetEx(code, "volume_mount.cpp", line);
    return -1;
}

template <size_t N>
void copy_field(char (&field)[N], const char *text) {
    snprintf(field, N, "%.*s", static_cast<int>(N - 1), text);
}

// The first line of the grep: the device, the mount point and the writability.
bool parse_mount_line(char *line, VOL_MOUNT_INFO &info) {
    constexpr char kSpace[] = " \t\n";
    char *save = nullptr;
    const char *device = strtok_r(line, kSpace, &save);
    const char *mount_point = strtok_r(nullptr, kSpace, &save);
    const char *type = strtok_r(nullptr, kSpace, &save);
    char *options = strtok_r(nullptr, kSpace, &save);
    if (type == nullptr || options == nullptr) return false;
    copy_field(info.szDev, device);
    copy_field(info.szMountPoint, mount_point);
    options[strcspn(options, ",")] = '\0';
    info.writable = strcmp(options, "ro") != 0 ? 1 : 0;
    return true;
}

}  // namespace

int KOVAVolInfoGet(int num, PVOL_MOUNT_INFO pInfo) {
    if (num <= 0 || pInfo == nullptr) return fail(ERR_BAD_PARAMETERS);
    *pInfo = VOL_MOUNT_INFO{};
    pInfo->num = num;
    pInfo->valid = 1;
    // Only the first line, so /volume1 also finds /volume10 when that comes first: kept, as
    // callers have always seen it.
    CommandLine grep;
    grep.text("grep %s%d ", kVolumePrefix, num).device(kMounts);
    UniquePipe output(grep.ok() ? open_shell_pipe(grep.c_str()) : nullptr);
    if (!output)
        return fail_named(ERR_OPEN_FAILED, __func__, __LINE__,
                          "%s(%d)[%X]Failed to open /proc/mounts");
    char line[PATH_MAX * 2];
    const bool found = fgets(line, sizeof line, output.get()) != nullptr;
    output.reset();
    if (!found || !parse_mount_line(line, *pInfo)) return 0;
    pInfo->mounted = 1;
    struct statfs st {};
    if (statfs(RootedPath(pInfo->szMountPoint).c_str(), &st) != 0)
        return fail_named(ERR_READ_FAILED, __func__, __LINE__,
                          "%s(%d)[%X]Failed to statfs mount point : %s", pInfo->szMountPoint);
    pInfo->ullAvail = static_cast<uint64_t>(st.f_bavail) * static_cast<uint64_t>(st.f_bsize);
    pInfo->ullTotal = static_cast<uint64_t>(st.f_blocks) * static_cast<uint64_t>(st.f_bsize);
    return 0;
}

int VolumeMount(const char *szDevice, const char *szMountPoint) {
    if (szDevice == nullptr || szMountPoint == nullptr) return fail(ERR_BAD_PARAMETERS);
    const RootedPath point(szMountPoint);
    struct stat st {};
    if (stat(point.c_str(), &st) != 0) {
        if (errno != ENOENT)
            return fail(ERR_PATH_NOT_FOUND, Site(), "%s:%d %s not found, errno=%m", szMountPoint);
        if (sys::mkdir(point.c_str(), 0777) != 0)
            return fail(ERR_CREATE_FAILED, Site(), "%s:%d mkdir %s failed, errno=%m", szMountPoint);
    }
    CommandLine mount;
    mount.text("mount -o usrquota,grpquota ")
        .device(szDevice)
        .text(" ")
        .word(point.c_str())
        .text(" > /dev/null 2>&1");
    const int status = mount.run();
    if (status != 0)
        return fail(ERR_SYS_UNKNOWN, Site(), "%s:%d Failed to mount '%s' on '%s', errno=%d",
                    szDevice, szMountPoint, status);
    return 0;
}

int VolumeUnmount(const char *szMountPoint) {
    if (szMountPoint == nullptr) return fail(ERR_BAD_PARAMETERS);
    CommandLine umount;
    umount.text("%s -f ", ProgramPath(kUmount).shell_word())
        .word(RootedPath(szMountPoint).c_str())
        .text(" > /dev/null 2>&1");
    const int status = umount.run();
    if (status != 0)
        return fail(ERR_SYS_UNKNOWN, Site(), "%s:%d Failed to unmount '%s', errno=%d", szMountPoint,
                    status);
    return 0;
}
