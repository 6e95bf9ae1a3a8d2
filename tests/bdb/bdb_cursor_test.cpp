// Walking a store with the cursor: order, both directions, the reserved records, the end.
#include <cstring>

#include "bdb/bdb_fixture.h"

namespace kova::test {
namespace {

class BdbCursorTest : public BdbTest {
  protected:
    void SetUp() override {
        BdbTest::SetUp();
        ASSERT_NE(open_store(KOVA_BDB_DUP), nullptr);
        // Reserved records sort first ("#" is below letters) and one sits among the others; a
        // big value between small ones makes the buffers grow and shrink.
        ASSERT_EQ(KOVABDbConfSyncTimeSet(db_, 1700000000), 0);
        ASSERT_EQ(KOVABDbDeprecatedSet(db_, 0), 0);
        for (const auto &[key, value] : kRecords)
            ASSERT_EQ(set(key, value), 0);
    }
    const std::string big_ = std::string(5000, 'v');
    const std::pair<std::string, std::string> kRecords[6] = {{"carol", "3"},  {"alice", "1"},
                                                             {"bob", "2"},    {"bob", "2b"},
                                                             {"~#late", "4"}, {"dave", big_}};
};

TEST_F(BdbCursorTest, WalksSkipReservedAndTurnTheirStartOnward) {
    const std::vector<std::string> forward = {"alice=1", "bob=2",        "bob=2b",
                                              "carol=3", "dave=" + big_, "~#late=4"};
    const struct {
        int start, onward;
        std::vector<std::string> records;
    } cases[] = {{KOVA_BDB_CURSOR_FIRST, KOVA_BDB_CURSOR_NEXT, forward},
                 {KOVA_BDB_CURSOR_LAST, KOVA_BDB_CURSOR_PREV, {forward.rbegin(), forward.rend()}}};
    for (const auto &c : cases) {
        SCOPED_TRACE(c.start);
        EXPECT_EQ(walk(c.start), c.records);
        EXPECT_EQ(KLIBErrGet(), ERR_BDB_END_OF_RECORDS);
        EXPECT_EQ(db_->nCursorType, c.onward);
        EXPECT_EQ(cursor_get(), "");  // the end stays the end
        EXPECT_EQ(KLIBErrGet(), ERR_BDB_END_OF_RECORDS);
    }
    // Without skipping the mode is left alone: FIRST reads the first record again and again.
    ASSERT_EQ(KOVABDbCursorSetType(db_, KOVA_BDB_CURSOR_FIRST), 0);
    for (int i = 0; i < 2; ++i)
        EXPECT_EQ(cursor_get(0).substr(0, 17), std::string("#KOVA@DEPRECATED\0", 17));
    EXPECT_EQ(db_->nCursorType, KOVA_BDB_CURSOR_FIRST);
    db_->nCursorType = 42;  // a caller that wrote the field itself: reads onward
    EXPECT_EQ(cursor_get(0).substr(0, 16), "#KOVA@SYNC@TIME=");
    EXPECT_EQ(db_->nCursorType, 42);
}

// Keys below "#" sort before the reserved records: a backward walk meets those last.
TEST_F(BdbCursorTest, WalksSkipReservedRecordsAtEitherEnd) {
    for (const auto &[key, value] : kRecords)
        KOVABDbDelete(db_, key.data(), static_cast<int32_t>(key.size()));
    for (int mode : {KOVA_BDB_CURSOR_FIRST, KOVA_BDB_CURSOR_LAST}) {  // only reserved records
        EXPECT_TRUE(walk(mode).empty());
        EXPECT_EQ(KLIBErrGet(), ERR_BDB_END_OF_RECORDS);
    }
    ASSERT_EQ(set("!admin", "0"), 0);
    ASSERT_EQ(set("\"quoted", "9"), 0);
    EXPECT_EQ(walk(KOVA_BDB_CURSOR_LAST), (std::vector<std::string>{"\"quoted=9", "!admin=0"}));
    EXPECT_EQ(KLIBErrGet(), ERR_BDB_END_OF_RECORDS);
}

TEST_F(BdbCursorTest, SetPositionsAtTheKeyOrTheNextOne) {
    const auto search = [&](const char *key, int32_t len, int skip = 0) {
        EXPECT_EQ(KOVABDbCursorSetType(db_, KOVA_BDB_CURSOR_SET), 0);
        memcpy(key_, key, strlen(key));
        cb_key_ = len;
        return cursor_get(skip);
    };
    ASSERT_EQ(KOVACheckAndRealloc(&key_, &cb_key_, 8), 0);
    EXPECT_EQ(search("bz", 2), "carol=3");
    ASSERT_EQ(KOVABDbCursorSetType(db_, KOVA_BDB_CURSOR_NEXT), 0);
    EXPECT_EQ(cursor_get(0), "dave=" + big_);
    // The capacity doubles as the search key's length: the buffer still holds "dave".
    EXPECT_EQ(search("bob", cb_key_), "carol=3");  // "bobe"
    EXPECT_EQ(search("bob", 3), "bob=2");
    EXPECT_EQ(search("~~~", 3), "");  // past the last key, "~#late"
    EXPECT_EQ(KLIBErrGet(), ERR_BDB_END_OF_RECORDS);
    // Searching with skipping from the front goes on forward instead of finding "#" for ever.
    EXPECT_EQ(search("#", 1, 1), "alice=1");
    EXPECT_EQ(db_->nCursorType, KOVA_BDB_CURSOR_NEXT);
    EXPECT_EQ(search("", 0), "");  // SET needs a search key
    EXPECT_EQ(KLIBErrGet(), ERR_BAD_PARAMETERS);
}

}  // namespace
}  // namespace kova::test
