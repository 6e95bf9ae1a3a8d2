#include "core/raise.h"
#include "hash/hash_internal.h"

const char *SzKLIBSzHashRemoveKey(PKLIBSZHASH pHash, const char *szKey) {
    if (pHash == nullptr || szKey == nullptr) {
        kova::raise(ERR_BAD_PARAMETERS);
        return nullptr;
    }
    const int slot = KLIBIGetLookDict(pHash, szKey);
    if (slot < 0) return nullptr;
    // The value pointer stays: it marks the slot as a tombstone and its text stays readable.
    pHash->rgSlot[slot].szKey = nullptr;
    --pHash->nPair;
    return pHash->rgSlot[slot].szValue;
}
