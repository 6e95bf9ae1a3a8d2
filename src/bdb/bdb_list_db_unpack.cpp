#include <cstring>

#include "bdb/bdb_internal.h"
#include "core/alloc.h"

namespace lr = kova::bdb::list_record;

namespace {

uintptr_t offset_at(const unsigned char *block, size_t at) {
    uintptr_t offset;
    memcpy(&offset, block + at, sizeof offset);
    return offset;
}

int32_t int_at(const unsigned char *block, size_t at) {
    int32_t value;
    memcpy(&value, block + at, sizeof value);
    return value;
}

// A record read from a file is checked to the last offset before any pointer is made of it:
// the header agrees with the record's length, every offset lies in the string area or is the
// empty byte, and the block ends with a NUL, so every string ends inside it.
bool well_formed(const unsigned char *block, size_t size) {
    if (size <= lr::kItemsAt || block[size - 1] != '\0') return false;
    const int32_t count = int_at(block, offsetof(KLIBSZLIST, nItem));
    const int32_t sort_mode = int_at(block, offsetof(KLIBSZLIST, nSortMode));
    if (static_cast<size_t>(int_at(block, offsetof(KLIBSZLIST, cbSize))) != size || count < 0 ||
        static_cast<size_t>(count) > (size - 1 - lr::kItemsAt) / lr::kSlot ||
        (sort_mode != KLIB_SZLIST_UNSORTED && sort_mode != KLIB_SZLIST_SORT_BYTES &&
         sort_mode != KLIB_SZLIST_SORT_CASE)) {
        return false;
    }
    const size_t array_end = lr::kItemsAt + lr::kSlot * static_cast<size_t>(count);
    const uintptr_t strings = offset_at(block, lr::kStrStartAt);
    if (strings < array_end || strings > size || offset_at(block, lr::kEmptyAt) != size - 1 ||
        int_at(block, offsetof(KLIBSZLIST, cbFree)) != static_cast<int32_t>(strings - array_end)) {
        return false;
    }
    for (size_t at = lr::kItemsAt; at < array_end; at += lr::kSlot) {
        const uintptr_t item = offset_at(block, at);
        if (item != size - 1 && (item < strings || item >= size)) return false;
    }
    return true;
}

char *rebase(const unsigned char *packed, size_t at, KLIBSZLIST *list) {
    return reinterpret_cast<char *>(list) + offset_at(packed, at);
}

}  // namespace

PKLIBSZLIST KOVAListDBUnpack(const void *pPacked, int32_t cbSize) {
    if (pPacked == nullptr || cbSize <= 0) {
        kova::raise(ERR_BAD_PARAMETERS, lr::kLineBadArguments);
        return nullptr;
    }
    const auto *packed = static_cast<const unsigned char *>(pPacked);
    const auto size = static_cast<size_t>(cbSize);
    if (!well_formed(packed, size)) {
        kova::raise(ERR_FORMAT_ERROR);
        return nullptr;
    }
    auto *list = static_cast<PKLIBSZLIST>(kova::xmalloc(size));
    if (list == nullptr) {
        kova::raise(ERR_OUT_OF_MEMORY, lr::kLineOutOfMemory);
        return nullptr;
    }
    memcpy(list, packed, size);
    list->pszStrStart = rebase(packed, lr::kStrStartAt, list);
    list->pszEmpty = rebase(packed, lr::kEmptyAt, list);
    for (int i = 0; i < list->nItem; ++i) {
        list->pszItem[i] = rebase(packed, lr::kItemsAt + lr::kSlot * static_cast<size_t>(i), list);
    }
    return list;
}
