// Opening, checking, rebuilding and closing the group cache: the shared protocol with this
// family's three stores.
#include "core/paths.h"
#include "group/group_internal.h"

namespace kova::group {
namespace {

// In the order the stores are opened and checked (the id store, renamed last, last).
constexpr cache::Store kStores[] = {
    {KOVA_GROUP_DB_NAME, 0, kGroup, true},
    {KOVA_GROUP_DB_DESC, 0, kGroupDesc, true},
    {KOVA_GROUP_DB_ID, 0, kGroup, false},
};
constexpr PKOVABDB KOVAGROUPDB::*kSlots[] = {
    &KOVAGROUPDB::pGRPName,
    &KOVAGROUPDB::pGRPDesc,
    &KOVAGROUPDB::pGRPGID,
};

PKOVABDB *slot(void *handle, size_t store) {
    return &(static_cast<PKOVAGROUPDB>(handle)->*kSlots[store]);
}

int build(void *handle) {
    return KOVAGroupDBBuild(static_cast<PKOVAGROUPDB>(handle));
}

constexpr cache::Family kFamily = {
    "Group",
    KOVA_GROUP_DB_PATH,
    KOVA_GROUP_DB_TMP_PATH,
    KOVA_LOCK_DIR "lock_db_group",
    kStores,
    sizeof(KOVAGROUPDB),
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

}  // namespace kova::group

using kova::group::as_handle;
using kova::group::family;

PKOVAGROUPDB KOVAGroupDBOpen(void) {
    kova::group::recover_text_files();
    return static_cast<PKOVAGROUPDB>(kova::cache::open(family()));
}

int KOVAGroupDBOpenFile(PKOVAGROUPDB *ppGroupDb, const char *szBasePath) {
    if (ppGroupDb == nullptr || szBasePath == nullptr) return kova::fail(ERR_BAD_PARAMETERS);
    return kova::cache::open_file(family(), as_handle(ppGroupDb), szBasePath);
}

int KOVAGroupDBClose(PKOVAGROUPDB pGroupDb) {
    return kova::cache::close(family(), pGroupDb);
}

int KOVAGroupDBCheckAndRebuild(PKOVAGROUPDB *ppGroupDb) {
    if (ppGroupDb == nullptr || *ppGroupDb == nullptr) return kova::fail(ERR_BAD_PARAMETERS);
    return kova::cache::check_and_rebuild(family(), as_handle(ppGroupDb));
}

int KOVAGroupDBRebuild(void) {
    return kova::cache::rebuild(family());
}
