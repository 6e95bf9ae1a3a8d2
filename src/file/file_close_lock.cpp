#include <cstdio>

#include "kovasdk/file.h"

int ErrKLIBFileCloseLock(void) {
    int rc = 0;
    for (KLIBFILELOCK *entry = rgslckList; entry->bit != 0; ++entry) {
        if (entry->pFile != nullptr) {
            if (fclose(entry->pFile) != 0) rc = -1;
            entry->pFile = nullptr;
        }
        entry->count = 0;
    }
    return rc;
}
