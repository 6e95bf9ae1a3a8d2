#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <climits>
#include <cstdio>
#include <cstring>

#include "core/fail.h"
#include "core/owners.h"
#include "core/paths.h"
#include "core/root.h"
#include "core/sys.h"
#include "kovasdk/file.h"

namespace {
constexpr int kLineDirectory = 37;
constexpr int kLineEntry = 45;

// The lock directory sits in a world-writable place: it must be a real directory (not a
// symlink) owned by root or by the caller, or another user could steer or hold every lock.
bool trusted_directory(const struct stat &st) {
    return S_ISDIR(st.st_mode) && (st.st_uid == 0 || st.st_uid == geteuid());
}

bool lock_directory_ready(const char *path) {
    // Without its trailing slash, so that lstat sees a symlink rather than where it points.
    char dir[PATH_MAX];
    snprintf(dir, sizeof dir, "%s", path);
    for (size_t n = strlen(dir); n > 1 && dir[n - 1] == '/'; --n)
        dir[n - 1] = '\0';
    struct stat st {};
    if (lstat(dir, &st) == 0) return trusted_directory(st);
    if (errno != ENOENT) return false;
    // Another process may create it at the same instant: EEXIST then means it is there.
    if (kova::sys::mkdir(dir, 0700) != 0) {
        return errno == EEXIST && lstat(dir, &st) == 0 && trusted_directory(st);
    }
    const kova::UniqueFd fd(kova::sys::open(dir, O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
    return fd && kova::sys::fchmod(fd.get(), 0755) == 0;
}

// A lock file that is missing is created as fopen(path, "w") would, but neither through a
// symlink nor by blocking on a FIFO planted at its name.
bool lock_file_ready(const char *path) {
    struct stat st {};
    if (lstat(path, &st) == 0 && S_ISREG(st.st_mode)) return true;
    int fd = -1;
    if (kova::sys::open_regular(path, O_WRONLY | O_CREAT | O_TRUNC | O_NOFOLLOW, &fd, &st, 0666) !=
        kova::sys::Opened::kOk) {
        return false;
    }
    kova::sys::close(fd);
    return true;
}

// Whether the entry is a regular file, looked up by its name within the open lock directory
// (every lock call checks the whole table: a lookup of one name, not of the whole path).
bool regular_in(int dir_fd, const char *lock_dir, const char *path) {
    const size_t dir_len = strlen(lock_dir);
    if (dir_fd < 0 || strncmp(path, lock_dir, dir_len) != 0 || strchr(path + dir_len, '/')) {
        return false;
    }
    struct stat st {};
    return fstatat(dir_fd, path + dir_len, &st, AT_SYMLINK_NOFOLLOW) == 0 && S_ISREG(st.st_mode);
}
}  // namespace

int ErrKLIBILockCheckDir(void) {
    const kova::RootedPath dir(kova::paths::kLockDir);
    if (!lock_directory_ready(dir.c_str())) return kova::fail(ERR_CREATE_FAILED, kLineDirectory);
    const kova::UniqueFd dir_fd(
        kova::sys::open(dir.c_str(), O_PATH | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
    for (const KLIBFILELOCK *entry = rgslckList; entry->bit != 0; ++entry) {
        if (regular_in(dir_fd.get(), kova::paths::kLockDir, entry->szPath)) continue;
        if (!lock_file_ready(kova::RootedPath(entry->szPath).c_str()))
            return kova::fail(ERR_OPEN_FAILED, kLineEntry);
    }
    return 0;
}
