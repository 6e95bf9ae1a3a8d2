// String lists stored as records: pack, unpack, and the records read back from a store.
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

// A list shaped by random pushes, inserts past the end (empty items), removals and sets.
PKLIBSZLIST random_list(std::mt19937 &rng, int operations) {
    PKLIBSZLIST list = PslKLIBSzListAlloc(0);
    std::uniform_int_distribution<int> op(0, 9), len(0, 12), byte('a', 'z');
    for (int n = 0; n < operations; ++n) {
        std::string text(static_cast<size_t>(len(rng)), ' ');
        for (char &c : text)
            c = static_cast<char>(byte(rng));
        const int choice = op(rng);
        if (choice < 6 || list->nItem == 0) {
            EXPECT_GE(KLIBSzListPush(&list, text.c_str()), 0);
        } else if (choice == 6) {
            EXPECT_GE(KLIBSzListInsert(&list, list->nItem + 2, text.c_str()), 0);
        } else {
            std::uniform_int_distribution<int> index(0, list->nItem - 1);
            EXPECT_NE(SzKLIBSzListRemove(list, index(rng)), nullptr);
        }
    }
    return list;
}

// The positions of every pointer of a list block: no slot of a packed block may hold one.
std::vector<size_t> pointer_slots(const KLIBSZLIST *list) {
    std::vector<size_t> at = {offsetof(KLIBSZLIST, pszStrStart), offsetof(KLIBSZLIST, pszEmpty)};
    for (int i = 0; i < list->nItem; ++i) {
        at.push_back(offsetof(KLIBSZLIST, pszItem) + sizeof(char *) * static_cast<size_t>(i));
    }
    return at;
}

