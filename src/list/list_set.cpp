#include "core/raise.h"
#include "list/list_internal.h"

using namespace kova::list;

int KLIBSzListSet(PKLIBSZLIST *ppList, int idx, const char *szStr) {
    if (ppList == nullptr || *ppList == nullptr || szStr == nullptr) {
        kova::raise(ERR_BAD_PARAMETERS, 46);
        return -1;
    }
    if (idx < 0 || idx >= (*ppList)->nItem) {
        kova::raise(ERR_BAD_PARAMETERS, 50);
        return -1;
    }
    const size_t len = strlen(szStr);
    char *old = (*ppList)->pszItem[idx];
    if (len <= strlen(old)) {
        memmove(old, szStr, len + 1);  // szStr may be a part of the item itself
    } else {
        // A longer text goes below the string area. Where the caller left no room the block
        // grows rather than overrunning the item array; a text taken from the list itself is
        // copied out before that.
        kova::UniqueMalloc<char> copy;
        szStr = survive_growth(*ppList, szStr, len + 1, len + 1, &copy, __LINE__);
        if (szStr == nullptr || !reserve(ppList, len + 1, __LINE__)) return -1;
        KLIBSZLIST *list = *ppList;
        list->pszItem[idx] = store_text(list, szStr, len + 1);
    }
    KLIBSZLIST *list = *ppList;
    if (list->nSortMode == KLIB_SZLIST_UNSORTED) return idx;
    const char *stored = list->pszItem[idx];  // szStr itself may have been overwritten
    sort_items(list, list->nSortMode);
    const int found = KLIBISzListFind(list, stored, list->nSortMode);
    return found >= 0 ? found : -1;
}
