// The documented behaviours of the list block: layout, gaps, sorting, finding, growth.
#include <gtest/gtest.h>

#include <cstddef>
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

TEST(ListLayout, FieldsStandWhereTheRecordFormatPutsThem) {
    EXPECT_EQ(offsetof(KLIBSZLIST, cbSize), 0u);
    EXPECT_EQ(offsetof(KLIBSZLIST, nItem), 4u);
    EXPECT_EQ(offsetof(KLIBSZLIST, cbFree), 8u);
    EXPECT_EQ(offsetof(KLIBSZLIST, nSortMode), 12u);
    EXPECT_EQ(offsetof(KLIBSZLIST, pszStrStart), 16u);
    if (sizeof(void *) == 4) {
        // The appliance's own offsets.
        EXPECT_EQ(offsetof(KLIBSZLIST, pszEmpty), 20u);
        EXPECT_EQ(offsetof(KLIBSZLIST, pszItem), 24u);
    } else {
        EXPECT_EQ(offsetof(KLIBSZLIST, pszEmpty), 16u + sizeof(void *));
        EXPECT_EQ(offsetof(KLIBSZLIST, pszItem), 16u + 2 * sizeof(void *));
    }
}

TEST(ListAlloc, SizeIsAtLeast512AndAllButTheHeaderIsFree) {
    PKLIBSZLIST list = PslKLIBSzListAlloc(0);
    ASSERT_NE(list, nullptr);
    EXPECT_EQ(list->cbSize, 512);
    EXPECT_EQ(list->cbFree, 512 - kListHeader);
    if (sizeof(void *) == 4) {
        EXPECT_EQ(list->cbFree, 488);
    }
    EXPECT_EQ(list->nItem, 0);
    EXPECT_EQ(list->nSortMode, 0);
    EXPECT_TRUE(ListInvariantsHold(list));
    KLIBSzListFree(list);

    list = PslKLIBSzListAlloc(4000);
    ASSERT_NE(list, nullptr);
    EXPECT_EQ(list->cbSize, 4000);
    KLIBSzListFree(list);
    KLIBSzListFree(nullptr);
}

TEST(ListInsert, PastTheEndFillsTheGapWithEmptyItems) {
    PKLIBSZLIST list = PslKLIBSzListAlloc(0);
    ASSERT_EQ(KLIBSzListInsert(&list, 5, "six"), 5);
    ASSERT_EQ(list->nItem, 6);
    for (int i = 0; i < 5; ++i)
        EXPECT_EQ(list->pszItem[i], list->pszEmpty);
    // Only the text and six slots were used.
    EXPECT_EQ(list->cbFree, 512 - kListHeader - 6 * kListSlot - 4);
    EXPECT_TRUE(ListInvariantsHold(list));
    KLIBSzListFree(list);
}

TEST(ListInsert, FirstTextEndsAtTheLastByte) {
    PKLIBSZLIST list = PslKLIBSzListAlloc(0);
    ASSERT_EQ(KLIBSzListPush(&list, "abc"), 0);
    EXPECT_EQ(list->pszItem[0] + 3, list->pszEmpty);
    KLIBSzListFree(list);
}

TEST(ListInsert, BadArgumentsAreRefused) {
    PKLIBSZLIST list = PslKLIBSzListAlloc(0);
    EXPECT_EQ(KLIBSzListInsert(&list, -1, "x"), -1);
    EXPECT_EQ(KLIBErrGet(), ERR_BAD_PARAMETERS);
    EXPECT_EQ(KOVAErrorGetLine(), 45);
    EXPECT_EQ(KLIBSzListInsert(&list, 0, nullptr), -1);
    EXPECT_EQ(KLIBSzListInsert(nullptr, 0, "x"), -1);
    EXPECT_EQ(list->nItem, 0);
    KLIBSzListFree(list);
}

TEST(ListSorted, PushesGoToTheirPlace) {
    PKLIBSZLIST list = PslKLIBSzListAlloc(0);
    KLIBSzListSortItems(list, KLIB_SZLIST_SORT_BYTES);
    EXPECT_EQ(KLIBSzListPush(&list, "b"), 0);
    EXPECT_EQ(KLIBSzListPush(&list, "a"), 0);
    EXPECT_EQ(ListItems(list), (Items{"a", "b"}));
    EXPECT_EQ(KLIBSzListInsert(&list, 0, "c"), 2);  // the index is ignored
    KLIBSzListFree(list);
}

