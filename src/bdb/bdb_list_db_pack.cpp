#include <cstring>

#include "bdb/bdb_internal.h"
#include "core/alloc.h"

namespace lr = kova::bdb::list_record;

namespace {

// Every pointer of the block lies inside it and the item array ends before the empty byte.
bool well_formed(const KLIBSZLIST *list) {
    const auto size = static_cast<size_t>(list->cbSize);
    if (list->cbSize <= 0 || list->nItem < 0 || size <= lr::kItemsAt ||
        static_cast<size_t>(list->nItem) > (size - 1 - lr::kItemsAt) / lr::kSlot) {
        return false;
    }
    const char *base = reinterpret_cast<const char *>(list);
    auto inside = [&](const char *p, bool end_allowed) {
        return p >= base && (p < base + size || (end_allowed && p == base + size));
    };
    if (!inside(list->pszStrStart, true) || !inside(list->pszEmpty, false)) return false;
    for (int i = 0; i < list->nItem; ++i) {
        if (!inside(list->pszItem[i], false)) return false;
    }
    return true;
}

void put_offset(unsigned char *block, size_t at, const char *pointer, const char *base) {
    const auto offset = static_cast<uintptr_t>(pointer - base);
    memcpy(block + at, &offset, sizeof offset);
}

}  // namespace

void *KOVAListDBPack(const KLIBSZLIST *pList, int32_t cbSize) {
    if (pList == nullptr || cbSize != pList->cbSize || !well_formed(pList)) {
        kova::raise(ERR_BAD_PARAMETERS, lr::kLineBadArguments);
        return nullptr;
    }
    auto *packed = static_cast<unsigned char *>(kova::xmalloc(static_cast<size_t>(cbSize)));
    if (packed == nullptr) {
        kova::raise(ERR_OUT_OF_MEMORY, lr::kLineOutOfMemory);
        return nullptr;
    }
    memcpy(packed, pList, static_cast<size_t>(cbSize));
    const char *base = reinterpret_cast<const char *>(pList);
    // Slots freed by removals still hold heap addresses: a record carries none.
    const size_t items_end = lr::kItemsAt + lr::kSlot * static_cast<size_t>(pList->nItem);
    memset(packed + items_end, 0, static_cast<size_t>(pList->pszStrStart - base) - items_end);
    put_offset(packed, lr::kStrStartAt, pList->pszStrStart, base);
    put_offset(packed, lr::kEmptyAt, pList->pszEmpty, base);
    for (int i = 0; i < pList->nItem; ++i) {
        put_offset(packed, lr::kItemsAt + lr::kSlot * static_cast<size_t>(i), pList->pszItem[i],
                   base);
    }
    return packed;
}
