#include <signal.h>

#include <cerrno>

#include "kovasdk/proc.h"

// A process owned by someone else still counts as alive here.
int BlKLIBProcAlive(int pid) {
    return kill(pid, 0) == 0 || errno == EPERM ? 1 : 0;
}