TEST(BdbListRecordTest, RandomListsSurvivePackAndUnpack) {
    std::mt19937 rng(20240611);
    for (int round = 0; round < 40; ++round) {
        PKLIBSZLIST list = random_list(rng, round == 0 ? 0 : 50 * round + 1000 * (round % 4));
        void *packed = KOVAListDBPack(list, list->cbSize);
        ASSERT_NE(packed, nullptr);

        const auto base = reinterpret_cast<uintptr_t>(list);
        for (size_t at : pointer_slots(list)) {
            uintptr_t slot;
            memcpy(&slot, static_cast<char *>(packed) + at, sizeof slot);
            ASSERT_LE(slot, static_cast<uintptr_t>(list->cbSize))
                << "an absolute pointer at " << at;
            EXPECT_NE(slot, base);
        }

        PKLIBSZLIST back = KOVAListDBUnpack(packed, list->cbSize);
        ASSERT_NE(back, nullptr);
        EXPECT_NE(back, list);
        EXPECT_EQ(back->cbSize, list->cbSize);
        EXPECT_EQ(back->cbFree, list->cbFree);
        EXPECT_EQ(items_of(back), items_of(list));
        EXPECT_EQ(*back->pszEmpty, '\0');
        EXPECT_EQ(back->pszEmpty, reinterpret_cast<char *>(back) + back->cbSize - 1);
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
    EXPECT_EQ(KOVAListDBPack(nullptr, 512), nullptr);
    EXPECT_EQ(KLIBErrGet(), ERR_BAD_PARAMETERS);
    EXPECT_EQ(KOVAErrorGetLine(), 39);
    EXPECT_EQ(KOVAListDBPack(list, list->cbSize - 1), nullptr);
    EXPECT_EQ(KOVAListDBUnpack(nullptr, 512), nullptr);
    EXPECT_EQ(KOVAErrorGetLine(), 39);
    {
        AllocationFailure fail(1);
        EXPECT_EQ(KOVAListDBPack(list, list->cbSize), nullptr);
    }
    EXPECT_EQ(KLIBErrGet(), ERR_OUT_OF_MEMORY);
    EXPECT_EQ(KOVAErrorGetLine(), 45);
    void *packed = KOVAListDBPack(list, list->cbSize);
    ASSERT_NE(packed, nullptr);
    {
        AllocationFailure fail(1);
        EXPECT_EQ(KOVAListDBUnpack(packed, list->cbSize), nullptr);
    }
    EXPECT_EQ(KOVAErrorGetLine(), 45);
    free(packed);
    KLIBSzListFree(list);
}

// Records come from files: a damaged block is refused or yields a list whose every string
// lies inside it (the sanitizer build catches any stray read).
TEST(BdbListRecordTest, DamagedRecordsAreRefusedOrHarmless) {
    std::mt19937 rng(7);
    PKLIBSZLIST list = random_list(rng, 300);
    const auto size = list->cbSize;
    auto *packed = static_cast<unsigned char *>(KOVAListDBPack(list, size));
    ASSERT_NE(packed, nullptr);
    EXPECT_EQ(KOVAListDBUnpack(packed, size - 1), nullptr);  // a truncated record
    EXPECT_EQ(KLIBErrGet(), ERR_FORMAT_ERROR);
    EXPECT_EQ(KOVAListDBUnpack(packed, 8), nullptr);

    std::vector<unsigned char> damaged(packed, packed + size);
    std::uniform_int_distribution<size_t> at(0, static_cast<size_t>(size) - 1);
    std::uniform_int_distribution<int> byte(0, 255);
    int refused = 0;
    for (int round = 0; round < 3000; ++round) {
        damaged.assign(packed, packed + size);
        // Most damage lands in the header and the item offsets, where it matters.
        const size_t limit = round % 2 ? static_cast<size_t>(size) : 64 + 8 * list->nItem;
        for (int hits = 1 + round % 3; hits > 0; --hits) {
            damaged[at(rng) % limit] = static_cast<unsigned char>(byte(rng));
        }
        PKLIBSZLIST back = KOVAListDBUnpack(damaged.data(), size);
        if (back == nullptr) {
            ++refused;
            EXPECT_EQ(KLIBErrGet(), ERR_FORMAT_ERROR);
            continue;
        }
        size_t total = 0;
        for (int i = 0; i < back->nItem; ++i)
            total += strlen(SzKLIBSzListGet(back, i));
        EXPECT_LT(total, static_cast<size_t>(size) * static_cast<size_t>(back->nItem + 1));
        KLIBSzListFree(back);
    }
    EXPECT_GT(refused, 0);
    free(packed);
    KLIBSzListFree(list);
}

class BdbListDbSetTest : public BdbTest {};

TEST_F(BdbListDbSetTest, StoresUnderUpperCasedReservedKey) {
    ASSERT_NE(open_store(KOVA_BDB_DUP), nullptr);
    PKLIBSZLIST list = PslKLIBSzListAlloc(0);
    for (const char *name : {"alice", "bob", "", "Émile"})
        ASSERT_GE(KLIBSzListPush(&list, name), 0);
    ASSERT_EQ(KOVAListDBSet(db_, "Admins-é", list), 0);
    ASSERT_EQ(KOVAListDBSet(db_, "Admins-é", list), 0);  // replaced, not duplicated

    const std::string key =
        std::string("#ADMINS-\xC3\xA9") + '\0';  // bytes beyond ASCII as they are
    const std::string value = get(key);
    ASSERT_EQ(value.size(), static_cast<size_t>(list->cbSize));
    PKLIBSZLIST back = KOVAListDBUnpack(value.data(), static_cast<int32_t>(value.size()));
    ASSERT_NE(back, nullptr);
    EXPECT_EQ(items_of(back), items_of(list));
    KLIBSzListFree(back);

    uint32_t end = 0;
    EXPECT_TRUE(walk(KOVA_BDB_CURSOR_FIRST, 1, &end).empty());  // a reserved record
    EXPECT_EQ(walk(KOVA_BDB_CURSOR_FIRST, 0, &end).size(), 1u);

    LogCapture log;
    EXPECT_EQ(KOVAListDBSet(nullptr, "x", list), -1);
    EXPECT_EQ(KOVAErrorGetLine(), 39);
    list->cbSize -= 1;  // a block whose size field lies: the pack fails
    EXPECT_EQ(KOVAListDBSet(db_, "admins", list), -1);
    list->cbSize += 1;
    EXPECT_TRUE(log.contains(LOG_ERR,
                             "bdb_list_db_set.cpp (62): errno=3328, KOVAListDBPack() failed, "
                             "section[admins]\n"));
    db_->pDb->put = [](const DB *, DBT *, const DBT *, u_int) {
        errno = EIO;
        return -1;
    };
    EXPECT_EQ(KOVAListDBSet(db_, "admins", list), -1);
    EXPECT_TRUE(log.contains(LOG_ERR,
                             "bdb_list_db_set.cpp (70): errno=27648, KOVABDbSet() failed, "
                             "section[admins]\n"));
    KLIBSzListFree(list);
}

}  // namespace
}  // namespace kova::test
