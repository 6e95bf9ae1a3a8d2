#include "core/raise.h"
#include "list/list_internal.h"

namespace kova::list {

Matcher::Matcher(const KLIBSZLIST *probe, const KLIBSZLIST *target)
    : target_(target),
      merge_(probe->nSortMode != KLIB_SZLIST_UNSORTED && probe->nSortMode == target->nSortMode) {}

const char *Matcher::match(const char *item) {
    const KLIBSZLIST *t = target_;
    if (t->nSortMode == KLIB_SZLIST_UNSORTED) {
        for (int i = 0; i < t->nItem; ++i) {
            if (strcmp(item, t->pszItem[i]) == 0) return t->pszItem[i];
        }
        return nullptr;
    }
    if (!merge_) {
        const int found = t->nSortMode == KLIB_SZLIST_SORT_CASE ? KLIBSzListCaseFind(t, item)
                                                                : KLIBSzListFind(t, item);
        return found >= 0 ? t->pszItem[found] : nullptr;
    }
    // Merge walk: probe items arrive in the target's order, so the cursor only moves forward.
    while (cursor_ < t->nItem && compare(t->pszItem[cursor_], item, t->nSortMode) < 0)
        ++cursor_;
    if (cursor_ < t->nItem && compare(t->pszItem[cursor_], item, t->nSortMode) == 0) {
        return t->pszItem[cursor_];
    }
    return nullptr;
}

PKLIBSZLIST filter(PKLIBSZLIST list1, const KLIBSZLIST *list2, int mode, bool keep_matched,
                   int null_line, int mode_line) {
    if (list1 == nullptr || list2 == nullptr) {
        kova::raise(ERR_BAD_PARAMETERS, null_line);
        return nullptr;
    }
    if (sorted_differently(list1, list2)) {
        kova::raise(ERR_BAD_PARAMETERS, mode_line);
        return nullptr;
    }
    Matcher matcher(list1, list2);
    if ((mode & KLIB_SZLIST_NEW_LIST) == 0) {
        drop_empty_items(list1);
        int kept = 0;
        for (int i = 0; i < list1->nItem; ++i) {
            const bool matched = matcher.match(list1->pszItem[i]) != nullptr;
            if (matched == keep_matched) list1->pszItem[kept++] = list1->pszItem[i];
        }
        list1->cbFree += kSlotSize * (list1->nItem - kept);
        list1->nItem = kept;
        return list1;
    }

    PKLIBSZLIST result = new_list(list1->cbSize - list1->cbFree, __LINE__);
    if (result == nullptr) return nullptr;
    for (int i = 0; i < list1->nItem; ++i) {
        const char *item = list1->pszItem[i];
        if (is_empty_item(item)) continue;
        const char *matched = matcher.match(item);
        if ((matched != nullptr) != keep_matched) continue;
        // The intersection takes list 2's text of the pair (they differ only in case).
        if (KLIBSzListPush(&result, matched != nullptr ? matched : item) < 0) {
            KLIBSzListFree(result);
            return nullptr;
        }
    }
    // Items arrived in order, so a merge result is already sorted in the common mode.
    if (matcher.merge_walk()) result->nSortMode = list1->nSortMode;
    return result;
}

}  // namespace kova::list
