// Opening, checking, rebuilding and closing the user cache: the shared protocol with this
// family's five stores.
#include <cstddef>

#include "core/paths.h"
#include "user/user_internal.h"

namespace kova::user {
namespace {

// In the order the stores are opened and checked.
constexpr cache::Store kStores[] = {
    {KOVA_USER_DB_NAME, 0, kPasswd, true},
    {KOVA_USER_DB_MISC, 0, kMisc, true},
    {KOVA_USER_DB_SHADOW, 0, kShadow, true},
    {KOVA_USER_DB_SMB, 0, kSmbPasswd, true},
    {KOVA_USER_DB_UID, KOVA_BDB_DUP, kPasswd, false},
};
constexpr PKOVABDB KOVAUSERDB::*kSlots[] = {
    &KOVAUSERDB::pPWDName, &KOVAUSERDB::pPWDMisc, &KOVAUSERDB::pPWDShadow,
    &KOVAUSERDB::pPWDSmb,  &KOVAUSERDB::pPWDUid,
};

PKOVABDB *slot(void *handle, size_t store) {
    return &(static_cast<PKOVAUSERDB>(handle)->*kSlots[store]);
}

int build(void *handle) {
    return KOVAUserDBBuild(static_cast<PKOVAUSERDB>(handle));
}

constexpr cache::Family kFamily = {
    "User",
    KOVA_USER_DB_PATH,
    KOVA_USER_DB_TMP_PATH,
    KOVA_LOCK_DIR "lock_db_user",
    kStores,
    sizeof(KOVAUSERDB),
    slot,
    build,
    recover_text_files,
};

}  // namespace

const cache::Family &family() {
    return kFamily;
}

cache::Kept &kept() {
    static auto *kept = new cache::Kept(kFamily);  // open until the process ends
    return *kept;
}

}  // namespace kova::user

using kova::user::as_handle;
using kova::user::family;

PKOVAUSERDB KOVAUserDBOpen(void) {
    kova::user::recover_text_files();
    return static_cast<PKOVAUSERDB>(kova::cache::open(family()));
}

int KOVAUserDBOpenFile(PKOVAUSERDB *ppUserDb, const char *szBasePath) {
    if (ppUserDb == nullptr || szBasePath == nullptr) return kova::fail(ERR_BAD_PARAMETERS);
    return kova::cache::open_file(family(), as_handle(ppUserDb), szBasePath);
}

int KOVAUserDBClose(PKOVAUSERDB pUserDb) {
    return kova::cache::close(family(), pUserDb);
}

int KOVAUserDBCheckAndRebuild(PKOVAUSERDB *ppUserDb) {
    if (ppUserDb == nullptr || *ppUserDb == nullptr) return kova::fail(ERR_BAD_PARAMETERS);
    return kova::cache::check_and_rebuild(family(), as_handle(ppUserDb));
}

int KOVAUserDBRebuild(void) {
    return kova::cache::rebuild(family());
}
