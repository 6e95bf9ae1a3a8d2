#include "core/raise.h"
#include "hash/hash_internal.h"

PKLIBSZHASH PslSzHashRemoveAll(PKLIBSZHASH pHash) {
    if (pHash == nullptr) {
        kova::raise(ERR_BAD_PARAMETERS);
        return nullptr;
    }
    // Occupied slots become tombstones (value pointers kept) rather than empty slots.
    for (int i = 0; i < pHash->nSlot; ++i)
        pHash->rgSlot[i].szKey = nullptr;
    pHash->nPair = 0;
    pHash->cbFree = pHash->cbData;
    pHash->pNext = kova::hash::string_area(pHash);
    return pHash;
}
