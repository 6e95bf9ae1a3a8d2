// Filling an open, empty group cache from /etc/group and /etc/group_desc.
#include <cstdlib>
#include <cstring>

#include "core/root.h"
#include "group/group_internal.h"
#include "kovasdk/proc.h"

namespace kova::group {
namespace {

int next_gid_build(PKOVAGROUPDB db) {
    long gid = user::marker_in(kGroup, kGidMarkerName);
    if (gid < KOVA_GROUP_GID_MIN || gid > KOVA_GROUP_GID_MAX) {
        gid = user::highest_id(db->pGRPGID);
        if (gid < 0) return -1;
        if (gid == 0) return 0;  // no group yet
    }
    const auto current = static_cast<int32_t>(gid);
    if (KOVABDbSet(db->pGRPGID, KOVA_GROUP_KEY_CURRENT_GID, KOVA_GROUP_KEY_CURRENT_GID_LEN,
                   &current, sizeof current) != 0) {
        return fail(ERR_BDB_PUT_FAILED);
    }
    return 0;
}

// Domain groups have no source on this appliance: the domain part stays empty.
int domain_build(PKOVAGROUPDB) {
    return 0;
}

}  // namespace
}  // namespace kova::group

int KOVAGroupDBBuild(PKOVAGROUPDB pGroupDb) {
    using namespace kova::group;
    if (pGroupDb == nullptr) return kova::fail(ERR_BAD_PARAMETERS);
    if (kova::user::build_id_file(kGroup, "group", pGroupDb->pGRPName, pGroupDb->pGRPGID) != 0) {
        return kova::fail(KLIBErrGet(), kova::Site(),
                          "%s:%d GroupDBGroupBuild() failed! kovaerr=0x%04X", KLIBErrGet());
    }
    if (next_gid_build(pGroupDb) != 0) {
        return kova::fail(KLIBErrGet(), kova::Site(),
                          "%s:%d GroupDBNextGidBuild() failed! kovaerr=0x%04X", KLIBErrGet());
    }
    if (domain_build(pGroupDb) != 0) {
        kova::log_at(LOG_ERR, kova::Site(), "%s:%d GroupDBDomainBuild() failed! kovaerr=0x%04X",
                     KLIBErrGet());
        KLIBExec(kova::RootedPath(kova::user::kKovalogset1).c_str(), "sys", "err", "0x1180050A",
                 nullptr);
    }
    if (kova::user::build_line_file(kGroupDesc, "group", pGroupDb->pGRPDesc) != 0) return -1;
    return kova::cache::store_sync_times(family(), pGroupDb);
}
