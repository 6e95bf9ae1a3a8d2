#include <sys/file.h>

#include <cstdio>

#include "core/fail.h"
#include "core/sys.h"
#include "kovasdk/file.h"

namespace {
constexpr int kLineUnlockFailed = 38;
}  // namespace

int ErrKLIBFileUnlock(uint32_t mask) {
    int rc = 0;
    for (KLIBFILELOCK *entry = rgslckList; entry->bit != 0; ++entry) {
        if ((entry->bit & mask) == 0 || entry->pFile == nullptr) continue;
        if (entry->count >= 2) {
            --entry->count;
            continue;
        }
        if (kova::sys::flock(fileno(entry->pFile), LOCK_UN) != 0) {
            kova::fail(ERR_UNLOCK_FAILED, kLineUnlockFailed);
            rc = -1;
        }
        if (fclose(entry->pFile) != 0) rc = -1;
        entry->pFile = nullptr;
        entry->count = 0;
    }
    return rc;
}
