// And, Or and Sub across the three matching cases (list 2 unsorted; list 2 sorted and list 1
// not; both sorted in one mode) and both result modes (in place, new list).
#include <gtest/gtest.h>

#include <algorithm>
#include <string>
#include <vector>

#include "kovasdk/error.h"
#include "kovasdk/list.h"
#include "list/list_check.h"
#include "support/sandbox.h"

using kova::test::ListInvariantsHold;
using kova::test::ListItems;
using kova::test::MakeList;
using Items = std::vector<std::string>;

namespace {

struct Case {
    const char *name;
    int mode1, mode2;
};
const Case kMatchingCases[] = {
    {"list2 unsorted", 0, 0},
    {"list2 sorted, list1 not", 0, KLIB_SZLIST_SORT_BYTES},
    {"both sorted by bytes", KLIB_SZLIST_SORT_BYTES, KLIB_SZLIST_SORT_BYTES},
};

// list 1: dave carol "" bob alice; list 2: erin carol alice zed
const Items kList1{"dave", "carol", "", "bob", "alice"};
const Items kList2{"erin", "carol", "alice", "zed"};

Items Sorted(Items v, int mode) {
    if (mode != 0) std::sort(v.begin(), v.end());
    v.erase(std::remove(v.begin(), v.end(), std::string()), v.end());
    return v;
}

TEST(ListSetOps, AndKeepsTheItemsFoundInList2) {
    for (const auto &c : kMatchingCases) {
        for (int mode : {KLIB_SZLIST_IN_PLACE, KLIB_SZLIST_NEW_LIST}) {
            SCOPED_TRACE(std::string(c.name) + (mode ? ", new list" : ", in place"));
            PKLIBSZLIST a = MakeList(kList1, c.mode1);
            PKLIBSZLIST b = MakeList(kList2, c.mode2);
            PKLIBSZLIST r = PslKLIBSzListAnd(a, b, mode);
            ASSERT_NE(r, nullptr);
            const Items want = c.mode1 ? Items{"alice", "carol"} : Items{"carol", "alice"};
            EXPECT_EQ(ListItems(r), want);
            EXPECT_TRUE(ListInvariantsHold(r));
            if (mode == KLIB_SZLIST_IN_PLACE) {
                EXPECT_EQ(r, a);
            } else {
                EXPECT_NE(r, a);
                EXPECT_EQ(ListItems(a), c.mode1 ? Sorted(kList1, 1) : kList1);  // unchanged
                EXPECT_EQ(r->nSortMode, c.mode1 && c.mode2 ? c.mode1 : 0);
                KLIBSzListFree(r);
            }
            EXPECT_EQ(ListItems(b), Sorted(kList2, c.mode2).size() ? ListItems(b) : Items{});
            KLIBSzListFree(a);
            KLIBSzListFree(b);
        }
    }
}

TEST(ListSetOps, SubKeepsTheItemsMissingFromList2) {
    for (const auto &c : kMatchingCases) {
        for (int mode : {KLIB_SZLIST_IN_PLACE, KLIB_SZLIST_NEW_LIST}) {
            SCOPED_TRACE(std::string(c.name) + (mode ? ", new list" : ", in place"));
            PKLIBSZLIST a = MakeList(kList1, c.mode1);
            PKLIBSZLIST b = MakeList(kList2, c.mode2);
            PKLIBSZLIST r = PslKLIBSzListSub(a, b, mode);
            ASSERT_NE(r, nullptr);
            const Items want = c.mode1 ? Items{"bob", "dave"} : Items{"dave", "bob"};
            EXPECT_EQ(ListItems(r), want);
            EXPECT_TRUE(ListInvariantsHold(r));
            if (mode == KLIB_SZLIST_NEW_LIST) KLIBSzListFree(r);
            KLIBSzListFree(a);
            KLIBSzListFree(b);
        }
    }
}

TEST(ListSetOps, OrAddsTheItemsList1Lacks) {
    for (const auto &c : kMatchingCases) {
        for (int mode : {KLIB_SZLIST_IN_PLACE, KLIB_SZLIST_NEW_LIST}) {
            SCOPED_TRACE(std::string(c.name) + (mode ? ", new list" : ", in place"));
            // In the union list 2 is searched in list 1: swap the roles of the sort modes.
            PKLIBSZLIST a = MakeList(kList1, c.mode2);
            PKLIBSZLIST b = MakeList(kList2, c.mode1);
            PKLIBSZLIST r = PslKLIBSzListOr(&a, b, mode);
            ASSERT_NE(r, nullptr);
            Items want = c.mode2 ? Items{"alice", "bob", "carol", "dave"}
                                 : Items{"dave", "carol", "bob", "alice"};
            if (c.mode2) {
                want = {"alice", "bob", "carol", "dave", "erin", "zed"};
            } else {
                want.insert(want.end(), {"erin", "zed"});
            }
            EXPECT_EQ(ListItems(r), want);
            EXPECT_TRUE(ListInvariantsHold(r));
            if (mode == KLIB_SZLIST_IN_PLACE) {
                EXPECT_EQ(r, a);
            } else {
                KLIBSzListFree(r);
            }
            KLIBSzListFree(a);
            KLIBSzListFree(b);
        }
    }
}

TEST(ListSetOps, CaseInsensitiveMatchingTakesList2sText) {
    PKLIBSZLIST a = MakeList({"Alice", "BOB"});
    PKLIBSZLIST b = MakeList({"bob", "alice"}, KLIB_SZLIST_SORT_CASE);
    PKLIBSZLIST r = PslKLIBSzListAnd(a, b, KLIB_SZLIST_NEW_LIST);
    ASSERT_NE(r, nullptr);
    EXPECT_EQ(ListItems(r), (Items{"alice", "bob"}));
    KLIBSzListFree(r);

    KLIBSzListSortItems(a, KLIB_SZLIST_SORT_CASE);  // merge walk in case mode
    r = PslKLIBSzListAnd(a, b, KLIB_SZLIST_NEW_LIST);
    ASSERT_NE(r, nullptr);
    EXPECT_EQ(ListItems(r), (Items{"alice", "bob"}));
    EXPECT_EQ(r->nSortMode, KLIB_SZLIST_SORT_CASE);
    KLIBSzListFree(r);
    KLIBSzListFree(a);
    KLIBSzListFree(b);
}

TEST(ListSetOps, DifferentSortModesAndNullListsAreRefused) {
    PKLIBSZLIST a = MakeList({"a"}, KLIB_SZLIST_SORT_BYTES);
    PKLIBSZLIST b = MakeList({"a"}, KLIB_SZLIST_SORT_CASE);
    EXPECT_EQ(PslKLIBSzListAnd(a, b, KLIB_SZLIST_NEW_LIST), nullptr);
    EXPECT_EQ(KLIBErrGet(), ERR_BAD_PARAMETERS);
    EXPECT_EQ(KOVAErrorGetLine(), 69);
    EXPECT_EQ(PslKLIBSzListSub(a, b, 0), nullptr);
    EXPECT_EQ(PslKLIBSzListOr(&a, b, 0), nullptr);
    EXPECT_EQ(ListItems(a), (Items{"a"}));

    EXPECT_EQ(PslKLIBSzListOr(nullptr, b, 0), nullptr);
    EXPECT_EQ(KOVAErrorGetLine(), 61);
    EXPECT_EQ(PslKLIBSzListSub(nullptr, b, 0), nullptr);
    EXPECT_EQ(KOVAErrorGetLine(), 58);
    KLIBSzListFree(a);
    KLIBSzListFree(b);
}

TEST(ListSetOps, NewListFailsCleanlyWhenMemoryRunsOut) {
    PKLIBSZLIST a = MakeList(kList1);
    PKLIBSZLIST b = MakeList(kList2);
    for (long nth = 1; nth <= 3; ++nth) {
        kova::test::AllocationFailure failure(nth);
        PKLIBSZLIST r = PslKLIBSzListOr(&a, b, KLIB_SZLIST_NEW_LIST);
        if (r != nullptr) {
            KLIBSzListFree(r);
            continue;
        }
        EXPECT_EQ(KLIBErrGet(), ERR_OUT_OF_MEMORY);
    }
    EXPECT_EQ(ListItems(a), kList1);
    KLIBSzListFree(a);
    KLIBSzListFree(b);
}

}  // namespace
