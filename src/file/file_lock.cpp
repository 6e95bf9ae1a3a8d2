#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

#include <cstdio>

#include "core/fail.h"
#include "core/root.h"
#include "core/sys.h"
#include "kovasdk/file.h"

namespace {
constexpr int kLineLockFailed = 87;

constexpr int kRetrySleepMicroseconds = 50000;
constexpr int kTicksPerRetry = 5;  // the counter runs to timeout x 100
constexpr int kSharedNonBlocking = KLIB_LOCK_SH | KLIB_LOCK_NB;
constexpr int kExclusiveNonBlocking = KLIB_LOCK_EX | KLIB_LOCK_NB;

enum class Pass { kTaken, kRetry, kRefused };

// Opens a lock file "r", refusing a symlink or FIFO planted at its name. Not close-on-exec: a
// program run through KLIBExecv keeps the caller's locks; the other ways of running programs
// close them in the child.
FILE *open_lock_file(const char *path) {
    int fd = -1;
    struct stat st {};
    if (kova::sys::open_regular(path, O_RDONLY | O_NOFOLLOW, &fd, &st) != kova::sys::Opened::kOk) {
        return nullptr;
    }
    fcntl(fd, F_SETFD, 0);
    FILE *file = fdopen(fd, "r");
    if (file == nullptr) kova::sys::close(fd);
    return file;
}

// One pass over the table. taken collects the bits this pass holds; touched also the entry
// whose flock failed, so that all of them are released again.
Pass take_once(uint32_t mask, int operation, uint32_t *touched) {
    const uint32_t bits = mask & ~static_cast<uint32_t>(KLIB_LOCK_OP_MASK);
    uint32_t taken = 0;
    for (KLIBFILELOCK *entry = rgslckList; entry->bit != 0; ++entry) {
        if ((entry->bit & mask) == 0) continue;
        if (entry->pFile != nullptr) {
            if (entry->mode == kSharedNonBlocking && operation == kExclusiveNonBlocking) {
                return Pass::kRefused;  // no upgrade of a shared lock
            }
            ++entry->count;
            taken |= entry->bit;
            *touched |= entry->bit;
            continue;
        }
        FILE *lock_file = open_lock_file(kova::RootedPath(entry->szPath).c_str());
        if (lock_file == nullptr) continue;  // never taken, so the request fails
        entry->pFile = lock_file;
        entry->count = 1;
        *touched |= entry->bit;
        if (kova::sys::flock(fileno(lock_file), operation) != 0) return Pass::kRetry;
        entry->mode = operation;
        taken |= entry->bit;
    }
    return taken == bits ? Pass::kTaken : Pass::kRetry;
}
}  // namespace

int ErrKLIBFileLock(uint32_t mask, int timeout) {
    if (ErrKLIBILockCheckDir() != 0) return -1;
    const int operation = static_cast<int>(mask & KLIB_LOCK_OP_MASK);
    for (long elapsed = 0; elapsed <= static_cast<long>(timeout) * 100; elapsed += kTicksPerRetry) {
        uint32_t touched = 0;
        const Pass pass = take_once(mask, operation, &touched);
        if (pass == Pass::kTaken) return 0;
        ErrKLIBFileUnlock(touched);
        if (pass == Pass::kRefused || timeout == 0) break;
        usleep(kRetrySleepMicroseconds);
    }
    return kova::fail(ERR_LOCK_FAILED, kLineLockFailed);
}
