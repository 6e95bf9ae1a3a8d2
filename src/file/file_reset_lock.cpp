#include <cstdio>

#include "kovasdk/file.h"

int ErrKLIBFileResetLock(uint32_t mask) {
    int rc = 0;
    for (KLIBFILELOCK *entry = rgslckList; entry->bit != 0; ++entry) {
        if (entry->pFile != nullptr && (entry->bit & mask) != 0) {
            entry->count = 1;
            continue;
        }
        entry->count = 0;
        if (entry->pFile != nullptr) {
            if (fclose(entry->pFile) != 0) rc = -1;  // closing drops the flock
            entry->pFile = nullptr;
        }
    }
    return rc;
}
