#include <cstdlib>
#include <cstring>

#include "bdb/bdb_internal.h"
#include "core/alloc.h"
#include "core/owners.h"

namespace lr = kova::bdb::list_record;

namespace {
// toupper of the C locale, whatever locale the calling program has set.
char c_locale_upper(char c) {
    return c >= 'a' && c <= 'z' ? static_cast<char>(c - 'a' + 'A') : c;
}
}  // namespace

int KOVAListDBSet(PKOVABDB pDb, const char *szName, const KLIBSZLIST *pList) {
    if (pDb == nullptr || szName == nullptr || pList == nullptr) {
        kova::raise(ERR_BAD_PARAMETERS, lr::kLineBadArguments);
        return -1;
    }
    // "#" + the name upper-cased byte by byte (C locale) + its NUL: a reserved key.
    const size_t name_len = strlen(szName);
    kova::UniqueMalloc<char> key(static_cast<char *>(kova::xmalloc(name_len + 2)));
    if (key == nullptr) {
        kova::raise(ERR_OUT_OF_MEMORY, lr::kLineOutOfMemory);
        return -1;
    }
    key.get()[0] = KOVA_BDB_RESERVED_PREFIX;
    for (size_t i = 0; i <= name_len; ++i)
        key.get()[i + 1] = c_locale_upper(szName[i]);

    kova::UniqueMalloc<void> packed(KOVAListDBPack(pList, pList->cbSize));
    if (packed == nullptr) {
        kova::log_at(LOG_ERR, lr::kLinePackFailed,
                     "%s (%d): errno=%d, KOVAListDBPack() failed, section[%s]\n", KLIBErrGet(),
                     szName);
        return -1;
    }
    if (KOVABDbSet(pDb, key.get(), static_cast<int32_t>(name_len + 2), packed.get(),
                   pList->cbSize) != 0) {
        kova::log_at(LOG_ERR, lr::kLineSetFailed,
                     "%s (%d): errno=%d, KOVABDbSet() failed, section[%s]\n", KLIBErrGet(), szName);
        return -1;
    }
    return 0;
}
