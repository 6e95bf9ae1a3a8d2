#include <unistd.h>

#include "kovasdk/proc.h"

// Closing the descriptor drops the lock.
int ReleaseExclusiveFileLock(int fd) {
    return close(fd);
}
