#include "core/raise.h"
#include "kovasdk/proc.h"
#include "proc/proc_smb.h"

int KOVAGetConnPidOfSmb(const char *szUser, int *rgPid, int cMax) {
    if (szUser == nullptr || cMax < 0 || (rgPid == nullptr && cMax > 0)) {
        kova::raise(ERR_BAD_PARAMETERS);
        return -1;
    }
    const long uid = kova::proc::smb_user_uid(szUser);
    if (uid < 0) return -1;
    return kova::proc::smb_connections(uid, rgPid, cMax);
}
