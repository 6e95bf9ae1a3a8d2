#include "core/raise.h"
#include "hash/hash_internal.h"

int KLIBSzHashEnumKey(const KLIBSZHASH *pHash, PKLIBSZLIST *ppList) {
    if (pHash == nullptr) {
        kova::raise(ERR_BAD_PARAMETERS);
        return -1;
    }
    if (ppList == nullptr) return pHash->nPair;
    const int before = *ppList != nullptr ? (*ppList)->nItem : 0;
    int count = 0;
    for (int i = 0; i < pHash->nSlot; ++i) {
        const char *key = pHash->rgSlot[i].szKey;
        if (key == nullptr) continue;
        if (KLIBSzListPush(ppList, key) < 0) {
            // Leave the caller's list as it was.
            while (*ppList != nullptr && (*ppList)->nItem > before) SzKLIBSzListPop(*ppList);
            return -1;
        }
        ++count;
    }
    return count;
}
