// Walking a store with the cursor: order, both directions, the reserved records, the end.
#include <string>
#include <vector>

#include "bdb/bdb_fixture.h"

namespace kova::test {
namespace {

class BdbCursorTest : public BdbTest {
  protected:
    void SetUp() override {
        BdbTest::SetUp();
        ASSERT_NE(open_store(KOVA_BDB_DUP), nullptr);
        // Reserved records sort first ("#" is below letters) and one sits among the others.
        ASSERT_EQ(KOVABDbConfSyncTimeSet(db_, 1700000000), 0);
        ASSERT_EQ(KOVABDbDeprecatedSet(db_, 0), 0);
        ASSERT_EQ(set("carol", "3"), 0);
        ASSERT_EQ(set("alice", "1"), 0);
        ASSERT_EQ(set("bob", "2"), 0);
        ASSERT_EQ(set("bob", "2b"), 0);
        ASSERT_EQ(set("~#late", "4"), 0);
    }
};

TEST_F(BdbCursorTest, ForwardWalkSkipsReservedAndTurnsFirstIntoNext) {
    uint32_t end = 0;
    EXPECT_EQ(walk(KOVA_BDB_CURSOR_FIRST, 1, &end),
              (std::vector<std::string>{"alice=1", "bob=2", "bob=2b", "carol=3", "~#late=4"}));
    EXPECT_EQ(end, ERR_BDB_END_OF_RECORDS);
    EXPECT_EQ(db_->nCursorType, KOVA_BDB_CURSOR_NEXT);
    EXPECT_EQ(cursor_get(), "");  // the end stays the end
    EXPECT_EQ(KLIBErrGet(), ERR_BDB_END_OF_RECORDS);
}

TEST_F(BdbCursorTest, BackwardWalkTurnsLastIntoPrev) {
    uint32_t end = 0;
    EXPECT_EQ(walk(KOVA_BDB_CURSOR_LAST, 1, &end),
              (std::vector<std::string>{"~#late=4", "carol=3", "bob=2b", "bob=2", "alice=1"}));
    EXPECT_EQ(end, ERR_BDB_END_OF_RECORDS);
    EXPECT_EQ(db_->nCursorType, KOVA_BDB_CURSOR_PREV);
}

// Keys below "#" sort before the reserved records: a backward walk meets those first.
TEST_F(BdbCursorTest, BackwardWalkSkipsReservedRecordsAtTheEnd) {
    for (const char *key : {"alice", "bob", "carol", "~#late"}) {
        ASSERT_EQ(KOVABDbDelete(db_, key, static_cast<int32_t>(strlen(key))), 0);
    }
    ASSERT_EQ(set("!admin", "0"), 0);
    ASSERT_EQ(set("\"quoted", "9"), 0);
    ASSERT_EQ(KOVABDbCursorSetType(db_, KOVA_BDB_CURSOR_LAST), 0);
    EXPECT_EQ(cursor_get(), "\"quoted=9");
    EXPECT_EQ(db_->nCursorType, KOVA_BDB_CURSOR_PREV);
    EXPECT_EQ(cursor_get(), "!admin=0");
    EXPECT_EQ(cursor_get(), "");
    EXPECT_EQ(KLIBErrGet(), ERR_BDB_END_OF_RECORDS);
}

TEST_F(BdbCursorTest, WalkWithoutSkippingShowsReservedRecordsAndKeepsTheMode) {
    uint32_t end = 0;
    ASSERT_EQ(KOVABDbCursorSetType(db_, KOVA_BDB_CURSOR_NEXT), 0);  // unpositioned: the first
    const std::vector<std::string> all = walk(KOVA_BDB_CURSOR_NEXT, 0, &end);
    ASSERT_EQ(all.size(), 7u);
    EXPECT_EQ(all[0].substr(0, 17), std::string("#KOVA@DEPRECATED\0", 17));
    EXPECT_EQ(all[1].substr(0, 16), "#KOVA@SYNC@TIME=");
    EXPECT_EQ(all[2], "alice=1");
    // Without skipping, the mode is left alone: FIRST reads the first record again and again.
    ASSERT_EQ(KOVABDbCursorSetType(db_, KOVA_BDB_CURSOR_FIRST), 0);
    EXPECT_EQ(cursor_get(0).substr(0, 16), std::string("#KOVA@DEPRECATED"));
    EXPECT_EQ(cursor_get(0).substr(0, 16), std::string("#KOVA@DEPRECATED"));
    EXPECT_EQ(db_->nCursorType, KOVA_BDB_CURSOR_FIRST);
}

TEST_F(BdbCursorTest, SetPositionsAtTheKeyOrTheNextOne) {
    ASSERT_EQ(KOVABDbCursorSetType(db_, KOVA_BDB_CURSOR_SET), 0);
    ASSERT_EQ(KOVACheckAndRealloc(&key_, &cb_key_, 2), 0);
    memcpy(key_, "bz", 2);
    EXPECT_EQ(cursor_get(0), "carol=3");
    ASSERT_EQ(KOVABDbCursorSetType(db_, KOVA_BDB_CURSOR_NEXT), 0);
    EXPECT_EQ(cursor_get(0), "~#late=4");

    // The capacity doubles as the search key's length: the buffer still holds "~#late".
    ASSERT_EQ(KOVABDbCursorSetType(db_, KOVA_BDB_CURSOR_SET), 0);
    memcpy(key_, "bob", 3);
    EXPECT_EQ(cursor_get(0), "carol=3");  // "bobate"
    memcpy(key_, "bob", 3);
    cb_key_ = 3;
    EXPECT_EQ(cursor_get(0), "bob=2");
    memcpy(key_, "~~~", 3);  // past the last key, "~#late"
    EXPECT_EQ(cursor_get(0), "");
    EXPECT_EQ(KLIBErrGet(), ERR_BDB_END_OF_RECORDS);

    // Searching with skipping from the front goes on forward instead of finding "#" for ever.
    ASSERT_EQ(KOVACheckAndRealloc(&key_, &cb_key_, 1), 0);
    memcpy(key_, "#", 1);
    cb_key_ = 1;
    EXPECT_EQ(cursor_get(1), "alice=1");
    EXPECT_EQ(db_->nCursorType, KOVA_BDB_CURSOR_NEXT);

    // SET needs a search key.
    ASSERT_EQ(KOVABDbCursorSetType(db_, KOVA_BDB_CURSOR_SET), 0);
    cb_key_ = 0;
    EXPECT_EQ(cursor_get(0), "");
    EXPECT_EQ(KLIBErrGet(), ERR_BAD_PARAMETERS);
}

TEST_F(BdbCursorTest, ModeOutOfRangeReadsOnward) {
    ASSERT_EQ(KOVABDbCursorSetType(db_, KOVA_BDB_CURSOR_FIRST), 0);
    EXPECT_EQ(cursor_get(), "alice=1");
    db_->nCursorType = 42;  // a caller that wrote the field itself
    EXPECT_EQ(cursor_get(), "bob=2");
    EXPECT_EQ(db_->nCursorType, 42);
}

TEST_F(BdbCursorTest, EmptyStoreEndsAtOnce) {
    ASSERT_EQ(KOVABDbClose(db_), 0);
    ASSERT_EQ(unlink(db_path().c_str()), 0);
    ASSERT_NE(open_store(), nullptr);
    ASSERT_EQ(KOVABDbConfSyncTimeSet(db_, 1), 0);  // only reserved records
    for (int mode : {KOVA_BDB_CURSOR_FIRST, KOVA_BDB_CURSOR_LAST}) {
        uint32_t end = 0;
        EXPECT_TRUE(walk(mode, 1, &end).empty());
        EXPECT_EQ(end, ERR_BDB_END_OF_RECORDS);
    }
}

TEST_F(BdbCursorTest, GrowingBuffersAcrossRecordsOfAnySize) {
    std::string big(5000, 'v');
    ASSERT_EQ(set("dave", big), 0);
    ASSERT_EQ(set("d", std::string(1, 'x')), 0);
    uint32_t end = 0;
    const std::vector<std::string> all = walk(KOVA_BDB_CURSOR_FIRST, 1, &end);
    ASSERT_EQ(all.size(), 7u);
    EXPECT_EQ(all[4], "d=x");
    EXPECT_EQ(all[5], "dave=" + big);
    EXPECT_EQ(cb_value_, 1);  // the last record: "~#late=4"
}

}  // namespace
}  // namespace kova::test
