// Filling an open, empty user cache from the four text files.
#include <fcntl.h>

#include <cstdlib>
#include <cstring>
#include <string_view>

#include "core/line_reader.h"
#include "core/owners.h"
#include "core/root.h"
#include "core/sys.h"
#include "kovasdk/proc.h"
#include "user/user_internal.h"

namespace kova::user {
namespace {

int next_uid_build(PKOVAUSERDB db) {
    long uid = marker_in(kMisc, kUidMarkerName);
    if (uid < KOVA_USER_UID_MIN || uid > KOVA_USER_UID_MAX) {
        uid = highest_id(db->pPWDUid);
        if (uid < 0) return -1;
        if (uid == 0) return 0;  // no user yet
    }
    const int32_t current = static_cast<int32_t>(uid);
    if (KOVABDbSet(db->pPWDUid, KOVA_USER_KEY_CURRENT_UID, KOVA_USER_KEY_CURRENT_UID_LEN, &current,
                   sizeof current) != 0) {
        return fail(ERR_BDB_PUT_FAILED);
    }
    return 0;
}

// Domain accounts have no source on this appliance: the domain part stays empty.
int domain_build(PKOVAUSERDB) {
    return 0;
}

}  // namespace
}  // namespace kova::user

int KOVAUserDBBuild(PKOVAUSERDB pUserDb) {
    using namespace kova::user;
    if (pUserDb == nullptr) return kova::fail(ERR_BAD_PARAMETERS);
    if (build_id_file(kPasswd, "user", pUserDb->pPWDName, pUserDb->pPWDUid) != 0) {
        return kova::fail(KLIBErrGet(), kova::Site(),
                          "%s:%d UserDBPasswdBuild() failed! kovaerr=0x%04X", KLIBErrGet());
    }
    if (next_uid_build(pUserDb) != 0) {
        return kova::fail(KLIBErrGet(), kova::Site(),
                          "%s:%d UserDBNextUidBuild() failed! kovaerr=0x%04X", KLIBErrGet());
    }
    if (domain_build(pUserDb) != 0) {
        kova::log_at(LOG_ERR, kova::Site(), "%s:%d UserDBDomainBuild() failed! kovaerr=0x%04X",
                     KLIBErrGet());
        KLIBExec(kova::RootedPath(kKovalogset1).c_str(), "sys", "err", "0x1180050A", nullptr);
    }
    if (build_line_file(kShadow, "user", pUserDb->pPWDShadow) != 0 ||
        build_line_file(kMisc, "user", pUserDb->pPWDMisc) != 0 ||
        build_line_file(kSmbPasswd, "user", pUserDb->pPWDSmb) != 0) {
        return -1;
    }
    return kova::cache::store_sync_times(family(), pUserDb);
}
