#include "core/raise.h"
#include "kovasdk/proc.h"
#include "proc/proc_smb.h"

int KOVAGetAllConnPidOfSmb(int *rgPid, int cMax) {
    if (cMax < 0 || (rgPid == nullptr && cMax > 0)) {
        kova::raise(ERR_BAD_PARAMETERS);
        return -1;
    }
    return kova::proc::smb_connections(-1, rgPid, cMax);
}
