#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

#include <cerrno>

#include "core/owners.h"
#include "core/raise.h"
#include "kovasdk/proc.h"
#include "proc/proc_internal.h"

namespace {

// The lock is an flock on the opened file, so it vanishes with its holder; -1 with errno
// EWOULDBLOCK while someone else holds it. Children never inherit it.
int open_locked(const char *path) {
    kova::UniqueFd fd(open(path, O_RDWR | O_CREAT | O_NONBLOCK | O_CLOEXEC, 0644));
    if (!fd) return -1;
    if (flock(fd.get(), LOCK_EX | LOCK_NB) != 0) return -1;
    return fd.release();
}

}  // namespace

int GetExclusiveFileLock(const char *szPath, int *pmsBudget) {
    if (szPath == nullptr || pmsBudget == nullptr || *pmsBudget < 0) {
        kova::raise(ERR_BAD_PARAMETERS, 22);
        return -1;
    }
    for (;;) {
        const int fd = open_locked(szPath);
        if (fd >= 0) return fd;
        if (errno != EAGAIN && errno != EWOULDBLOCK) {
            kova::raise(ERR_OPEN_FAILED, 31);
            return -1;
        }
        usleep(kova::proc::kStepMs * 1000);
        *pmsBudget -= kova::proc::kStepMs;
        if (*pmsBudget < 0) {
            kova::raise(ERR_LOCK_FAILED, 36);
            return -2;
        }
    }
}
