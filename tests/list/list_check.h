// Invariants of the string-list block and a comparison with a plain model.
#pragma once

#include <gtest/gtest.h>

#include <cstddef>
#include <cstring>
#include <string>
#include <vector>

#include "kovasdk/list.h"

namespace kova::test {

constexpr int kListHeader = static_cast<int>(offsetof(KLIBSZLIST, pszItem));
constexpr int kListSlot = static_cast<int>(sizeof(char *));

// free = size - header - slots - string area; every item inside the string area (or the empty
// byte); the empty item is the last byte and holds 0.
inline ::testing::AssertionResult ListInvariantsHold(const KLIBSZLIST *list) {
    const char *base = reinterpret_cast<const char *>(list);
    const char *end = base + list->cbSize;
    const char *items_end = reinterpret_cast<const char *>(&list->pszItem[list->nItem]);
    if (list->pszEmpty != end - 1 || *list->pszEmpty != '\0') {
        return ::testing::AssertionFailure() << "empty item is not a 0 at the last byte";
    }
    if (list->pszStrStart < items_end || list->pszStrStart > end) {
        return ::testing::AssertionFailure() << "string area overlaps the item array";
    }
    const long expected_free =
        list->cbSize - kListHeader - kListSlot * list->nItem - (end - list->pszStrStart);
    if (list->cbFree != expected_free || list->pszStrStart - items_end != list->cbFree) {
        return ::testing::AssertionFailure()
               << "free is " << list->cbFree << ", expected " << expected_free;
    }
    for (int i = 0; i < list->nItem; ++i) {
        const char *item = list->pszItem[i];
        if (item < list->pszStrStart || item >= end ||
            memchr(item, '\0', static_cast<size_t>(end - item)) == nullptr) {
            return ::testing::AssertionFailure() << "item " << i << " outside the string area";
        }
    }
    return ::testing::AssertionSuccess();
}

inline std::vector<std::string> ListItems(const KLIBSZLIST *list) {
    std::vector<std::string> items;
    for (int i = 0; i < list->nItem; ++i)
        items.emplace_back(list->pszItem[i]);
    return items;
}

// Builds a list from texts (null on failure).
inline PKLIBSZLIST MakeList(const std::vector<std::string> &items, int sort_mode = 0) {
    PKLIBSZLIST list = PslKLIBSzListAlloc(0);
    for (const auto &s : items) {
        if (list == nullptr || KLIBSzListPush(&list, s.c_str()) < 0) return nullptr;
    }
    if (sort_mode != 0 && list != nullptr) KLIBSzListSortItems(list, sort_mode);
    return list;
}

}  // namespace kova::test
