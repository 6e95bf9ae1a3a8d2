// The list against a std::vector model over thousands of random operations, checking the block's
// invariants after every step.
#include <gtest/gtest.h>

#include <algorithm>
#include <random>
#include <string>
#include <vector>

#include "kovasdk/error.h"
#include "kovasdk/list.h"
#include "kovasdk/unicode.h"
#include "list/list_check.h"

using kova::test::ListInvariantsHold;
using kova::test::ListItems;

namespace {

class Model {
  public:
    explicit Model(unsigned seed) : rng_(seed), list_(PslKLIBSzListAlloc(0)) {}
    ~Model() { KLIBSzListFree(list_); }

    void step() {
        // A case-sorted list orders case-equal texts its own way: follow it.
        if (mode_ == KLIB_SZLIST_SORT_CASE) items_ = ListItems(list_);
        const int count = static_cast<int>(items_.size());
        const std::string s = text();
        switch (pick(11)) {
            case 0: {
                const int idx = pick(count + 4);  // also past the end
                insert(idx, s, KLIBSzListInsert(&list_, idx, s.c_str()));
                break;
            }
            case 1:
                insert(count, s, KLIBSzListPush(&list_, s.c_str()));
                break;
            case 2:
                insert(0, s, KLIBSzListUnshift(&list_, s.c_str()));
                break;
            case 3:
                remove(pick(count + 2) - 1);
                break;
            case 4:
                remove(pick(2) == 0 ? 0 : count - 1, pick(2) == 0);
                break;
            case 5:
                set(s);
                break;
            case 6:
                find(s, KLIB_SZLIST_SORT_BYTES);
                break;
            case 7:
                find(s, KLIB_SZLIST_SORT_CASE);
                break;
            case 8:
                if (pick(30) == 0)
                    sort(pick(2) == 0 ? KLIB_SZLIST_SORT_BYTES : KLIB_SZLIST_SORT_CASE);
                break;
            case 9:
                if (pick(60) == 0) sort(KLIB_SZLIST_UNSORTED);
                break;
            case 10:
                if (pick(80) == 0) {
                    ASSERT_EQ(KLIBSzListRemoveAll(list_), list_);
                    items_.clear();
                }
                break;
        }
        ASSERT_TRUE(ListInvariantsHold(list_));
        auto got = ListItems(list_), want = items_;
        if (mode_ == KLIB_SZLIST_SORT_CASE) {  // compare as multisets, check the order
            for (size_t i = 1; i < got.size(); ++i) {
                ASSERT_LE(KLIBUnicodeUTF8StrCaseCmp(got[i - 1].c_str(), got[i].c_str()), 0);
            }
            std::sort(got.begin(), got.end());
            std::sort(want.begin(), want.end());
        }
        ASSERT_EQ(got, want);
        if (mode_ == KLIB_SZLIST_SORT_BYTES) {
            ASSERT_TRUE(std::is_sorted(got.begin(), got.end()));
        }
    }

  private:
    int pick(int n) { return static_cast<int>(rng_() % static_cast<unsigned>(n)); }

    std::string text() {
        static const char *const kWords[] = {"",    "a",     "A",     "b",     "bob",
                                             "Bob", "carol", "Ärger", "ärger", "zeta"};
        if (pick(20) == 0) return std::string(static_cast<size_t>(100 + pick(700)), 'x');
        std::string s = kWords[pick(10)];
        if (pick(2) == 0) s += std::to_string(pick(50));
        return s;
    }

    bool equal(const std::string &a, const std::string &b, int mode) {
        return mode == KLIB_SZLIST_SORT_CASE ? KLIBUnicodeUTF8StrCaseCmp(a.c_str(), b.c_str()) == 0
                                             : a == b;
    }

    // A sorted list ignores the index: the order is checked after the step.
    void insert(int idx, const std::string &s, int returned) {
        if (mode_ != KLIB_SZLIST_UNSORTED) idx = returned;
        ASSERT_EQ(returned, idx);
        if (idx > static_cast<int>(items_.size())) items_.resize(static_cast<size_t>(idx));
        items_.insert(items_.begin() + idx, s);
        ASSERT_EQ(std::string(list_->pszItem[returned]), s);
    }

