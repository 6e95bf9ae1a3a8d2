// Counting users and the account limit.
#include <cstdlib>
#include <cstring>

#include "core/paths.h"
#include "core/root.h"
#include "kovasdk/file.h"
#include "user/user_internal.h"

namespace kova::user {

// Calls visit(name as stored) for every user of the types in mask, in key order (of the
// upper-cased names). 0, or -1 when the walk failed.
template <class Visit>
int each_user(PKOVAUSERDB db, int mask, Visit &&visit) {
    if (KOVABDbCursorSetType(db->pPWDName, KOVA_BDB_CURSOR_FIRST) != 0) return -1;
    void *key = nullptr;
    int32_t key_len = 0;
    Text line;
    int result = 0;
    for (;;) {
        if (KOVABDbCursorGet(db->pPWDName, 1, &key, &key_len, reinterpret_cast<void **>(&line.data),
                             &line.cap) != 0) {
            if (KLIBErrGet() != ERR_BDB_END_OF_RECORDS) result = -1;
            break;
        }
        if (line.cap == 0 || line.data[line.cap - 1] != '\0') continue;
        char *colon = strchr(line.data, ':');
        if (colon != nullptr) *colon = '\0';
        const int type =
            strchr(line.data, '\\') != nullptr ? KOVA_USER_MASK_DOMAIN : KOVA_USER_MASK_LOCAL;
        if ((type & mask) != 0 && !visit(static_cast<const char *>(line.data))) {
            result = -1;
            break;
        }
    }
    free(key);
    return result;
}

int total(PKOVAUSERDB db, int mask) {
    int count = 0;
    if (each_user(db, mask, [&](const char *) { return ++count > 0; }) != 0) return -1;
    return count;
}

int enumerate(PKLIBSZLIST *list, int mask, const char *prefix) {
    if (list == nullptr || (mask & (KOVA_USER_MASK_LOCAL | KOVA_USER_MASK_DOMAIN)) == 0) {
        return fail(ERR_BAD_PARAMETERS);
    }
    NamePusher push(list, prefix);
    if (!push.ok()) return -1;
    const int walked =
        kept().read([&](void *db) { return each_user(static_cast<PKOVAUSERDB>(db), mask, push); });
    return walked != 0 ? -1 : push.count();
}

}  // namespace kova::user

int KOVAUserTotalNum(int typeMask) {
    if ((typeMask & (KOVA_USER_MASK_LOCAL | KOVA_USER_MASK_DOMAIN)) == 0) {
        return kova::fail(ERR_BAD_PARAMETERS);
    }
    return kova::user::kept().read(
        [&](void *db) { return kova::user::total(static_cast<PKOVAUSERDB>(db), typeMask); });
}

int KOVAConfGetUserLimit(void) {
    char value[33] = "";
    const int len = KLIBFileGetKeyValue(kova::RootedPath(kova::paths::kKovaInfoDefaults).c_str(),
                                        "maxaccounts", value, sizeof value, 0);
    if (len < 0) return -1;
    if (len == 0 || value[0] == '\0') return 0;  // no limit
    const int users = KOVAUserTotalNum(KOVA_USER_MASK_LOCAL | KOVA_USER_MASK_DOMAIN);
    return users < 0 ? -1 : atoi(value) - users;
}

int KOVAUserEnum(PKLIBSZLIST *ppList, int typeMask) {
    return kova::user::enumerate(ppList, typeMask, nullptr);
}

int KOVAUserEnumByPrefix(PKLIBSZLIST *ppList, int typeMask, const char *szPrefix) {
    if (szPrefix == nullptr) return kova::fail(ERR_BAD_PARAMETERS);
    return kova::user::enumerate(ppList, typeMask, szPrefix);
}
