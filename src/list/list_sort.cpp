#include "core/raise.h"
#include "list/list_internal.h"

using namespace kova::list;

// Sorts only an unsorted list; the mode is set to flags in every case, so a list sorted by
// bytes and then given flag 16 is not re-sorted (kept as it is).
int KLIBSzListSortItems(PKLIBSZLIST pList, int flags) {
    if (pList == nullptr) {
        kova::raise(ERR_BAD_PARAMETERS);
        return -1;
    }
    if (pList->nSortMode == KLIB_SZLIST_UNSORTED) {
        const int mode = (flags & KLIB_SZLIST_SORT_BYTES)  ? KLIB_SZLIST_SORT_BYTES
                         : (flags & KLIB_SZLIST_SORT_CASE) ? KLIB_SZLIST_SORT_CASE
                                                           : KLIB_SZLIST_UNSORTED;
        if (mode != KLIB_SZLIST_UNSORTED) {
            drop_empty_items(pList);
            sort_items(pList, mode);
        }
    }
    pList->nSortMode = flags;
    return 0;
}

int KLIBSzListSorted(const KLIBSZLIST *pList) {
    if (pList == nullptr) {
        kova::raise(ERR_BAD_PARAMETERS, 26);
        return -1;
    }
    return pList->nSortMode;
}