TEST(ListSort, DropsEmptyItemsAndSetsTheModeEvenWhenAlreadySorted) {
    PKLIBSZLIST list = MakeList({"b", "", "C", "a"});
    KLIBSzListInsert(&list, 6, "d");
    ASSERT_EQ(KLIBSzListSortItems(list, KLIB_SZLIST_SORT_CASE), 0);
    EXPECT_EQ(ListItems(list), (Items{"a", "b", "C", "d"}));
    EXPECT_TRUE(ListInvariantsHold(list));
    // Sorted by case already: flag 1 only changes the mode (kept as it is).
    ASSERT_EQ(KLIBSzListSortItems(list, KLIB_SZLIST_SORT_BYTES), 0);
    EXPECT_EQ(KLIBSzListSorted(list), KLIB_SZLIST_SORT_BYTES);
    EXPECT_EQ(ListItems(list), (Items{"a", "b", "C", "d"}));
    KLIBSzListFree(list);

    EXPECT_EQ(KLIBSzListSorted(nullptr), -1);
    EXPECT_EQ(KOVAErrorGetLine(), 26);
}

TEST(ListFind, EachFindRefusesTheOtherSortMode) {
    PKLIBSZLIST list = MakeList({"Bob", "alice"}, KLIB_SZLIST_SORT_CASE);
    EXPECT_EQ(KLIBSzListCaseFind(list, "BOB"), 1);
    EXPECT_EQ(KLIBSzListFind(list, "Bob"), -1);
    EXPECT_EQ(KLIBErrGet(), ERR_BAD_PARAMETERS);
    EXPECT_EQ(KOVAErrorGetLine(), 37);
    KLIBSzListFree(list);

    list = MakeList({"Bob", "alice"}, KLIB_SZLIST_SORT_BYTES);
    EXPECT_EQ(KLIBSzListFind(list, "alice"), 1);
    EXPECT_EQ(KLIBSzListCaseFind(list, "bob"), -1);
    EXPECT_EQ(KOVAErrorGetLine(), 46);
    KLIBSzListFree(list);
}

TEST(ListFind, UnsortedScanSkipsEmptyItemsAndTakesTheFirst) {
    PKLIBSZLIST list = MakeList({"x", "", "y", "x"});
    KLIBErrSet(0);
    EXPECT_EQ(KLIBSzListFind(list, "x"), 0);
    EXPECT_EQ(KLIBSzListFind(list, ""), -1);
    EXPECT_EQ(KLIBSzListFind(list, "z"), -1);
    EXPECT_EQ(KLIBErrGet(), 0u);  // absent is not an error
    EXPECT_EQ(KLIBSzListCaseFind(list, "Y"), 2);
    KLIBSzListFree(list);
}

TEST(ListFind, BinarySearchGivesTheComplementOfTheInsertionPoint) {
    PKLIBSZLIST list = MakeList({"b", "d", "f"}, KLIB_SZLIST_SORT_BYTES);
    EXPECT_EQ(KLIBISzListFind(list, "d", KLIB_SZLIST_SORT_BYTES), 1);
    EXPECT_EQ(KLIBISzListFind(list, "a", KLIB_SZLIST_SORT_BYTES), ~0);
    EXPECT_EQ(KLIBISzListFind(list, "e", KLIB_SZLIST_SORT_BYTES), ~2);
    EXPECT_EQ(KLIBISzListFind(list, "g", KLIB_SZLIST_SORT_BYTES), ~3);
    // A text that cannot be converted ends a case-insensitive search at once.
    EXPECT_EQ(KLIBISzListFind(list, "\xff", KLIB_SZLIST_SORT_CASE), ~0);
    KLIBSzListFree(list);
}

TEST(ListRemove, TextBytesAreNotReusedUntilTheBlockGrows) {
    PKLIBSZLIST list = MakeList({"first", "second"});
    const int free_before = list->cbFree;
    const char *removed = SzKLIBSzListRemove(list, 0);
    ASSERT_NE(removed, nullptr);
    EXPECT_STREQ(removed, "first");  // still readable inside the block
    EXPECT_EQ(list->cbFree, free_before + kListSlot);
    char *area = list->pszStrStart;
    KLIBSzListPush(&list, "third");
    EXPECT_EQ(list->pszStrStart, area - 6);
    EXPECT_EQ(SzKLIBSzListRemove(list, 5), nullptr);
    EXPECT_EQ(KOVAErrorGetLine(), 40);
    KLIBSzListFree(list);

    PKLIBSZLIST empty = PslKLIBSzListAlloc(0);
    EXPECT_EQ(SzKLIBSzListPop(empty), nullptr);
    EXPECT_EQ(SzKLIBSzListShift(empty), nullptr);
    EXPECT_EQ(SzKLIBSzListGet(empty, 0), nullptr);
    EXPECT_EQ(KOVAErrorGetLine(), 30);
    KLIBSzListFree(empty);
}

