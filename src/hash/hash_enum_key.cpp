#include "core/raise.h"
#include "hash/hash_internal.h"

int KLIBSzHashEnumKey(const KLIBSZHASH *pHash, PKLIBSZLIST *ppList) {
    if (pHash == nullptr) {
        kova::raise(ERR_BAD_PARAMETERS);
        return -1;
    }
    if (ppList == nullptr) return pHash->nPair;
    const bool made_list = *ppList == nullptr;
    if (made_list && (*ppList = PslKLIBSzListAlloc(0)) == nullptr) return -1;
    const int before = (*ppList)->nItem;
    for (int i = 0; i < pHash->nSlot; ++i) {
        const char *key = pHash->rgSlot[i].szKey;
        if (key != nullptr && KLIBSzListPush(ppList, key) < 0) {
            // Leave the caller's list as it was.
            if (made_list) {
                KLIBSzListFree(*ppList);
                *ppList = nullptr;
            } else {
                while ((*ppList)->nItem > before)
                    SzKLIBSzListPop(*ppList);
            }
            return -1;
        }
    }
    return (*ppList)->nItem - before;
}
