#include <sys/stat.h>

#include <cstdio>

#include "core/raise.h"
#include "core/root.h"
#include "kovasdk/file.h"

namespace {
constexpr const char *kLockDir = "/tmp/lock/";
}  // namespace

int ErrKLIBILockCheckDir(void) {
    const kova::RootedPath dir(kLockDir);
    struct stat st {};
    if (stat(dir.c_str(), &st) != 0 || !S_ISDIR(st.st_mode)) {
        if (mkdir(dir.c_str(), 0700) != 0 || chmod(dir.c_str(), 0755) != 0) {
            kova::raise(ERR_CREATE_FAILED, 37);
            return -1;
        }
    }
    for (const KLIBFILELOCK *entry = rgslckList; entry->bit != 0; ++entry) {
        const kova::RootedPath path(entry->szPath);
        if (stat(path.c_str(), &st) == 0 && S_ISREG(st.st_mode)) continue;
        FILE *created = fopen(path.c_str(), "w");
        if (created == nullptr) {
            kova::raise(ERR_OPEN_FAILED, 45);
            return -1;
        }
        fclose(created);
    }
    return 0;
}
