// The caller-owned buffers: the growth rule and copying pairs out.
#include <cstdlib>
#include <cstring>

#include "bdb/bdb_fixture.h"

namespace kova::test {
namespace {

TEST(BdbBufferTest, GrowthRule) {
    void *buf = nullptr;
    int32_t cap = 0;
    ASSERT_EQ(KOVACheckAndRealloc(&buf, &cap, 16), 0);
    ASSERT_NE(buf, nullptr);
    EXPECT_EQ(cap, 16);
    EXPECT_EQ(memcmp(buf, std::string(16, '\0').data(), 16), 0);  // zeroed
    memcpy(buf, "0123456789abcdef", 16);

    void *same = buf;
    EXPECT_EQ(KOVACheckAndRealloc(&buf, &cap, 8), 0);  // big enough: nothing changes
    EXPECT_EQ(buf, same);
    EXPECT_EQ(cap, 16);

    ASSERT_EQ(KOVACheckAndRealloc(&buf, &cap, 100000), 0);
    EXPECT_EQ(cap, 100000);
    EXPECT_EQ(memcmp(buf, "0123456789abcdef", 16), 0);  // contents kept
    free(buf);
}

TEST(BdbBufferTest, BadArguments) {
    void *buf = nullptr;
    int32_t cap = 0;
    const auto refused = [](int rc) { return rc == -1 && KLIBErrGet() == ERR_BAD_PARAMETERS; };
    EXPECT_TRUE(refused(KOVACheckAndRealloc(&buf, nullptr, 1)));
    EXPECT_TRUE(refused(KOVACheckAndRealloc(nullptr, &cap, 1)));
    EXPECT_TRUE(refused(KOVACheckAndRealloc(&buf, &cap, 0)));
    EXPECT_TRUE(refused(KOVACheckAndRealloc(&buf, &cap, -5)));
    char held[4];
    buf = held;  // a buffer with capacity 0 is a caller's mistake
    EXPECT_TRUE(refused(KOVACheckAndRealloc(&buf, &cap, 2)));
    EXPECT_EQ(buf, held);
}

TEST(BdbBufferTest, FailedGrowthFreesAndClearsTheCallersBuffer) {
    void *buf = nullptr;
    int32_t cap = 0;
    ASSERT_EQ(KOVACheckAndRealloc(&buf, &cap, 8), 0);
    LogCapture log;
    {
        AllocationFailure fail(1);
        EXPECT_EQ(KOVACheckAndRealloc(&buf, &cap, 64), -1);
    }
    EXPECT_EQ(KLIBErrGet(), ERR_OUT_OF_MEMORY);
    EXPECT_EQ(buf, nullptr);  // freed, not leaked (the sanitizer build checks)
    EXPECT_EQ(cap, 0);
    ASSERT_EQ(log.lines().size(), 1u);
    EXPECT_EQ(log.lines()[0].text,
              "bdb_check_and_realloc.cpp:" + std::to_string(KOVAErrorGetLine()) +
                  " NULL != *ppData, cbNeed=[64] > *pcbAlloc=[8]. errno=12/Cannot allocate memory");

    {
        AllocationFailure fail(1);
        EXPECT_EQ(KOVACheckAndRealloc(&buf, &cap, 32), -1);
    }
    EXPECT_EQ(buf, nullptr);
    EXPECT_EQ(log.lines().back().text,
              "bdb_check_and_realloc.cpp:" + std::to_string(KOVAErrorGetLine()) +
                  " NULL == *ppData, NULL == malloc(32). errno=12/Cannot allocate memory");
    ASSERT_EQ(KOVACheckAndRealloc(&buf, &cap, 32), 0);  // usable again afterwards
    free(buf);
}

TEST(BdbBufferTest, CopyOutSetsExactLength) {
    DBT pair;
    ASSERT_EQ(DBTSet(&pair, "hello", 5), 0);
    EXPECT_EQ(pair.size, 5u);
    void *buf = nullptr;
    int32_t cap = 0;
    ASSERT_EQ(KOVACheckAndRealloc(&buf, &cap, 64), 0);
    ASSERT_EQ(DBTCopyOut(&pair, &buf, &cap), 0);
    EXPECT_EQ(cap, 5);  // the length, though the block holds 64
    EXPECT_EQ(memcmp(buf, "hello", 5), 0);

    ASSERT_EQ(DBTSet(&pair, "", 0), 0);
    LogCapture log;
    EXPECT_EQ(DBTCopyOut(&pair, &buf, &cap), -1);
    EXPECT_EQ(KLIBErrGet(), ERR_BAD_PARAMETERS);
    ASSERT_EQ(log.lines().size(), 1u);
    EXPECT_NE(log.lines()[0].text.find(" KOVACheckAndRealloc failed. kovaerr=0x0D00"),
              std::string::npos);
    EXPECT_EQ(DBTSet(nullptr, "x", 1), -1);
    EXPECT_EQ(KLIBErrGet(), ERR_BAD_PARAMETERS);
    free(buf);
}

// Every allocation of a cursor read failing in turn: the call fails cleanly, nothing leaks,
// and the caller's buffers are either intact or NULL.
class BdbAllocationTest : public BdbTest {};

TEST_F(BdbAllocationTest, CursorReadUnderEveryAllocationFailure) {
    ASSERT_NE(open_store(), nullptr);
    ASSERT_EQ(set("alice", std::string(300, 'a')), 0);
    for (long nth = 1; nth <= 3; ++nth) {
        KOVABDbFree(key_);
        KOVABDbFree(value_);
        key_ = value_ = nullptr;
        cb_key_ = cb_value_ = 0;
        ASSERT_EQ(KOVABDbCursorSetType(db_, KOVA_BDB_CURSOR_FIRST), 0);
        const long before = allocation_count();
        std::string got;
        {
            AllocationFailure fail(nth);
            got = cursor_get();
        }
        if (allocation_count() - before < nth) {
            EXPECT_EQ(got, "alice=" + std::string(300, 'a'));
            break;
        }
        EXPECT_EQ(got, "");
        EXPECT_EQ(KLIBErrGet(), ERR_OUT_OF_MEMORY);
        EXPECT_EQ(db_->nCursorType, KOVA_BDB_CURSOR_FIRST);
    }
}

}  // namespace
}  // namespace kova::test
