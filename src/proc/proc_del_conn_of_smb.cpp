#include <signal.h>

#include <algorithm>

#include "kovasdk/proc.h"
#include "proc/proc_smb.h"

// Ends the user's SMB sessions (every session for a null user), e.g. before the account or its
// share goes away; the client reconnects under the new settings.
int KOVADelConnOfSmb(const char *szUser) {
    long uid = -1;
    if (szUser != nullptr && (uid = kova::proc::smb_user_uid(szUser)) < 0) return -1;
    int pids[kova::proc::kKillMax];
    const int found = kova::proc::smb_connections(uid, pids, kova::proc::kKillMax);
    if (found < 0) return -1;
    const int signalled = std::min(found, kova::proc::kKillMax);
    for (int i = 0; i < signalled; ++i)
        kill(pids[i], SIGTERM);
    return signalled;
}