    void remove(int idx, bool shift_or_pop = false) {
        const int count = static_cast<int>(items_.size());
        const char *got = !shift_or_pop ? SzKLIBSzListRemove(list_, idx)
                          : idx == 0    ? SzKLIBSzListShift(list_)
                                        : SzKLIBSzListPop(list_);
        if (idx < 0 || idx >= count) {
            ASSERT_EQ(got, nullptr);
            ASSERT_EQ(KLIBErrGet(), ERR_BAD_PARAMETERS);
            return;
        }
        ASSERT_NE(got, nullptr);
        ASSERT_EQ(std::string(got), items_[static_cast<size_t>(idx)]);
        items_.erase(items_.begin() + idx);
    }

    void set(const std::string &s) {
        if (items_.empty()) {
            ASSERT_EQ(KLIBSzListSet(&list_, 0, s.c_str()), -1);
            return;
        }
        const int idx = pick(static_cast<int>(items_.size()));
        const int got = KLIBSzListSet(&list_, idx, s.c_str());
        items_[static_cast<size_t>(idx)] = s;
        if (mode_ == KLIB_SZLIST_SORT_BYTES) std::sort(items_.begin(), items_.end());
        if (mode_ == KLIB_SZLIST_UNSORTED) {
            ASSERT_EQ(got, idx);
        } else {
            ASSERT_GE(got, 0);
            ASSERT_TRUE(equal(list_->pszItem[got], s, mode_));
        }
    }

    // Find (bytes) and CaseFind: each refuses a list sorted the other way; an unsorted list
    // gives the first equal non-empty item; a sorted one any equal item.
    void find(const std::string &s, int how) {
        const int got = how == KLIB_SZLIST_SORT_BYTES ? KLIBSzListFind(list_, s.c_str())
                                                      : KLIBSzListCaseFind(list_, s.c_str());
        if (mode_ != KLIB_SZLIST_UNSORTED && mode_ != how) {
            ASSERT_EQ(got, -1);
            ASSERT_EQ(KLIBErrGet(), ERR_BAD_PARAMETERS);
            return;
        }
        auto match = [&](const std::string &item) {
            return (mode_ != KLIB_SZLIST_UNSORTED || !item.empty()) && equal(item, s, how);
        };
        const auto first = std::find_if(items_.begin(), items_.end(), match);
        if (mode_ == KLIB_SZLIST_UNSORTED) {
            ASSERT_EQ(got, first == items_.end() ? -1 : static_cast<int>(first - items_.begin()));
        } else {
            ASSERT_EQ(got >= 0, first != items_.end());
            if (got >= 0) {
                ASSERT_TRUE(equal(list_->pszItem[got], s, how));
            }
        }
    }

    void sort(int flags) {
        ASSERT_EQ(KLIBSzListSortItems(list_, flags), 0);
        if (mode_ == KLIB_SZLIST_UNSORTED && flags != KLIB_SZLIST_UNSORTED) {
            items_.erase(std::remove(items_.begin(), items_.end(), std::string()), items_.end());
            if (flags == KLIB_SZLIST_SORT_BYTES) std::sort(items_.begin(), items_.end());
            mode_ = flags;
        } else if (mode_ != flags) {
            // A sorted list only changes its mode; go back to unsorted to keep the model exact.
            ASSERT_EQ(KLIBSzListSorted(list_), flags);
            KLIBSzListSortItems(list_, KLIB_SZLIST_UNSORTED);
            mode_ = KLIB_SZLIST_UNSORTED;
            items_ = ListItems(list_);
        }
        ASSERT_EQ(KLIBSzListSorted(list_), mode_);
    }

    std::mt19937 rng_;
    PKLIBSZLIST list_;
    std::vector<std::string> items_;
    int mode_ = KLIB_SZLIST_UNSORTED;
};

TEST(ListModel, RandomOperationsMatchAVectorModel) {
    for (unsigned seed = 1; seed <= 8; ++seed) {
        Model model(seed);
        for (int i = 0; i < 2500; ++i) {
            ASSERT_NO_FATAL_FAILURE(model.step()) << "seed " << seed << " step " << i;
        }
    }
}

}  // namespace
