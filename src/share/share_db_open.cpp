// Opening, checking and closing the share cache: the shared protocol with one store fed by
// smb.conf, and the writers' frame.
#include <sys/stat.h>

#include "core/paths.h"
#include "core/root.h"
#include "core/sys.h"
#include "kovasdk/file.h"
#include "share/share_internal.h"

namespace kova::share {
namespace {

// The store's path is the whole base; a rebuild's is the ".tmp" path without a suffix.
constexpr cache::Store kStores[] = {{"", 0, kSmbConf, true}};

PKOVABDB *slot(void *handle, size_t) {
    return &static_cast<PKOVASHAREDB>(handle)->pShareDb;
}

int build(void *handle) {
    return KOVAShareDBBuild(static_cast<PKOVASHAREDB>(handle));
}

constexpr cache::Family kFamily = {
    "Share",
    KOVA_SHARE_DB_PATH,
    KOVA_SHARE_DB_TMP_PATH,
    KOVA_LOCK_DIR "lock_db_share",
    kStores,
    sizeof(KOVASHAREDB),
    slot,
    build,
    recover_text_files,
};

int dump(void *handle) {
    return KOVAShareDBDump(static_cast<PKOVASHAREDB>(handle));
}

constexpr cache::WriterOps kWriterOps = {KLIB_LOCK_SMB, dump, "%s:%d Cannot lock smb.conf."};

}  // namespace

const cache::Family &family() {
    return kFamily;
}

cache::Kept &kept() {
    static auto *kept = new cache::Kept(kFamily);  // open until the process ends
    return *kept;
}

// A writer killed before its rename leaves the temporary file, which changed nothing.
void recover_text_files() {
    struct stat st {};
    const RootedPath tmp(kSmbConfTmp);
    if (lstat(tmp.c_str(), &st) != 0) return;
    const uint32_t saved = KLIBErrGet();
    if (ErrKLIBFileLock(KLIB_LOCK_SMB | KLIB_LOCK_EX | KLIB_LOCK_NB, 0) == 0) {
        sys::unlink(tmp.c_str());
        ErrKLIBFileUnlock(KLIB_LOCK_SMB);
    }
    KLIBErrSet(saved);
}

int share_key(const char *name, char (&key)[kKeySize]) {
    if (name == nullptr) return fail(ERR_BAD_PARAMETERS);
    return user::upper_key(name, key);
}

Writer::Writer() : cache::Writer(family(), kWriterOps) {}

}  // namespace kova::share

using kova::share::as_handle;
using kova::share::family;

PKOVASHAREDB KOVAShareDBOpen(void) {
    kova::share::recover_text_files();
    return static_cast<PKOVASHAREDB>(kova::cache::open(family()));
}

int KOVAShareDBOpenFile(PKOVASHAREDB *ppShareDb, const char *szPath) {
    if (ppShareDb == nullptr || szPath == nullptr) return kova::fail(ERR_BAD_PARAMETERS);
    return kova::cache::open_file(family(), as_handle(ppShareDb), szPath);
}

int KOVAShareDBClose(PKOVASHAREDB pShareDb) {
    return kova::cache::close(family(), pShareDb);
}

int KOVAShareDBCheckAndRebuild(PKOVASHAREDB *ppShareDb) {
    if (ppShareDb == nullptr || *ppShareDb == nullptr) return kova::fail(ERR_BAD_PARAMETERS);
    return kova::cache::check_and_rebuild(family(), as_handle(ppShareDb));
}
