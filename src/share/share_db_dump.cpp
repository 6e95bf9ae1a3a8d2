// smb.conf written from the cache: the reserved sections with their lines, then every share in
// the defined form, in the order of their keys, through "smb.conf.tmp".
#include <cstdlib>
#include <cstring>

#include "core/alloc.h"
#include "core/owners.h"
#include "core/rewrite.h"
#include "core/root.h"
#include "kovasdk/bdb.h"
#include "kovasdk/kstring.h"
#include "share/share_internal.h"

namespace kova::share {
namespace {

// "nobody,<list>,nobody", or "nobody,nobody" for an empty list.
bool put_list(Rewrite &out, const char *key, const char *list) {
    const bool empty = list == nullptr || list[0] == '\0';
    return out.print(__LINE__, "\t%s=nobody,%s%snobody\n", key, empty ? "" : list,
                     empty ? "" : ",");
}

bool write_reserved(Rewrite &out, const char *key, const void *data, int32_t size) {
    PKLIBSZLIST lines = KOVAListDBUnpack(data, size);
    if (lines == nullptr) return false;
    char name[kKeySize];
    snprintf(name, sizeof name, "%s", key + 1);  // after the reserved mark
    SzKLIBStrCaseLower(name, 0, nullptr, sizeof name);
    bool ok = out.print(__LINE__, "[%s]\n", name);
    for (int i = 0; ok && i < lines->nItem; ++i)
        ok = out.print(__LINE__, "\t%s\n", SzKLIBSzListGet(lines, i));
    KLIBSzListFree(lines);
    return ok;
}

bool write_share(Rewrite &out, const KOVASHARE &share) {
    // Valid users: the read-only and read-write lists together, each name once.
    const size_t size = strlen(share.szROList) + strlen(share.szRWList) + 2;
    UniqueMalloc<char> valid(static_cast<char *>(xmalloc(size)));
    if (!valid) {
        fail(ERR_OUT_OF_MEMORY);
        return false;
    }
    const bool both = share.szROList[0] != '\0' && share.szRWList[0] != '\0';
    snprintf(valid.get(), size, "%s%s%s", share.szROList, both ? "," : "", share.szRWList);
    if (RemoveSameUsers(valid.get()) < 0) {
        log_at(LOG_ERR, Site(), "%s:%d RemoveSameUsers() failed! kovaerr=0x%04X, szUserList=[%s]",
               KLIBErrGet(), valid.get());
    }
    const char *guest_ok = "yes", *writeable = "no";
    if (ShareFTypeSetToConf(share.fType, &guest_ok, &writeable) != 0) {
        log_at(LOG_ERR, Site(),
               "%s:%d ShareFTypeSetToConf() failed! kovaerror=0x%04X, session[%s], fType=%d",
               KLIBErrGet(), share.szName, share.fType);
    }
    return out.print(__LINE__, "[%s]\n", share.szName) &&
           put_list(out, "invalid users", share.szDenyList) &&
           put_list(out, "valid users", valid.get()) &&
           out.print(__LINE__, "\tcomment=\"%s\"\n\tpath=%s\n", share.szComment, share.szPath) &&
           out.print(__LINE__, "\tguest ok=%s\n", guest_ok) &&
           out.print(__LINE__, "\tbrowseable=%s\n\tftp write only=%s\n",
                     share.browseable != 0 ? "yes" : "no",
                     share.ftpWriteOnly != 0 ? "yes" : "no") &&
           put_list(out, "read list", share.szROList) &&
           put_list(out, "write list", share.szRWList) &&
           out.print(__LINE__, "\twriteable=%s\n", writeable);
}

bool write_sections(PKOVASHAREDB db, Rewrite &out) {
    if (KOVABDbCursorSetType(db->pShareDb, KOVA_BDB_CURSOR_FIRST) != 0) return false;
    void *key = nullptr, *data = nullptr;
    int32_t key_len = 0, size = 0;
    PKOVASHARE share = nullptr;
    bool ok = true;
    // Every record, reserved ones included: the reserved sections' lists are under "#" keys.
    while (ok && KOVABDbCursorGet(db->pShareDb, 0, &key, &key_len, &data, &size) == 0) {
        KOVABDbCursorSetType(db->pShareDb, KOVA_BDB_CURSOR_NEXT);  // read without skipping
        const auto *name = static_cast<const char *>(key);
        if (key_len == 0 || name[key_len - 1] != '\0') continue;
        if (name[0] == KOVA_BDB_RESERVED_PREFIX) {
            if (ShareSectionTypeGet(name + 1) == KOVA_SHARE_SECTION_RESERVED) {
                ok = write_reserved(out, name, data, size);
            }
            continue;  // the store's bookkeeping records
        }
        ok = KOVAShareDBUnpack(data, size, &share) == 0 && write_share(out, *share);
    }
    if (ok && KLIBErrGet() != ERR_BDB_END_OF_RECORDS) ok = false;
    KOVAShareFree(share);
    free(key);
    free(data);
    return ok;
}

}  // namespace
}  // namespace kova::share

int KOVAShareDBDump(PKOVASHAREDB pShareDb) {
    using namespace kova::share;
    if (pShareDb == nullptr) return kova::fail(ERR_BAD_PARAMETERS);
    const kova::RootedPath path(kSmbConf), tmp(kSmbConfTmp);
    kova::Rewrite conf(path.c_str(), {}, tmp.c_str());
    const kova::Rewrite::Opened opened = conf.open();
    if (opened == kova::Rewrite::Opened::kFailed) return -1;
    const bool started = opened == kova::Rewrite::Opened::kOk ? conf.start() : conf.start_new(0644);
    if (!started || !write_sections(pShareDb, conf)) return -1;
    return conf.commit() ? 0 : -1;
}
