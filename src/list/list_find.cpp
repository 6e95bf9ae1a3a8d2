#include "core/raise.h"
#include "list/list_internal.h"

using namespace kova::list;

int KLIBISzListFind(const KLIBSZLIST *pList, const char *szStr, int sortMode) {
    int low = 0;
    int high = pList->nItem - 1;
    while (low <= high) {
        const int mid = low + (high - low) / 2;
        const int order = compare(szStr, pList->pszItem[mid], sortMode);
        if (order == 0) return mid;
        if (order == -2 && sortMode == KLIB_SZLIST_SORT_CASE) break;  // cannot be ordered
        if (order < 0) {
            high = mid - 1;
        } else {
            low = mid + 1;
        }
    }
    return ~low;
}

namespace {
// Scan of an unsorted list: the first non-empty item that compares equal.
int scan(const KLIBSZLIST *list, const char *text, int sort_mode) {
    for (int i = 0; i < list->nItem; ++i) {
        const char *item = list->pszItem[i];
        if (!is_empty_item(item) && compare(text, item, sort_mode) == 0) return i;
    }
    return -1;
}

int find(const KLIBSZLIST *list, const char *text, int sort_mode, int refused_line) {
    if (list == nullptr || text == nullptr) {
        kova::raise(ERR_BAD_PARAMETERS, refused_line);
        return -1;
    }
    if (list->nSortMode == KLIB_SZLIST_UNSORTED) return scan(list, text, sort_mode);
    if (list->nSortMode != sort_mode) {
        kova::raise(ERR_BAD_PARAMETERS, refused_line);
        return -1;
    }
    const int found = KLIBISzListFind(list, text, sort_mode);
    return found >= 0 ? found : -1;
}
}  // namespace

int KLIBSzListFind(const KLIBSZLIST *pList, const char *szStr) {
    return find(pList, szStr, KLIB_SZLIST_SORT_BYTES, 37);
}

int KLIBSzListCaseFind(const KLIBSZLIST *pList, const char *szStr) {
    return find(pList, szStr, KLIB_SZLIST_SORT_CASE, 46);
}
