#include "core/raise.h"
#include "list/list_internal.h"

using namespace kova::list;

namespace {
constexpr int kLineBadArguments = 45;
constexpr int kLineOutOfMemory = 72;
}  // namespace

int KLIBSzListInsert(PKLIBSZLIST *ppList, int idx, const char *szStr) {
    if (ppList == nullptr || *ppList == nullptr || szStr == nullptr || idx < 0) {
        kova::raise(ERR_BAD_PARAMETERS, kLineBadArguments);
        return -1;
    }
    if ((*ppList)->nSortMode != KLIB_SZLIST_UNSORTED) {
        const int found = KLIBISzListFind(*ppList, szStr, (*ppList)->nSortMode);
        idx = found >= 0 ? found : ~found;
    }
    const int count = (*ppList)->nItem;
    const size_t len = strlen(szStr) + 1;
    const size_t slots = idx > count ? static_cast<size_t>(idx - count) + 1 : 1;
    const size_t needed = len + kSlotSize * slots;
    kova::UniqueMalloc<char> copy;  // szStr may be an item of this very list
    szStr = survive_growth(*ppList, szStr, len, needed, &copy, kLineOutOfMemory);
    if (szStr == nullptr || !reserve(ppList, needed, kLineOutOfMemory)) return -1;

    KLIBSZLIST *list = *ppList;
    char *text = store_text(list, szStr, len);
    if (idx >= count) {
        for (int i = count; i < idx; ++i)
            list->pszItem[i] = list->pszEmpty;
        list->nItem = idx + 1;
    } else {
        memmove(&list->pszItem[idx + 1], &list->pszItem[idx],
                sizeof(char *) * static_cast<size_t>(count - idx));
        list->nItem = count + 1;
    }
    list->pszItem[idx] = text;
    list->cbFree -= kSlotSize * static_cast<int>(slots);
    return idx;
}

int KLIBSzListPush(PKLIBSZLIST *ppList, const char *szStr) {
    return KLIBSzListInsert(ppList, ppList != nullptr && *ppList != nullptr ? (*ppList)->nItem : 0,
                            szStr);
}

int KLIBSzListUnshift(PKLIBSZLIST *ppList, const char *szStr) {
    return KLIBSzListInsert(ppList, 0, szStr);
}
