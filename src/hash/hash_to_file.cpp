#include "core/raise.h"
#include "hash/hash_internal.h"

namespace {
constexpr const char kDefaultFormat[] = "%s=%s\n";
}

int ErrKLIBIFileHash2File(FILE *fp, const char *szSection, const KLIBSZHASH *pHash,
                          const char *szFormat) {
    if (fp == nullptr) {
        kova::raise(ERR_BAD_PARAMETERS);
        return -1;
    }
    if (!KLIBIFileCheckFormat(szFormat)) {
        kova::raise(ERR_BAD_PARAMETERS, 54);
        return -1;
    }
    const char *format = szFormat != nullptr ? szFormat : kDefaultFormat;
    if (szSection != nullptr && fprintf(fp, "[%s]\n", szSection) < 0) {
        kova::raise(ERR_WRITE_FAILED, 60);
        return -1;
    }
    if (pHash == nullptr) return 0;
    for (int i = 0; i < pHash->nSlot; ++i) {
        const KLIBSZHASH_SLOT &slot = pHash->rgSlot[i];
        if (slot.szKey != nullptr && fprintf(fp, format, slot.szKey, slot.szValue) < 0) {
            kova::raise(ERR_WRITE_FAILED, 74);
            return -1;
        }
    }
    return 0;
}
