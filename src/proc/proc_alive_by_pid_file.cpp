#include <signal.h>

#include "kovasdk/proc.h"

// Unlike BlKLIBProcAlive, a process that may not be signalled (EPERM) counts as dead here
// (kept as it is).
int KLIBProcAliveByPidFile(const char *szPath) {
    const int pid = KLIBReadPidFile(szPath);
    return pid >= 1 && kill(pid, 0) == 0 ? 1 : 0;
}
