// String lists stored as records: pack, unpack, and the records read back from a store.
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <random>
#include <string>
#include <vector>

#include "bdb/bdb_fixture.h"
#include "kovasdk/list.h"

namespace kova::test {
namespace {

std::vector<std::string> items_of(const KLIBSZLIST *list) {
    std::vector<std::string> items;
    for (int i = 0; i < list->nItem; ++i)
        items.emplace_back(SzKLIBSzListGet(list, i));
    return items;
}

// A list shaped by random pushes, inserts past the end (empty items) and removals.
PKLIBSZLIST random_list(std::mt19937 &rng, int operations) {
    PKLIBSZLIST list = PslKLIBSzListAlloc(0);
    for (int n = 0; n < operations; ++n) {
        const std::string text = std::to_string(rng()).substr(0, rng() % 12);
        if (const unsigned op = rng() % 10; op < 6 || list->nItem == 0) {
            EXPECT_GE(KLIBSzListPush(&list, text.c_str()), 0);
        } else if (op == 6) {
            EXPECT_GE(KLIBSzListInsert(&list, list->nItem + 2, text.c_str()), 0);
        } else {
            EXPECT_NE(SzKLIBSzListRemove(list, static_cast<int>(rng() % list->nItem)), nullptr);
        }
    }
    return list;
}

TEST(BdbListRecordTest, RandomListsSurvivePackAndUnpack) {
    std::mt19937 rng(20240611);
    for (int round = 0; round < 40; ++round) {
        PKLIBSZLIST list = random_list(rng, round == 0 ? 0 : 50 * round + 1000 * (round % 4));
        void *packed = KOVAListDBPack(list, list->cbSize);
        ASSERT_NE(packed, nullptr);
        // Every word below the string area (pointer fields, item slots, the free gap with the
        // slots that removals gave back) is an offset into the block or zero, never an address.
        const size_t area = static_cast<size_t>(list->pszStrStart - reinterpret_cast<char *>(list));
        for (size_t at = offsetof(KLIBSZLIST, pszStrStart); at + sizeof(uintptr_t) <= area;
             at += sizeof(uintptr_t)) {
            uintptr_t slot;
            memcpy(&slot, static_cast<char *>(packed) + at, sizeof slot);
            ASSERT_LE(slot, static_cast<uintptr_t>(list->cbSize)) << "a pointer at " << at;
        }
        PKLIBSZLIST back = KOVAListDBUnpack(packed, list->cbSize);
        ASSERT_NE(back, nullptr);
        EXPECT_NE(back, list);
        EXPECT_EQ(back->cbSize, list->cbSize);
        EXPECT_EQ(back->cbFree, list->cbFree);
        EXPECT_EQ(items_of(back), items_of(list));
        EXPECT_EQ(back->pszEmpty, reinterpret_cast<char *>(back) + back->cbSize - 1);
        EXPECT_EQ(*back->pszEmpty, '\0');
        // The unpacked list is a working list: it grows like any other.
        ASSERT_GE(KLIBSzListPush(&back, std::string(700, 'x').c_str()), 0);
        EXPECT_EQ(SzKLIBSzListGet(back, back->nItem - 1), std::string(700, 'x'));
        KLIBSzListFree(back);
        free(packed);
        KLIBSzListFree(list);
    }
}

TEST(BdbListRecordTest, BadArgumentsAndOutOfMemory) {
    PKLIBSZLIST list = PslKLIBSzListAlloc(0);
    ASSERT_GE(KLIBSzListPush(&list, "admin"), 0);
    void *packed = KOVAListDBPack(list, list->cbSize);
    ASSERT_NE(packed, nullptr);
    const auto refused_at = [](const void *result, uint32_t code, int line) {
        return result == nullptr && KLIBErrGet() == code && KOVAErrorGetLine() == line;
    };
    EXPECT_TRUE(refused_at(KOVAListDBPack(nullptr, 512), ERR_BAD_PARAMETERS, 39));
    EXPECT_TRUE(refused_at(KOVAListDBPack(list, list->cbSize - 1), ERR_BAD_PARAMETERS, 39));
    EXPECT_TRUE(refused_at(KOVAListDBUnpack(nullptr, 512), ERR_BAD_PARAMETERS, 39));
    // Damaged records in general are the fuzz target's; a truncated one is refused here.
    for (int32_t truncated : {list->cbSize - 1, 8})
        EXPECT_TRUE(KOVAListDBUnpack(packed, truncated) == nullptr &&
                    KLIBErrGet() == ERR_FORMAT_ERROR);
    for (int unpack = 0; unpack < 2; ++unpack) {
        AllocationFailure fail(1);
        EXPECT_TRUE(refused_at(unpack ? static_cast<void *>(KOVAListDBUnpack(packed, list->cbSize))
                                      : KOVAListDBPack(list, list->cbSize),
                               ERR_OUT_OF_MEMORY, 45));
    }
    free(packed);
    KLIBSzListFree(list);
}

TEST_F(BdbTest, ListDbSetStoresUnderUpperCasedReservedKey) {
    ASSERT_NE(open_store(KOVA_BDB_DUP), nullptr);
    PKLIBSZLIST list = PslKLIBSzListAlloc(0);
    for (const char *name : {"alice", "bob", "", "Émile"})
        ASSERT_GE(KLIBSzListPush(&list, name), 0);
    ASSERT_EQ(KOVAListDBSet(db_, "Admins-é", list), 0);
    ASSERT_EQ(KOVAListDBSet(db_, "Admins-é", list), 0);  // replaced, not duplicated

    // Upper-cased, bytes beyond ASCII as they are, and the key counts its NUL.
    const std::string value = get(std::string("#ADMINS-\xC3\xA9", 11));
    ASSERT_EQ(value.size(), static_cast<size_t>(list->cbSize));
    PKLIBSZLIST back = KOVAListDBUnpack(value.data(), list->cbSize);
    ASSERT_NE(back, nullptr);
    EXPECT_EQ(items_of(back), items_of(list));
    KLIBSzListFree(back);
    EXPECT_EQ(walk(KOVA_BDB_CURSOR_NEXT, 0).size(), 1u);

    LogCapture log;
    EXPECT_TRUE(KOVAListDBSet(nullptr, "x", list) == -1 && KOVAErrorGetLine() == 39);
    list->cbSize -= 1;  // a block whose size field lies: the pack fails
    EXPECT_EQ(KOVAListDBSet(db_, "admins", list), -1);
    list->cbSize += 1;
    db_->pDb->put = [](const DB *, DBT *, const DBT *, u_int) {
        errno = EIO;
        return -1;
    };
    EXPECT_EQ(KOVAListDBSet(db_, "admins", list), -1);
    for (const char *logged : {"(62): errno=3328, KOVAListDBPack() failed, section[admins]\n",
                               "(70): errno=27648, KOVABDbSet() failed, section[admins]\n"}) {
        EXPECT_TRUE(log.contains(LOG_ERR, std::string("bdb_list_db_set.cpp ") + logged));
    }
    KLIBSzListFree(list);
}

}  // namespace
}  // namespace kova::test
