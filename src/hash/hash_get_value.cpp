#include "hash/hash_internal.h"

const char *SzKLIBSzHashGetValue(const KLIBSZHASH *pHash, const char *szKey) {
    if (pHash == nullptr || szKey == nullptr) return nullptr;
    const int slot = KLIBIGetLookDict(pHash, szKey);
    return slot >= 0 ? pHash->rgSlot[slot].szValue : nullptr;
}
