#include <climits>
#include <cstdlib>

#include "core/alloc.h"
#include "core/raise.h"
#include "kovasdk/unicode.h"
#include "list/list_internal.h"

namespace kova::list {

int compare(const char *a, const char *b, int sort_mode) {
    return sort_mode == KLIB_SZLIST_SORT_CASE ? KLIBUnicodeUTF8StrCaseCmp(a, b) : strcmp(a, b);
}

void init_block(KLIBSZLIST *list, int size) {
    list->cbSize = size;
    list->nItem = 0;
    list->cbFree = size - kHeaderSize;
    list->nSortMode = KLIB_SZLIST_UNSORTED;
    list->pszStrStart = block_end(list);
    list->pszEmpty = block_end(list) - 1;
    *list->pszEmpty = '\0';
}

PKLIBSZLIST new_list(int size, int line) {
    if (size < KLIB_SZLIST_MIN_SIZE) size = KLIB_SZLIST_MIN_SIZE;
    auto *list = static_cast<PKLIBSZLIST>(kova::xcalloc(1, static_cast<size_t>(size)));
    if (list == nullptr) {
        kova::raise(ERR_OUT_OF_MEMORY, line);
        return nullptr;
    }
    init_block(list, size);
    return list;
}

char *store_text(KLIBSZLIST *list, const char *text, size_t len) {
    list->pszStrStart -= len;
    memcpy(list->pszStrStart, text, len);
    list->cbFree -= static_cast<int>(len);
    return list->pszStrStart;
}

namespace {
size_t live_text_bytes(const KLIBSZLIST *list) {
    size_t bytes = 0;
    for (int i = 0; i < list->nItem; ++i) {
        if (!is_empty_item(list->pszItem[i])) bytes += strlen(list->pszItem[i]) + 1;
    }
    return bytes;
}
}  // namespace

bool reserve(PKLIBSZLIST *pp, size_t needed, int line) {
    KLIBSZLIST *old = *pp;
    if (old->cbFree >= 0 && static_cast<size_t>(old->cbFree) >= needed) return true;

    // Doubling until the compacted contents leave the room needed gives the same size as
    // growing step by step, with one allocation and one copy.
    const size_t fixed = static_cast<size_t>(kHeaderSize) +
                         static_cast<size_t>(kSlotSize) * static_cast<size_t>(old->nItem) +
                         live_text_bytes(old);
    size_t size = static_cast<size_t>(old->cbSize);
    do {
        size *= 2;
        if (size > INT_MAX) {
            kova::raise(ERR_OUT_OF_MEMORY, line);
            return false;
        }
    } while (size < fixed || size - fixed < needed);

    auto *grown = static_cast<PKLIBSZLIST>(kova::xcalloc(1, size));
    if (grown == nullptr) {
        kova::raise(ERR_OUT_OF_MEMORY, line);
        return false;
    }
    init_block(grown, static_cast<int>(size));
    grown->nSortMode = old->nSortMode;
    grown->nItem = old->nItem;
    grown->cbFree -= kSlotSize * old->nItem;
    for (int i = 0; i < old->nItem; ++i) {
        const char *text = old->pszItem[i];
        grown->pszItem[i] =
            is_empty_item(text) ? grown->pszEmpty : store_text(grown, text, strlen(text) + 1);
    }
    free(old);
    *pp = grown;
    return true;
}

void drop_empty_items(KLIBSZLIST *list) {
    int kept = 0;
    for (int i = 0; i < list->nItem; ++i) {
        if (!is_empty_item(list->pszItem[i])) list->pszItem[kept++] = list->pszItem[i];
    }
    list->cbFree += kSlotSize * (list->nItem - kept);
    list->nItem = kept;
}

namespace {
int compare_bytes(const void *a, const void *b) {
    return strcmp(*static_cast<char *const *>(a), *static_cast<char *const *>(b));
}

// qsort needs a total order: a text the case-insensitive comparison cannot convert is ordered
// by its bytes instead.
int compare_case(const void *a, const void *b) {
    const char *x = *static_cast<char *const *>(a);
    const char *y = *static_cast<char *const *>(b);
    const int order = KLIBUnicodeUTF8StrCaseCmp(x, y);
    return order == -2 ? strcmp(x, y) : order;
}
}  // namespace

void sort_items(KLIBSZLIST *list, int sort_mode) {
    if (list->nItem < 2) return;
    qsort(list->pszItem, static_cast<size_t>(list->nItem), sizeof(char *),
          sort_mode == KLIB_SZLIST_SORT_CASE ? compare_case : compare_bytes);
}

}  // namespace kova::list

namespace kova::list {

const char *survive_growth(const KLIBSZLIST *list, const char *text, size_t len, size_t needed,
                           UniqueMalloc<char> *copy, int line) {
    const char *begin = reinterpret_cast<const char *>(list);
    const bool inside = text >= begin && text < begin + list->cbSize;
    if (!inside || static_cast<size_t>(list->cbFree) >= needed) return text;
    copy->reset(static_cast<char *>(xmalloc(len)));
    if (!*copy) {
        kova::raise(ERR_OUT_OF_MEMORY, line);
        return nullptr;
    }
    memcpy(copy->get(), text, len);
    return copy->get();
}

}  // namespace kova::list
