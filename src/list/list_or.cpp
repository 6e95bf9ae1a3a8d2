#include <cstdlib>

#include "core/alloc.h"
#include "core/raise.h"
#include "list/list_internal.h"

using namespace kova::list;

namespace {
// The items of list 2 that list 1 lacks, in list 2's order; collected before anything is added,
// because adding moves list 1. Null with *count = -1 when memory ran out.
const char **missing_items(const KLIBSZLIST *list1, const KLIBSZLIST *list2, int *count) {
    *count = 0;
    auto **items = static_cast<const char **>(
        kova::xmalloc(sizeof(char *) * (static_cast<size_t>(list2->nItem) + 1)));
    if (items == nullptr) {
        kova::raise(ERR_OUT_OF_MEMORY, 76);
        *count = -1;
        return nullptr;
    }
    Matcher matcher(list2, list1);
    for (int i = 0; i < list2->nItem; ++i) {
        const char *item = list2->pszItem[i];
        if (!is_empty_item(item) && matcher.match(item) == nullptr) items[(*count)++] = item;
    }
    return items;
}

bool push_all(PKLIBSZLIST *list, const char *const *items, int count) {
    for (int i = 0; i < count; ++i) {
        if (KLIBSzListPush(list, items[i]) < 0) return false;
    }
    return true;
}
}  // namespace

// The union: list 1's items, then those of list 2 that list 1 lacks. A sorted list keeps its
// order, since every addition goes through the sorted insert.
PKLIBSZLIST PslKLIBSzListOr(PKLIBSZLIST *ppList1, const KLIBSZLIST *pList2, int mode) {
    if (ppList1 == nullptr || *ppList1 == nullptr || pList2 == nullptr) {
        kova::raise(ERR_BAD_PARAMETERS, kova::list::kLineOrNullList);
        return nullptr;
    }
    PKLIBSZLIST list1 = *ppList1;
    if (sorted_differently(list1, pList2)) {
        kova::raise(ERR_BAD_PARAMETERS, kova::list::kLineOrModes);
        return nullptr;
    }
    int count = 0;
    const char **missing = missing_items(list1, pList2, &count);
    if (missing == nullptr) return nullptr;

    PKLIBSZLIST result = list1;
    if ((mode & KLIB_SZLIST_NEW_LIST) != 0) {
        result = new_list(list1->cbSize - list1->cbFree + pList2->cbSize - pList2->cbFree, 83);
        bool ok = result != nullptr;
        for (int i = 0; ok && i < list1->nItem; ++i) {
            if (!is_empty_item(list1->pszItem[i]))
                ok = KLIBSzListPush(&result, list1->pszItem[i]) >= 0;
        }
        // Same-mode sorted inputs give a result sorted in that mode.
        if (ok && list1->nSortMode == pList2->nSortMode) result->nSortMode = list1->nSortMode;
        if (ok) ok = push_all(&result, missing, count);
        if (!ok) {
            KLIBSzListFree(result);
            result = nullptr;
        }
    } else {
        drop_empty_items(list1);
        if (!push_all(ppList1, missing, count))
            result = nullptr;
        else
            result = *ppList1;
    }
    free(missing);
    return result;
}
