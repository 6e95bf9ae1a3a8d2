// And, Or and Sub across the three matching cases (list 2 unsorted; list 2 sorted and list 1
// not; both sorted in one mode) and both result modes (in place, new list).
#include <gtest/gtest.h>

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

enum class Op { kAnd, kSub, kOr };

// list 1 holds an empty item, which every operation drops.
const Items kList1{"dave", "carol", "", "bob", "alice"};
const Items kList2{"erin", "carol", "alice", "zed"};

PKLIBSZLIST Apply(Op op, PKLIBSZLIST *a, const KLIBSZLIST *b, int mode) {
    switch (op) {
        case Op::kAnd:
            return PslKLIBSzListAnd(*a, b, mode);
        case Op::kSub:
            return PslKLIBSzListSub(*a, b, mode);
        case Op::kOr:
            return PslKLIBSzListOr(a, b, mode);
    }
    return nullptr;
}

TEST(ListSetOps, ThreeMatchingCasesInBothResultModes) {
    const struct {
        Op op;
        int mode1, mode2;  // sort modes of list 1 and list 2
        Items want;
    } cases[] = {
        {Op::kAnd, 0, 0, {"carol", "alice"}},
        {Op::kAnd, 0, 1, {"carol", "alice"}},
        {Op::kAnd, 1, 1, {"alice", "carol"}},
        {Op::kSub, 0, 0, {"dave", "bob"}},
        {Op::kSub, 0, 1, {"dave", "bob"}},
        {Op::kSub, 1, 1, {"bob", "dave"}},
        // The union looks list 2's items up in list 1 and adds those it lacks.
        {Op::kOr, 0, 0, {"dave", "carol", "bob", "alice", "erin", "zed"}},
        {Op::kOr, 1, 0, {"alice", "bob", "carol", "dave", "erin", "zed"}},
        {Op::kOr, 1, 1, {"alice", "bob", "carol", "dave", "erin", "zed"}},
    };
    for (const auto &c : cases) {
        for (int mode : {KLIB_SZLIST_IN_PLACE, KLIB_SZLIST_NEW_LIST}) {
            SCOPED_TRACE(::testing::Message() << "op " << static_cast<int>(c.op) << " modes "
                                              << c.mode1 << "/" << c.mode2 << " result " << mode);
            PKLIBSZLIST a = MakeList(kList1, c.mode1);
            PKLIBSZLIST b = MakeList(kList2, c.mode2);
            const Items a_before = ListItems(a), b_before = ListItems(b);
            PKLIBSZLIST r = Apply(c.op, &a, b, mode);
            ASSERT_NE(r, nullptr);
            EXPECT_EQ(ListItems(r), c.want);
            EXPECT_TRUE(ListInvariantsHold(r));
            EXPECT_EQ(ListItems(b), b_before);
            if (mode == KLIB_SZLIST_IN_PLACE) {
                EXPECT_EQ(r, a);
            } else {
                EXPECT_NE(r, a);
                EXPECT_EQ(ListItems(a), a_before);
                const bool merged = c.mode1 != 0 && c.mode1 == c.mode2;
                EXPECT_EQ(r->nSortMode, merged ? c.mode1 : 0);
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
    for (int pass = 0; pass < 2; ++pass) {  // binary search, then a merge walk
        PKLIBSZLIST r = PslKLIBSzListAnd(a, b, KLIB_SZLIST_NEW_LIST);
        ASSERT_NE(r, nullptr);
        EXPECT_EQ(ListItems(r), (Items{"alice", "bob"}));
        EXPECT_EQ(r->nSortMode, pass == 0 ? 0 : KLIB_SZLIST_SORT_CASE);
        KLIBSzListFree(r);
        KLIBSzListSortItems(a, KLIB_SZLIST_SORT_CASE);
    }
    KLIBSzListFree(a);
    KLIBSzListFree(b);
}

TEST(ListSetOps, RefusalsAndFailuresLeaveList1AsItWas) {
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

    a = MakeList(kList1);
    b = MakeList(kList2);
    for (long nth = 1; nth <= 3; ++nth) {
        kova::test::AllocationFailure failure(nth);
        PKLIBSZLIST r = PslKLIBSzListOr(&a, b, KLIB_SZLIST_NEW_LIST);
        if (r == nullptr) {
            EXPECT_EQ(KLIBErrGet(), ERR_OUT_OF_MEMORY);
        }
        KLIBSzListFree(r);
    }
    EXPECT_EQ(ListItems(a), kList1);
    KLIBSzListFree(a);
    KLIBSzListFree(b);
}

}  // namespace
