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
        memcpy(old, szStr, len + 1);
    } else {
        // A longer text goes below the string area. Where the caller left no room the block
        // grows rather than overrunning the item array.
        if (!reserve(ppList, len + 1, __LINE__)) return -1;
        KLIBSZLIST *list = *ppList;
        list->pszItem[idx] = store_text(list, szStr, len + 1);
    }
    KLIBSZLIST *list = *ppList;
    if (list->nSortMode == KLIB_SZLIST_UNSORTED) return idx;
    sort_items(list, list->nSortMode);
    const int found = KLIBISzListFind(list, szStr, list->nSortMode);
    return found >= 0 ? found : -1;
}
