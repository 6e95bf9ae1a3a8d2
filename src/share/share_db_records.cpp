// The share cache's records: reading, testing, writing and removing one share.
#include <cstdlib>
#include <cstring>

#include "share/share_internal.h"

namespace kova::share {
namespace {

// The packed record under key into *data: 0, or -1 (ERR_NO_SUCH_SHARE when absent).
int packed_of(PKOVASHAREDB db, const char *key, int32_t len, void **data, int32_t *size) {
    if (KOVABDbGet(db->pShareDb, key, len, data, size) == 0) return 0;
    return KLIBErrGet() == ERR_KEY_NOT_FOUND ? fail(ERR_NO_SUCH_SHARE) : -1;
}

}  // namespace
}  // namespace kova::share

int KOVAShareDBGet(PKOVASHAREDB pShareDb, const char *szName, PKOVASHARE *ppShare) {
    using namespace kova::share;
    if (pShareDb == nullptr || szName == nullptr || ppShare == nullptr) {
        return kova::fail(ERR_BAD_PARAMETERS);
    }
    char key[kKeySize];
    const int len = share_key(szName, key);
    if (len < 0) return kova::fail(ERR_NO_SUCH_SHARE);
    void *data = nullptr;
    int32_t size = 0;
    int result = packed_of(pShareDb, key, len, &data, &size);
    if (result == 0) result = KOVAShareDBUnpack(data, size, ppShare);
    free(data);
    return result;
}

int KOVAShareDBCheckExists(PKOVASHAREDB pShareDb, const char *szKey) {
    using namespace kova::share;
    if (pShareDb == nullptr || szKey == nullptr) return kova::fail(ERR_BAD_PARAMETERS);
    void *data = nullptr;
    int32_t size = 0;
    int result = packed_of(pShareDb, szKey, static_cast<int32_t>(strlen(szKey) + 1), &data, &size);
    PKOVASHARE share = nullptr;
    if (result == 0 && KOVAShareDBUnpack(data, size, &share) != 0) {
        result = kova::fail(ERR_FORMAT_ERROR);
    }
    KOVAShareFree(share);
    free(data);
    return result;
}

int KOVAShareDBDelete(PKOVASHAREDB pShareDb, const char *szName) {
    using namespace kova::share;
    if (pShareDb == nullptr || szName == nullptr) return kova::fail(ERR_BAD_PARAMETERS);
    char key[kKeySize];
    const int len = share_key(szName, key);
    if (len < 0) return kova::fail(ERR_NO_SUCH_SHARE);
    if (KOVABDbDelete(pShareDb->pShareDb, key, len) == 0) return 0;
    return KLIBErrGet() == ERR_KEY_NOT_FOUND ? kova::fail(ERR_NO_SUCH_SHARE) : -1;
}

int KOVAShareDBSet(PKOVASHAREDB pShareDb, const char *szOldName, const KOVASHARE *pShare) {
    using namespace kova::share;
    if (pShareDb == nullptr || pShare == nullptr || pShare->szName == nullptr) {
        return kova::fail(ERR_BAD_PARAMETERS);
    }
    // Checked before anything is removed: a refused record changes nothing.
    PKOVASHARE share = nullptr;
    if (KOVAShareAlloc(&share, pShare) != 0) return -1;
    char key[kKeySize];
    const int len = share_key(share->szName, key);
    int result = len < 0 ? -1 : 0;
    if (result == 0 && szOldName != nullptr) {
        result = KOVAShareDBDelete(pShareDb, szOldName);
    } else if (result == 0) {
        void *data = nullptr;
        int32_t size = 0;
        if (KOVABDbGet(pShareDb->pShareDb, key, len, &data, &size) == 0) {
            result = kova::fail(ERR_SHARE_EXISTS);
        } else if (KLIBErrGet() != ERR_KEY_NOT_FOUND) {
            result = -1;
        }
        free(data);
    }
    void *packed = nullptr;
    int32_t cap = 0;
    const int packed_len = result == 0 ? KOVAShareDBPack(share, &packed, &cap) : -1;
    if (result == 0) {
        result = packed_len < 0 ? -1 : KOVABDbSet(pShareDb->pShareDb, key, len, packed, packed_len);
    }
    free(packed);
    KOVAShareFree(share);
    return result;
}
