// The share operations: one share, the share names, writing and deleting shares.
#include <cstdlib>
#include <cstring>

#include "core/alloc.h"
#include "kovasdk/file.h"
#include "share/share_internal.h"

namespace kova::share {
namespace {

PKOVASHAREDB as_db(void *handle) {
    return static_cast<PKOVASHAREDB>(handle);
}

// Every share name in key order: visit(name) false stops (-1).
template <class Visit>
int each_share(PKOVASHAREDB db, Visit &&visit) {
    if (KOVABDbCursorSetType(db->pShareDb, KOVA_BDB_CURSOR_FIRST) != 0) return -1;
    void *key = nullptr, *data = nullptr;
    int32_t key_len = 0, size = 0;
    PKOVASHARE share = nullptr;
    int result = 0;
    while (KOVABDbCursorGet(db->pShareDb, 1, &key, &key_len, &data, &size) == 0) {
        if (KOVAShareDBUnpack(data, size, &share) != 0) continue;  // not a share record
        if (!visit(static_cast<const char *>(share->szName))) {
            result = -1;
            break;
        }
    }
    if (result == 0 && KLIBErrGet() != ERR_BDB_END_OF_RECORDS) result = -1;
    KOVAShareFree(share);
    free(key);
    free(data);
    return result;
}

int enumerate(PKLIBSZLIST *list, const char *prefix) {
    if (list == nullptr || *list == nullptr) return fail(ERR_BAD_PARAMETERS);
    user::NamePusher push(list, prefix);
    if (!push.ok()) return -1;
    const int walked = kept().read([&](void *db) { return each_share(as_db(db), push); });
    return walked != 0 ? -1 : push.count();
}

}  // namespace
}  // namespace kova::share

using kova::share::as_db;
using kova::share::kept;

int KOVAShareGet(const char *szName, PKOVASHARE *ppShare) {
    if (szName == nullptr || ppShare == nullptr) return kova::fail(ERR_BAD_PARAMETERS);
    if (ErrKLIBFileLock(KLIB_LOCK_SMB | KLIB_LOCK_SH, 10) != 0) return kova::fail(ERR_LOCK_FAILED);
    const int result =
        kept().read([&](void *db) { return KOVAShareDBGet(as_db(db), szName, ppShare); });
    const uint32_t code = KLIBErrGet();
    if (ErrKLIBFileUnlock(KLIB_LOCK_SMB) != 0) return kova::fail(ERR_UNLOCK_FAILED);
    if (result != 0) KLIBErrSet(code);  // the read's failure, not the unlock's state
    return result;
}

int KOVAShareSet(const char *szOldName, const KOVASHARE *pShare) {
    if (pShare == nullptr) return kova::fail(ERR_BAD_PARAMETERS);
    PKOVASHARE old = nullptr;
    int result = 0;
    {
        kova::share::Writer writer;
        if (!writer.ok()) return -1;
        if (szOldName != nullptr && KOVAShareDBGet(writer.db(), szOldName, &old) != 0) return -1;
        result = KOVAShareDBSet(writer.db(), szOldName, pShare);
        if (result == 0) result = writer.finish();
        if (result == 0) kova::share::after_share_set(old, *pShare);
    }
    KOVAShareFree(old);
    return result;
}

int kova::share::set_many(const char *const *old_names, const KOVASHARE *const *shares, int count) {
    auto *olds =
        static_cast<PKOVASHARE *>(xcalloc(static_cast<size_t>(count) + 1, sizeof(PKOVASHARE)));
    if (olds == nullptr) return fail(ERR_OUT_OF_MEMORY);
    int result = 0;
    {
        Writer writer;
        result = writer.ok() ? 0 : -1;
        for (int i = 0; result == 0 && i < count; ++i) {
            if (old_names[i] != nullptr &&
                KOVAShareDBGet(writer.db(), old_names[i], &olds[i]) != 0) {
                result = -1;
            } else {
                result = KOVAShareDBSet(writer.db(), old_names[i], shares[i]);
            }
        }
        if (result == 0) result = writer.finish();
        for (int i = 0; result == 0 && i < count; ++i)
            after_share_set(olds[i], *shares[i]);
    }
    for (int i = 0; i < count; ++i)
        KOVAShareFree(olds[i]);
    free(olds);
    return result;
}

int KOVAShareDelete(const char *szName) {
    if (szName == nullptr) return kova::fail(ERR_BAD_PARAMETERS);
    PKOVASHARE old = nullptr;
    int result = 0;
    {
        kova::share::Writer writer;
        if (!writer.ok()) return -1;
        if (KOVAShareDBGet(writer.db(), szName, &old) != 0) return -1;
        result = KOVAShareDBDelete(writer.db(), szName);
        if (result == 0) result = writer.finish();
        if (result == 0) kova::share::after_share_delete(*old);
    }
    KOVAShareFree(old);
    return result;
}

int KOVAShareEnum(PKLIBSZLIST *ppList) {
    return kova::share::enumerate(ppList, nullptr);
}

int KOVAShareEnumByPrefix(PKLIBSZLIST *ppList, const char *szPrefix) {
    if (szPrefix == nullptr) return kova::fail(ERR_BAD_PARAMETERS);
    return kova::share::enumerate(ppList, szPrefix);
}
