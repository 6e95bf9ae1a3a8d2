#include <unistd.h>

#include "kovasdk/proc.h"

// Closing the descriptor drops the lock.
extern "C" KOVA_API int ReleaseExclusiveFileLock(int fd) {
    return close(fd);
}
