// One user by name (without regard to case) or by id.
#include <cstring>

#include "user/user_internal.h"

int KOVAUserGet(const char *szName, PKOVAUSER *ppUser) {
    using namespace kova::user;
    if (szName == nullptr || ppUser == nullptr) return kova::fail(ERR_BAD_PARAMETERS);
    char upper[kKeySize];
    if (upper_key(szName, upper) < 0) return kova::fail(ERR_NO_SUCH_USER);
    return kept().read(
        [&](void *db) { return KOVAUserDBGet(static_cast<PKOVAUSERDB>(db), upper, ppUser); });
}

int KOVAUserGetByUID(uint32_t uid, PKOVAUSER *ppUser) {
    using namespace kova::user;
    if (ppUser == nullptr) return kova::fail(ERR_BAD_PARAMETERS);
    char id[16];
    uid_key(uid, id);
    return kept().read([&](void *handle) {
        auto *db = static_cast<PKOVAUSERDB>(handle);
        Text upper;
        int result = get_text(db->pPWDUid, id, kUidKeyLen, &upper.data, &upper.cap);
        if (result != 0 && KLIBErrGet() == ERR_KEY_NOT_FOUND) result = kova::fail(ERR_NO_SUCH_USER);
        if (result == 0) result = KOVAUserDBGet(db, upper.data, ppUser);
        return result;
    });
}
