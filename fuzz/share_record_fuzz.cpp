// Packed share records as the cache reads them: any bytes are refused or become a record whose
// strings lie inside its block, and packing that record again gives bytes that unpack to the
// same record.
#include <cstdint>
#include <cstdlib>
#include <cstring>

#include "kovasdk/share.h"

namespace {

constexpr char *KOVASHARE::*kStrings[] = {&KOVASHARE::szName,   &KOVASHARE::szComment,
                                          &KOVASHARE::szPath,   &KOVASHARE::szDenyList,
                                          &KOVASHARE::szRWList, &KOVASHARE::szROList};

void check_inside(const KOVASHARE *share) {
    const char *begin = reinterpret_cast<const char *>(share);
    const char *end = begin + share->cbSize;
    if (share->cbSize > share->cbAlloc) abort();
    for (auto field : kStrings) {
        const char *text = share->*field;
        if (text < begin || text >= end || memchr(text, '\0', end - text) == nullptr) abort();
    }
}

bool same(const KOVASHARE *a, const KOVASHARE *b) {
    for (auto field : kStrings)
        if (strcmp(a->*field, b->*field) != 0) return false;
    return a->fType == b->fType && a->browseable == b->browseable &&
           a->ftpWriteOnly == b->ftpWriteOnly;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    if (size > 1 << 16) return 0;
    PKOVASHARE share = nullptr;
    if (KOVAShareDBUnpack(data, static_cast<int32_t>(size), &share) != 0) return 0;
    check_inside(share);
    void *packed = nullptr;
    int32_t cap = 0;
    const int len = KOVAShareDBPack(share, &packed, &cap);
    if (len <= 0) abort();
    PKOVASHARE again = nullptr;
    if (KOVAShareDBUnpack(packed, len, &again) != 0 || !same(share, again)) abort();
    KOVAShareFree(again);
    KOVAShareFree(share);
    free(packed);
    return 0;
}
