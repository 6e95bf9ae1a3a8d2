#include "core/fail.h"
#include "file/file_internal.h"

namespace {
constexpr int kLineBadArguments = 42;
constexpr int kLineListKeys = 48;
constexpr int kLineNoKeys = 54;
constexpr int kLineSetFailed = 71;

constexpr int kKeyListSize = 1024;
}  // namespace

// One full rewrite per key, in the hash's slot order.
int KLIBFileMergePairs(const char *szPath, const KLIBSZHASH *pHash, const char *szFormat) {
    if (szPath == nullptr || pHash == nullptr)
        return kova::fail(ERR_BAD_PARAMETERS, kLineBadArguments);
    PKLIBSZLIST keys = PslKLIBSzListAlloc(kKeyListSize);
    kova::ScopeGuard free_keys([&] { KLIBSzListFree(keys); });
    if (keys == nullptr || KLIBSzHashEnumKey(pHash, &keys) < 0)
        return kova::fail(ERR_NOT_ENOUGH_MEMORY, kLineListKeys);
    if (keys->nItem == 0) return kova::fail(ERR_OP_FAILURE, kLineNoKeys);
    for (int i = 0; i < keys->nItem; ++i) {
        const char *key = keys->pszItem[i];
        if (KLIBFileSetKeyValue(szPath, key, SzKLIBSzHashGetValue(pHash, key), szFormat) != 1) {
            return kova::fail(ERR_WRITE_FAILED, kLineSetFailed);
        }
    }
    return 0;
}
