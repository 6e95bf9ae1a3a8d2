// The documented behaviours of the list block: layout, gaps, sorting, finding, growth, and the
// lines its refusals are raised at.
#include <gtest/gtest.h>

#include <cstddef>
#include <functional>
#include <string>
#include <vector>

#include "kovasdk/error.h"
#include "kovasdk/list.h"
#include "list/list_check.h"
#include "support/sandbox.h"

using kova::test::kListHeader;
using kova::test::kListSlot;
using kova::test::ListInvariantsHold;
using kova::test::ListItems;
using kova::test::MakeList;
using Items = std::vector<std::string>;

namespace {

// The record format's offsets: 24-byte header and 4-byte slots on the 32-bit appliance, derived
// from the pointer width elsewhere.
TEST(ListLayout, HeaderOffsetsAndTheFirstBlock) {
    const size_t ptr = sizeof(void *);
    EXPECT_EQ(offsetof(KLIBSZLIST, nItem), 4u);
    EXPECT_EQ(offsetof(KLIBSZLIST, cbFree), 8u);
    EXPECT_EQ(offsetof(KLIBSZLIST, nSortMode), 12u);
    EXPECT_EQ(offsetof(KLIBSZLIST, pszStrStart), 16u);
    EXPECT_EQ(offsetof(KLIBSZLIST, pszEmpty), 16u + ptr);
    EXPECT_EQ(offsetof(KLIBSZLIST, pszItem), 16u + 2 * ptr);

    PKLIBSZLIST list = PslKLIBSzListAlloc(0);
    ASSERT_NE(list, nullptr);
    EXPECT_EQ(list->cbSize, 512);
    EXPECT_EQ(list->cbFree, ptr == 4 ? 488 : 512 - kListHeader);
    EXPECT_TRUE(ListInvariantsHold(list));
    ASSERT_EQ(KLIBSzListPush(&list, "abc"), 0);
    EXPECT_EQ(list->pszItem[0] + 3, list->pszEmpty);  // the first text ends at the last byte
    KLIBSzListFree(list);

    list = PslKLIBSzListAlloc(4000);
    EXPECT_EQ(list->cbSize, 4000);
    KLIBSzListFree(list);
}

TEST(ListInsert, PastTheEndFillsTheGapWithEmptyItems) {
    PKLIBSZLIST list = PslKLIBSzListAlloc(0);
    ASSERT_EQ(KLIBSzListInsert(&list, 5, "six"), 5);
    ASSERT_EQ(list->nItem, 6);
    for (int i = 0; i < 5; ++i)
        EXPECT_EQ(list->pszItem[i], list->pszEmpty);
    EXPECT_EQ(list->cbFree, 512 - kListHeader - 6 * kListSlot - 4);  // one text, six slots
    KLIBSzListFree(list);
}

TEST(ListSort, SortedListsPlaceInsertsAndKeepTheirModeOnResort) {
    PKLIBSZLIST list = PslKLIBSzListAlloc(0);
    KLIBSzListSortItems(list, KLIB_SZLIST_SORT_BYTES);
    EXPECT_EQ(KLIBSzListPush(&list, "b"), 0);
    EXPECT_EQ(KLIBSzListPush(&list, "a"), 0);
    EXPECT_EQ(KLIBSzListInsert(&list, 0, "c"), 2);  // the index is ignored
    EXPECT_EQ(ListItems(list), (Items{"a", "b", "c"}));
    KLIBSzListFree(list);

    list = MakeList({"b", "", "C", "a"});
    ASSERT_EQ(KLIBSzListSortItems(list, KLIB_SZLIST_SORT_CASE), 0);
    EXPECT_EQ(ListItems(list), (Items{"a", "b", "C"}));  // empty items dropped
    EXPECT_TRUE(ListInvariantsHold(list));
    // Already sorted: flag 1 only changes the mode (kept as it is).
    ASSERT_EQ(KLIBSzListSortItems(list, KLIB_SZLIST_SORT_BYTES), 0);
    EXPECT_EQ(KLIBSzListSorted(list), KLIB_SZLIST_SORT_BYTES);
    EXPECT_EQ(ListItems(list), (Items{"a", "b", "C"}));
    KLIBSzListFree(list);
}

TEST(ListFind, ScanBinarySearchAndTheInsertionPoint) {
    PKLIBSZLIST list = MakeList({"x", "", "y", "x"});
    KLIBErrSet(0);
    EXPECT_EQ(KLIBSzListFind(list, "x"), 0);  // the first one
    EXPECT_EQ(KLIBSzListFind(list, ""), -1);  // empty items are skipped
    EXPECT_EQ(KLIBSzListFind(list, "z"), -1);
    EXPECT_EQ(KLIBErrGet(), 0u);  // absent is not an error
    EXPECT_EQ(KLIBSzListCaseFind(list, "Y"), 2);
    KLIBSzListFree(list);

    list = MakeList({"b", "d", "f"}, KLIB_SZLIST_SORT_BYTES);
    EXPECT_EQ(KLIBISzListFind(list, "d", KLIB_SZLIST_SORT_BYTES), 1);
    EXPECT_EQ(KLIBISzListFind(list, "a", KLIB_SZLIST_SORT_BYTES), ~0);
    EXPECT_EQ(KLIBISzListFind(list, "e", KLIB_SZLIST_SORT_BYTES), ~2);
    EXPECT_EQ(KLIBISzListFind(list, "g", KLIB_SZLIST_SORT_BYTES), ~3);
    // A text that cannot be converted ends a case-insensitive search at once.
    EXPECT_EQ(KLIBISzListFind(list, "\xff", KLIB_SZLIST_SORT_CASE), ~0);
    KLIBSzListFree(list);
}

TEST(ListRemove, TextStaysUntilTheBlockGrowsAndRemoveAllEmptiesIt) {
    PKLIBSZLIST list = MakeList({"first", "second"}, KLIB_SZLIST_SORT_BYTES);
    const int free_before = list->cbFree;
    const char *removed = SzKLIBSzListRemove(list, 0);
    ASSERT_NE(removed, nullptr);
    EXPECT_STREQ(removed, "first");  // still readable inside the block
    EXPECT_EQ(list->cbFree, free_before + kListSlot);
    char *area = list->pszStrStart;
    KLIBSzListPush(&list, "third");
    EXPECT_EQ(list->pszStrStart, area - 6);  // not reusing the removed bytes

    EXPECT_EQ(KLIBSzListRemoveAll(list), list);
    EXPECT_EQ(list->nItem, 0);
    EXPECT_EQ(list->cbFree, list->cbSize - kListHeader);
    EXPECT_EQ(list->nSortMode, KLIB_SZLIST_SORT_BYTES);
    EXPECT_TRUE(ListInvariantsHold(list));
    KLIBSzListFree(list);
}

TEST(ListGrowth, DoublesAndCompactsRemovedText) {
    PKLIBSZLIST list = PslKLIBSzListAlloc(0);
    const std::string big(300, 'q'), huge(5000, 'h');
    KLIBSzListPush(&list, big.c_str());
    SzKLIBSzListPop(list);
    KLIBSzListPush(&list, big.c_str());  // 600 bytes of text do not fit in 512
    EXPECT_EQ(list->cbSize, 1024);
    EXPECT_EQ(list->cbFree, 1024 - kListHeader - kListSlot - 301);  // the removed copy is gone
    KLIBSzListPush(&list, huge.c_str());
    EXPECT_EQ(list->cbSize, 8192);  // doubled until it fits
    EXPECT_EQ(ListItems(list), (Items{big, huge}));
    EXPECT_TRUE(ListInvariantsHold(list));
    KLIBSzListFree(list);
}

TEST(ListGrowth, AFailedAllocationKeepsTheOldListValid) {
    PKLIBSZLIST list = MakeList({"alpha", "beta", "gamma"});
    KLIBSzListInsert(&list, 5, "zeta");
    const Items before = ListItems(list);
    const PKLIBSZLIST old = list;
    const int size = list->cbSize, free_bytes = list->cbFree;
    const std::string big(600, 'z');
    const std::function<int()> growers[] = {
        [&] { return KLIBSzListPush(&list, big.c_str()); },
        [&] { return KLIBSzListSet(&list, 0, big.c_str()); },
    };
    for (const auto &grow : growers) {
        kova::test::AllocationFailure failure(1);
        EXPECT_EQ(grow(), -1);
        EXPECT_EQ(KLIBErrGet(), ERR_OUT_OF_MEMORY);
        EXPECT_EQ(list, old);
        EXPECT_EQ(list->cbSize, size);
        EXPECT_EQ(list->cbFree, free_bytes);
        EXPECT_EQ(ListItems(list), before);
    }
    EXPECT_EQ(KLIBSzListPush(&list, big.c_str()), 6);  // and it still grows afterwards
    KLIBSzListFree(list);
}

TEST(ListSet, ReplacesInPlaceOrBelowTheStringAreaAndResorts) {
    PKLIBSZLIST list = MakeList({"carol", "alice"});
    const int free_before = list->cbFree;
    char *slot = list->pszItem[0];
    EXPECT_EQ(KLIBSzListSet(&list, 0, "bob"), 0);
    EXPECT_EQ(list->pszItem[0], slot);  // shorter: in place
    EXPECT_EQ(list->cbFree, free_before);
    EXPECT_EQ(KLIBSzListSet(&list, 0, "dorothea"), 0);
    EXPECT_EQ(list->cbFree, free_before - 9);
    KLIBSzListSortItems(list, KLIB_SZLIST_SORT_BYTES);  // alice, dorothea
    EXPECT_EQ(KLIBSzListSet(&list, 0, "zed"), 1);
    EXPECT_EQ(ListItems(list), (Items{"dorothea", "zed"}));
    EXPECT_TRUE(ListInvariantsHold(list));
    KLIBSzListFree(list);
}

// A text taken from the list itself survives the growth it causes (the old block is freed),
// and an item set to a part of itself is moved, not copied over itself.
TEST(ListSelf, ItemsOfTheListItselfAsTheNewText) {
    const std::string first(300, 'a');
    PKLIBSZLIST list = MakeList({first.c_str()});
    Items expected{first};
    while (list->cbFree >= static_cast<int>(first.size()) + 1 + kListSlot) {
        ASSERT_GE(KLIBSzListPush(&list, list->pszItem[0]), 0);
        expected.push_back(first);
    }
    ASSERT_GE(KLIBSzListPush(&list, list->pszItem[0]), 0);  // this one grows the block
    expected.push_back(first);
    ASSERT_EQ(KLIBSzListInsert(&list, 0, list->pszItem[1]), 0);
    expected.insert(expected.begin(), first);
    EXPECT_EQ(ListItems(list), expected);

    PKLIBSZLIST small = MakeList({"abcdef", "x"});
    ASSERT_EQ(KLIBSzListSet(&small, 0, small->pszItem[0] + 2), 0);  // overlapping: "cdef"
    while (small->cbFree > 8)
        ASSERT_GE(KLIBSzListPush(&small, "fill"), 0);
    ASSERT_EQ(KLIBSzListSet(&small, 1, small->pszItem[2]), 1);  // longer, grows: "fill"
    EXPECT_EQ(ListItems(small).front(), "cdef");
    EXPECT_EQ(ListItems(small)[1], "fill");
    KLIBSzListSortItems(small, KLIB_SZLIST_SORT_BYTES);
    EXPECT_EQ(KLIBSzListSet(&small, 0, small->pszItem[0] + 1), 0);  // "def", still first
    EXPECT_TRUE(ListInvariantsHold(list) && ListInvariantsHold(small));
    KLIBSzListFree(list);
    KLIBSzListFree(small);
}

// Each refusal raises ERR_BAD_PARAMETERS (or ERR_OUT_OF_MEMORY) at its defined line.
TEST(ListErrors, RefusalsRaiseTheirDefinedLines) {
    PKLIBSZLIST list = MakeList({"a"});
    PKLIBSZLIST bytes = MakeList({"a"}, KLIB_SZLIST_SORT_BYTES);
    PKLIBSZLIST cased = MakeList({"a"}, KLIB_SZLIST_SORT_CASE);
    PKLIBSZLIST empty = PslKLIBSzListAlloc(0);
    const struct {
        const char *what;
        std::function<bool()> call;  // true when the call reported failure
        int line;
    } cases[] = {
        {"insert at -1", [&] { return KLIBSzListInsert(&list, -1, "x") == -1; }, 45},
        {"insert null", [&] { return KLIBSzListInsert(&list, 0, nullptr) == -1; }, 45},
        {"get past end", [&] { return SzKLIBSzListGet(list, 1) == nullptr; }, 30},
        {"remove past end", [&] { return SzKLIBSzListRemove(list, 1) == nullptr; }, 40},
        {"pop empty", [&] { return SzKLIBSzListPop(empty) == nullptr; }, 40},
        {"shift empty", [&] { return SzKLIBSzListShift(empty) == nullptr; }, 40},
        {"sorted null", [&] { return KLIBSzListSorted(nullptr) == -1; }, 26},
        {"find in case list", [&] { return KLIBSzListFind(cased, "a") == -1; }, 37},
        {"case-find in byte list", [&] { return KLIBSzListCaseFind(bytes, "a") == -1; }, 46},
        {"set null", [&] { return KLIBSzListSet(&list, 0, nullptr) == -1; }, 46},
        {"set past end", [&] { return KLIBSzListSet(&list, 1, "x") == -1; }, 50},
    };
    for (const auto &c : cases) {
        KLIBErrSet(0);
        EXPECT_TRUE(c.call()) << c.what;
        EXPECT_EQ(KLIBErrGet(), ERR_BAD_PARAMETERS) << c.what;
        EXPECT_EQ(KOVAErrorGetLine(), c.line) << c.what;
    }
    EXPECT_EQ(ListItems(list), (Items{"a"}));
    {
        kova::test::AllocationFailure failure(1);
        EXPECT_EQ(PslKLIBSzListAlloc(0), nullptr);
    }
    EXPECT_EQ(KLIBErrGet(), ERR_OUT_OF_MEMORY);
    EXPECT_EQ(KOVAErrorGetLine(), 42);
    for (PKLIBSZLIST l : {list, bytes, cased, empty})
        KLIBSzListFree(l);
}

}  // namespace
