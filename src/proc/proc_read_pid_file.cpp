#include <fcntl.h>

#include <cerrno>
#include <climits>
#include <cstdio>
#include <cstdlib>

#include "core/fail.h"
#include "core/owners.h"
#include "core/sys.h"
#include "kovasdk/proc.h"

// The pid in the file's first line; 0 when it holds no number in 1..INT_MAX (a value that does
// not fit a pid must not wrap into one); -1 when the file cannot be read or is no regular file.
int KLIBReadPidFile(const char *szPath) {
    if (szPath == nullptr) return kova::fail(ERR_BAD_PARAMETERS);
    int fd = -1;
    struct stat st {};
    if (kova::sys::open_regular(szPath, O_RDONLY, &fd, &st) != kova::sys::Opened::kOk) {
        return kova::fail(ERR_OPEN_FAILED);
    }
    kova::UniqueFile file(fdopen(fd, "r"));
    if (!file) {
        kova::sys::close(fd);
        return kova::fail(ERR_OPEN_FAILED);
    }
    char line[32];
    if (fgets(line, sizeof line, file.get()) == nullptr) return 0;
    errno = 0;
    const long long pid = strtoll(line, nullptr, 10);
    return errno == 0 && pid >= 1 && pid <= INT_MAX ? static_cast<int>(pid) : 0;
}
