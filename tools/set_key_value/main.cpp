// set_key_value FILE KEY VALUE: sets the key in the file (key="value"), replacing its first line
// and dropping later ones, or appending it. Writers of the system information file take its
// lock around the change, like every other writer of it. Exit 0 on success, 1 on failure, 2 on
// a usage error.
#include <climits>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "kovasdk/error.h"
#include "kovasdk/file.h"

namespace {
constexpr int kLockSeconds = 5;

// The target is the appliance's system information file (under KOVA_ROOT when set).
bool is_system_info_file(const char *path) {
    const char *root = getenv("KOVA_ROOT");
    char info[PATH_MAX];
    snprintf(info, sizeof info, "%s/etc/kovainfo.conf", root != nullptr ? root : "");
    char resolved_info[PATH_MAX];
    char resolved_path[PATH_MAX];
    return realpath(info, resolved_info) != nullptr && realpath(path, resolved_path) != nullptr &&
           strcmp(resolved_info, resolved_path) == 0;
}
constexpr char kUsage[] =
    "usage: set_key_value FILE KEY VALUE\n"
    "Sets KEY=\"VALUE\" in the settings file FILE: replaces the key's first line and drops\n"
    "later ones, or appends the line. The system information file is changed under its lock.\n"
    "Exit status: 0 set, 1 failure, 2 usage error.\n";
}  // namespace

int main(int argc, char **argv) {
    if (argc == 2 && strcmp(argv[1], "--help") == 0) {
        fputs(kUsage, stdout);
        return 0;
    }
    if (argc != 4) {
        fputs(kUsage, stderr);
        return 2;
    }
    const bool lock = is_system_info_file(argv[1]);
    if (lock &&
        ErrKLIBFileLock(KLIB_LOCK_KOVAINFO | KLIB_LOCK_EX | KLIB_LOCK_NB, kLockSeconds) != 0) {
        fprintf(stderr, "set_key_value: %s is locked by another writer\n", argv[1]);
        return 1;
    }
    const int rc = KLIBFileSetKeyValue(argv[1], argv[2], argv[3], KLIB_FILE_FORMAT_QUOTED);
    if (lock) ErrKLIBFileUnlock(KLIB_LOCK_KOVAINFO);
    if (rc != 1) {
        fprintf(stderr, "set_key_value: cannot set %s in %s (kovaerr=0x%04X)\n", argv[2], argv[1],
                KLIBErrGet());
        return 1;
    }
    return 0;
}
