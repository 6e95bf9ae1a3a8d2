#include "core/raise.h"
#include "file/file_internal.h"

namespace {
constexpr int kKeyListSize = 1024;
}  // namespace

// One full rewrite per key, in the hash's slot order.
int KLIBFileMergePairs(const char *szPath, const KLIBSZHASH *pHash, const char *szFormat) {
    if (szPath == nullptr || pHash == nullptr) {
        kova::raise(ERR_BAD_PARAMETERS, 42);
        return -1;
    }
    PKLIBSZLIST keys = PslKLIBSzListAlloc(kKeyListSize);
    kova::ScopeGuard free_keys([&] { KLIBSzListFree(keys); });
    if (keys == nullptr || KLIBSzHashEnumKey(pHash, &keys) < 0) {
        kova::raise(ERR_NOT_ENOUGH_MEMORY, 48);
        return -1;
    }
    if (keys->nItem == 0) {
        kova::raise(ERR_OP_FAILURE, 54);
        return -1;
    }
    for (int i = 0; i < keys->nItem; ++i) {
        const char *key = keys->pszItem[i];
        if (KLIBFileSetKeyValue(szPath, key, SzKLIBSzHashGetValue(pHash, key), szFormat) != 1) {
            kova::raise(ERR_WRITE_FAILED, 71);
            return -1;
        }
    }
    return 0;
}
