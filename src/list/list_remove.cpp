#include "core/raise.h"
#include "list/list_internal.h"

using namespace kova::list;

// The text stays in the string area until the block is rebuilt; only its slot is given back.
const char *SzKLIBSzListRemove(PKLIBSZLIST pList, int idx) {
    if (pList == nullptr || pList->nItem <= 0 || idx < 0 || idx >= pList->nItem) {
        kova::raise(ERR_BAD_PARAMETERS, 40);
        return nullptr;
    }
    const char *text = pList->pszItem[idx];
    --pList->nItem;
    pList->cbFree += kSlotSize;
    memmove(&pList->pszItem[idx], &pList->pszItem[idx + 1],
            sizeof(char *) * static_cast<size_t>(pList->nItem - idx));
    return text;
}

const char *SzKLIBSzListShift(PKLIBSZLIST pList) {
    return SzKLIBSzListRemove(pList, 0);
}

const char *SzKLIBSzListPop(PKLIBSZLIST pList) {
    return SzKLIBSzListRemove(pList, pList != nullptr ? pList->nItem - 1 : 0);
}

PKLIBSZLIST KLIBSzListRemoveAll(PKLIBSZLIST pList) {
    if (pList == nullptr) {
        kova::raise(ERR_BAD_PARAMETERS);
        return nullptr;
    }
    pList->nItem = 0;
    pList->pszStrStart = block_end(pList);
    pList->cbFree = pList->cbSize - kHeaderSize;
    return pList;
}
