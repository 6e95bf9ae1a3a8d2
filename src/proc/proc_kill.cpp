#include <signal.h>
#include <unistd.h>

#include <algorithm>

#include "core/raise.h"
#include "kovasdk/proc.h"
#include "proc/proc_internal.h"

int KLIBIKill(const char *szPattern, int fForce) {
    if (szPattern == nullptr || !kova::proc::is_safe_pattern(szPattern)) {
        kova::raise(ERR_BAD_PARAMETERS, 45);
        return -1;
    }
    int pids[kova::proc::kKillMax];
    const int found = KLIBPs(szPattern, pids, kova::proc::kKillMax);
    if (found < 0) return -1;
    const int signalled = std::min(found, kova::proc::kKillMax);
    for (int i = 0; i < signalled; ++i)
        kill(pids[i], fForce ? SIGKILL : SIGTERM);
    if (!fForce) usleep(100 * 1000);

    const int left = KLIBPs(szPattern, pids, kova::proc::kKillMax);
    if (left < 0) return -1;
    for (int i = 0; i < std::min(left, kova::proc::kKillMax); ++i)
        kill(pids[i], SIGKILL);
    return signalled;
}
