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
    explicit Model(unsigned seed) : rng_(seed) { list_ = PslKLIBSzListAlloc(0); }
    ~Model() { KLIBSzListFree(list_); }

    void step() {
        // A case-sorted list orders case-equal texts its own way: follow it.
        if (mode_ == KLIB_SZLIST_SORT_CASE) items_ = ListItems(list_);
        switch (pick(12)) {
            case 0:
                insert_anywhere();
                break;
            case 1:
            case 2:
                push();
                break;
            case 3:
                unshift();
                break;
            case 4:
                remove();
                break;
            case 5:
                shift_or_pop();
                break;
            case 6:
                set();
                break;
            case 7:
                find();
                break;
            case 8:
                case_find();
                break;
            case 9:
                if (pick(30) == 0) sort();
                break;
            case 10:
                if (pick(60) == 0) unsort();
                break;
            case 11:
                if (pick(80) == 0) remove_all();
                break;
        }
        ASSERT_TRUE(ListInvariantsHold(list_));
        if (mode_ == KLIB_SZLIST_SORT_CASE) {
            // Case-equal texts may stand in any order: compare as sorted multisets.
            auto got = ListItems(list_), want = items_;
            std::sort(got.begin(), got.end());
            std::sort(want.begin(), want.end());
            ASSERT_EQ(got, want);
            for (int i = 1; i < list_->nItem; ++i) {
                ASSERT_LE(KLIBUnicodeUTF8StrCaseCmp(list_->pszItem[i - 1], list_->pszItem[i]), 0);
            }
        } else {
            ASSERT_EQ(ListItems(list_), items_);
            if (mode_ == KLIB_SZLIST_SORT_BYTES) {
                ASSERT_TRUE(std::is_sorted(items_.begin(), items_.end()));
            }
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

    void insert_at(int idx, const std::string &s, int returned) {
        // A sorted list ignores the index; the result must keep the order (checked after the step).
        if (mode_ != KLIB_SZLIST_UNSORTED) idx = returned;
        ASSERT_EQ(returned, idx);
        if (idx > static_cast<int>(items_.size())) items_.resize(static_cast<size_t>(idx));
        items_.insert(items_.begin() + idx, s);
        ASSERT_EQ(std::string(list_->pszItem[returned]), s);
    }

    void insert_anywhere() {
        const std::string s = text();
        const int idx = pick(static_cast<int>(items_.size()) + 4);
        insert_at(idx, s, KLIBSzListInsert(&list_, idx, s.c_str()));
    }
    void push() {
        const std::string s = text();
        insert_at(static_cast<int>(items_.size()), s, KLIBSzListPush(&list_, s.c_str()));
    }
    void unshift() {
        const std::string s = text();
        insert_at(0, s, KLIBSzListUnshift(&list_, s.c_str()));
    }

    void remove() {
        const int idx = pick(static_cast<int>(items_.size()) + 2) - 1;
        const char *got = SzKLIBSzListRemove(list_, idx);
        if (idx < 0 || idx >= static_cast<int>(items_.size())) {
            ASSERT_EQ(got, nullptr);
            ASSERT_EQ(KLIBErrGet(), ERR_BAD_PARAMETERS);
            return;
        }
        ASSERT_NE(got, nullptr);
        ASSERT_EQ(std::string(got), items_[static_cast<size_t>(idx)]);
        items_.erase(items_.begin() + idx);
    }

    void shift_or_pop() {
        const bool shift = pick(2) == 0;
        const char *got = shift ? SzKLIBSzListShift(list_) : SzKLIBSzListPop(list_);
        if (items_.empty()) {
            ASSERT_EQ(got, nullptr);
            return;
        }
        ASSERT_NE(got, nullptr);
        const size_t idx = shift ? 0 : items_.size() - 1;
        ASSERT_EQ(std::string(got), items_[idx]);
        items_.erase(items_.begin() + static_cast<long>(idx));
    }

    void set() {
        if (items_.empty()) {
            ASSERT_EQ(KLIBSzListSet(&list_, 0, "x"), -1);
            return;
        }
        const int idx = pick(static_cast<int>(items_.size()));
        const std::string s = text();
        const int got = KLIBSzListSet(&list_, idx, s.c_str());
        items_[static_cast<size_t>(idx)] = s;
        if (mode_ == KLIB_SZLIST_UNSORTED) {
            ASSERT_EQ(got, idx);
            return;
        }
        resort_model();
        ASSERT_GE(got, 0);
        ASSERT_EQ(KLIBUnicodeUTF8StrCaseCmp(list_->pszItem[got], s.c_str()) == 0 ||
                      s == list_->pszItem[got],
                  true);
    }

    void find() {
        const std::string s = text();
        const int got = KLIBSzListFind(list_, s.c_str());
        if (mode_ == KLIB_SZLIST_SORT_CASE) {
            ASSERT_EQ(got, -1);
            ASSERT_EQ(KLIBErrGet(), ERR_BAD_PARAMETERS);
            return;
        }
        const bool present = std::find(items_.begin(), items_.end(), s) != items_.end();
        if (mode_ == KLIB_SZLIST_UNSORTED) {
            // First equal non-empty item.
            int want = -1;
            for (size_t i = 0; i < items_.size() && want < 0 && !s.empty(); ++i) {
                if (items_[i] == s) want = static_cast<int>(i);
            }
            ASSERT_EQ(got, want);
        } else {
            ASSERT_EQ(got >= 0, present);
            if (got >= 0) {
                ASSERT_EQ(items_[static_cast<size_t>(got)], s);
            }
        }
    }

    void case_find() {
        const std::string s = text();
        const int got = KLIBSzListCaseFind(list_, s.c_str());
        if (mode_ == KLIB_SZLIST_SORT_BYTES) {
            ASSERT_EQ(got, -1);
            ASSERT_EQ(KLIBErrGet(), ERR_BAD_PARAMETERS);
            return;
        }
        auto equal = [&](const std::string &item) {
            return KLIBUnicodeUTF8StrCaseCmp(item.c_str(), s.c_str()) == 0;
        };
        if (mode_ == KLIB_SZLIST_UNSORTED) {
            int want = -1;
            for (size_t i = 0; i < items_.size() && want < 0 && !s.empty(); ++i) {
                if (equal(items_[i])) want = static_cast<int>(i);
            }
            ASSERT_EQ(got, want);
        } else {
            ASSERT_EQ(got >= 0, std::any_of(items_.begin(), items_.end(), equal));
            if (got >= 0) {
                ASSERT_TRUE(equal(list_->pszItem[got]));
            }
        }
    }

    void resort_model() {
        if (mode_ == KLIB_SZLIST_SORT_BYTES) std::sort(items_.begin(), items_.end());
    }

    void sort() {
        const int flags = pick(2) == 0 ? KLIB_SZLIST_SORT_BYTES : KLIB_SZLIST_SORT_CASE;
        ASSERT_EQ(KLIBSzListSortItems(list_, flags), 0);
        if (mode_ == KLIB_SZLIST_UNSORTED) {
            items_.erase(std::remove(items_.begin(), items_.end(), std::string()), items_.end());
            mode_ = flags;
            resort_model();
        } else if (mode_ != flags) {
            // An already sorted list only changes its mode. Keep the model usable: go back to
            // unsorted in both.
            ASSERT_EQ(KLIBSzListSorted(list_), flags);
            KLIBSzListSortItems(list_, KLIB_SZLIST_UNSORTED);
            mode_ = KLIB_SZLIST_UNSORTED;
            items_ = ListItems(list_);
        }
        ASSERT_EQ(KLIBSzListSorted(list_), mode_);
    }

    void unsort() {
        KLIBSzListSortItems(list_, KLIB_SZLIST_UNSORTED);
        mode_ = KLIB_SZLIST_UNSORTED;
        items_ = ListItems(list_);  // a case-sorted list's order is the implementation's
    }

    void remove_all() {
        ASSERT_EQ(KLIBSzListRemoveAll(list_), list_);
        ASSERT_EQ(list_->cbFree, list_->cbSize - kova::test::kListHeader);
        items_.clear();
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