TEST(ListGrowth, DoublesAndCompactsRemovedText) {
    PKLIBSZLIST list = PslKLIBSzListAlloc(0);
    const std::string big(300, 'q');
    KLIBSzListPush(&list, big.c_str());
    SzKLIBSzListPop(list);
    KLIBSzListPush(&list, big.c_str());  // 600 bytes of text do not fit in 512
    EXPECT_EQ(list->cbSize, 1024);
    // The removed copy is gone after the rebuild.
    EXPECT_EQ(list->cbFree, 1024 - kListHeader - kListSlot - 301);
    EXPECT_TRUE(ListInvariantsHold(list));

    const std::string huge(5000, 'h');
    KLIBSzListPush(&list, huge.c_str());
    EXPECT_EQ(list->cbSize, 8192);  // doubled until it fits
    EXPECT_EQ(ListItems(list), (Items{big, huge}));
    KLIBSzListFree(list);
}

TEST(ListGrowth, AFailedAllocationKeepsTheOldListValid) {
    PKLIBSZLIST list = MakeList({"alpha", "beta", "gamma"});
    KLIBSzListInsert(&list, 5, "zeta");
    const Items before = ListItems(list);
    const std::string big(600, 'z');
    PKLIBSZLIST old = list;
    const int size = list->cbSize, free_bytes = list->cbFree;
    {
        kova::test::AllocationFailure failure(1);
        EXPECT_EQ(KLIBSzListPush(&list, big.c_str()), -1);
    }
    EXPECT_EQ(KLIBErrGet(), ERR_OUT_OF_MEMORY);
    EXPECT_EQ(KOVAErrorGetLine(), 72);
    {
        kova::test::AllocationFailure failure(1);
        EXPECT_EQ(KLIBSzListSet(&list, 0, big.c_str()), -1);
    }
    EXPECT_EQ(KLIBErrGet(), ERR_OUT_OF_MEMORY);
    EXPECT_EQ(list, old);
    EXPECT_EQ(list->cbSize, size);
    EXPECT_EQ(list->cbFree, free_bytes);
    EXPECT_EQ(ListItems(list), before);
    EXPECT_TRUE(ListInvariantsHold(list));
    EXPECT_EQ(KLIBSzListPush(&list, big.c_str()), 6);  // and it still grows afterwards
    KLIBSzListFree(list);
}

TEST(ListAlloc, AFailedAllocationIsReported) {
    kova::test::AllocationFailure failure(1);
    EXPECT_EQ(PslKLIBSzListAlloc(0), nullptr);
    EXPECT_EQ(KLIBErrGet(), ERR_OUT_OF_MEMORY);
    EXPECT_EQ(KOVAErrorGetLine(), 42);
}

TEST(ListSet, ReplacesInPlaceOrBelowTheStringArea) {
    PKLIBSZLIST list = MakeList({"carol", "alice"});
    const int free_before = list->cbFree;
    char *slot = list->pszItem[0];
    EXPECT_EQ(KLIBSzListSet(&list, 0, "bob"), 0);
    EXPECT_EQ(list->pszItem[0], slot);  // shorter: in place
    EXPECT_EQ(list->cbFree, free_before);
    EXPECT_EQ(KLIBSzListSet(&list, 0, "dorothea"), 0);
    EXPECT_EQ(list->cbFree, free_before - 9);
    EXPECT_EQ(ListItems(list), (Items{"dorothea", "alice"}));
    EXPECT_EQ(KLIBSzListSet(&list, 2, "x"), -1);
    EXPECT_EQ(KOVAErrorGetLine(), 50);
    EXPECT_EQ(KLIBSzListSet(&list, 0, nullptr), -1);
    EXPECT_EQ(KOVAErrorGetLine(), 46);

    // A sorted list is re-sorted and the new index returned.
    KLIBSzListSortItems(list, KLIB_SZLIST_SORT_BYTES);  // alice, dorothea
    EXPECT_EQ(KLIBSzListSet(&list, 0, "zed"), 1);
    EXPECT_EQ(ListItems(list), (Items{"dorothea", "zed"}));
    EXPECT_TRUE(ListInvariantsHold(list));
    KLIBSzListFree(list);
}

TEST(ListRemoveAll, EmptiesTheAreaAndKeepsTheMode) {
    PKLIBSZLIST list = MakeList({"b", "a"}, KLIB_SZLIST_SORT_BYTES);
    EXPECT_EQ(KLIBSzListRemoveAll(list), list);
    EXPECT_EQ(list->nItem, 0);
    EXPECT_EQ(list->cbFree, list->cbSize - kListHeader);
    EXPECT_EQ(list->nSortMode, KLIB_SZLIST_SORT_BYTES);
    EXPECT_TRUE(ListInvariantsHold(list));
    KLIBSzListFree(list);
}

TEST(ListDump, PrintsEveryItem) {
    PKLIBSZLIST list = MakeList({"a", "b"});
    const std::string out = kova::test::capture_stdout([&] { KLIBISzListDump(list); });
    EXPECT_NE(out.find("count=2"), std::string::npos);
    EXPECT_NE(out.find("[1] \"b\""), std::string::npos);
    KLIBSzListFree(list);
}

}  // namespace
