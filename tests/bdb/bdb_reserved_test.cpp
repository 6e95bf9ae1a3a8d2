// The reserved bookkeeping records, the rebuild decisions they drive, and their file format as
// any other program on the 1.85 interface sees it.
#include <sys/wait.h>

#include <cstdio>
#include <ctime>
#include <string>

#include "bdb/bdb_fixture.h"

namespace kova::test {
namespace {

using BdbReservedTest = BdbTest;

TEST_F(BdbReservedTest, SyncTimeDecidesRebuild) {
    ASSERT_NE(open_store(), nullptr);
    EXPECT_EQ(KOVABDbIsNeedToRebuild(db_, 1700000000), -1);  // no record yet: not 1
    EXPECT_EQ(KLIBErrGet(), ERR_KEY_NOT_FOUND);
    int32_t *stored = nullptr;
    EXPECT_EQ(KOVABDbConfSyncTimeGet(db_, &stored), -1);
    EXPECT_EQ(stored, nullptr);

    ASSERT_EQ(KOVABDbConfSyncTimeSet(db_, 1700000000), 0);
    EXPECT_EQ(KOVABDbIsNeedToRebuild(db_, 1700000000), 0);
    EXPECT_EQ(KOVABDbIsNeedToRebuild(db_, 1700000001), 1);
    EXPECT_EQ(KOVABDbIsNeedToRebuild(db_, 1699999999), 1);  // older counts too
    ASSERT_EQ(KOVABDbConfSyncTimeGet(db_, &stored), 0);
    ASSERT_NE(stored, nullptr);
    EXPECT_EQ(*stored, 1700000000);
    KOVABDbFree(stored);
}

TEST_F(BdbReservedTest, DeprecatedMarker) {
    ASSERT_NE(open_store(), nullptr);
    EXPECT_EQ(KOVABDbDeprecatedGet(db_), -1);
    EXPECT_EQ(KLIBErrGet(), ERR_KEY_NOT_FOUND);
    ASSERT_EQ(KOVABDbDeprecatedSet(db_, 1), 0);
    EXPECT_EQ(KOVABDbDeprecatedGet(db_), 1);
    ASSERT_EQ(KOVABDbDeprecatedSet(db_, 0), 0);
    EXPECT_EQ(KOVABDbDeprecatedGet(db_), 0);
    // The key counts its NUL: without it the record is another one.
    EXPECT_EQ(get(std::string("#KOVA@DEPRECATED\0", 17)).size(), 4u);
    EXPECT_EQ(get("#KOVA@DEPRECATED"), "<absent>");
}

TEST_F(BdbReservedTest, ReservedRecordOfTheWrongSizeIsRefused) {
    ASSERT_NE(open_store(), nullptr);
    ASSERT_EQ(set("#KOVA@SYNC@TIME", "12"), 0);
    int32_t *stored = nullptr;
    EXPECT_EQ(KOVABDbConfSyncTimeGet(db_, &stored), -1);
    EXPECT_EQ(KLIBErrGet(), ERR_BDB_GET_FAILED);
    EXPECT_EQ(stored, nullptr);
    EXPECT_EQ(KOVABDbIsNeedToRebuild(db_, 0), -1);
}

// Stores a fill time `age` seconds before now and asks; retried when the clock ticks between
// the store and the question, so the boundary is exact.
int domain_rebuild_at_age(PKOVABDB db, int64_t age) {
    for (int attempt = 0; attempt < 5; ++attempt) {
        const time_t before = time(nullptr);
        const auto filled = static_cast<int32_t>(before - age);
        if (KOVABDbSet(db, KOVA_BDB_KEY_EXPIRE_TIME, KOVA_BDB_KEY_EXPIRE_TIME_LEN, &filled,
                       sizeof filled) != 0) {
            return -2;
        }
        const int answer = KOVABDbIsNeedToDomainRebuild(db);
        if (time(nullptr) == before) return answer;
    }
    return -3;
}

TEST_F(BdbReservedTest, DomainRebuildBoundaries) {
    ASSERT_NE(open_store(), nullptr);
    EXPECT_EQ(KOVABDbIsNeedToDomainRebuild(db_), 1);  // no record
    EXPECT_EQ(domain_rebuild_at_age(db_, 0), 0);
    EXPECT_EQ(domain_rebuild_at_age(db_, 300), 0);
    EXPECT_EQ(domain_rebuild_at_age(db_, 301), 1);
    EXPECT_EQ(domain_rebuild_at_age(db_, -1), 1);  // a fill time ahead of the clock
    EXPECT_EQ(domain_rebuild_at_age(db_, -86400), 1);

    ASSERT_EQ(KOVABDbDomainExpireTimeSet(db_), 0);
    EXPECT_EQ(KOVABDbIsNeedToDomainRebuild(db_), 0);
    int32_t *filled = nullptr;
    ASSERT_EQ(KOVABDbDomainExpireTimeGet(db_, &filled), 0);
    EXPECT_LE(time(nullptr) - *filled, 1);
    KOVABDbFree(filled);

    EXPECT_EQ(KOVABDbIsNeedToDomainRebuild(nullptr), 0);
    EXPECT_EQ(KLIBErrGet(), ERR_BAD_PARAMETERS);
    ASSERT_EQ(set("#KOVA@EXPIRE@TIME", "x"), 0);  // unreadable, but present: no refill
    EXPECT_EQ(KOVABDbIsNeedToDomainRebuild(db_), 0);
}

TEST_F(BdbReservedTest, DomainExpireDeleteToleratesMissingRecord) {
    ASSERT_NE(open_store(), nullptr);
    KLIBErrSet(ERR_SUCCESS);
    EXPECT_EQ(KOVABDbDomainExpireTimeDelete(db_), 0);
    EXPECT_EQ(KLIBErrGet(), ERR_SUCCESS);
    ASSERT_EQ(KOVABDbDomainExpireTimeSet(db_), 0);
    EXPECT_EQ(KOVABDbDomainExpireTimeDelete(db_), 0);
    EXPECT_EQ(KOVABDbIsNeedToDomainRebuild(db_), 1);
    EXPECT_EQ(KOVABDbDomainExpireTimeDelete(nullptr), -1);
    EXPECT_EQ(KLIBErrGet(), ERR_BAD_PARAMETERS);
}

// Runs the plain 1.85 program; its standard output.
std::string run_plain(const std::string &mode, const std::string &file) {
    const std::string command = std::string(KOVA_DB185_PLAIN) + " " + mode + " '" + file + "'";
    FILE *pipe = popen(command.c_str(), "r");
    if (pipe == nullptr) return "<popen failed>";
    std::string out;
    char buf[512];
    for (size_t n; (n = fread(buf, 1, sizeof buf, pipe)) > 0;)
        out.append(buf, n);
    const int status = pclose(pipe);
    if (!WIFEXITED(status) || WEXITSTATUS(status) != 0)
        out += "<exit " + std::to_string(status) + ">";
    return out;
}

TEST_F(BdbReservedTest, PlainProgramFindsReservedKeysAtTheirLengths) {
    ASSERT_NE(open_store(KOVA_BDB_DUP), nullptr);
    ASSERT_EQ(KOVABDbConfSyncTimeSet(db_, 1700000000), 0);
    ASSERT_EQ(KOVABDbDeprecatedSet(db_, 1), 0);
    ASSERT_EQ(KOVABDbSet(db_, KOVA_BDB_KEY_EXPIRE_TIME, KOVA_BDB_KEY_EXPIRE_TIME_LEN,
                         "\x01\x00\x00\x00", 4),
              0);
    ASSERT_EQ(set("alice", "1001"), 0);
    ASSERT_EQ(KOVABDbClose(db_), 0);
    db_ = nullptr;
    int32_t expire;
    memcpy(&expire, "\x01\x00\x00\x00", 4);
    EXPECT_EQ(run_plain("read", db_path()),
              "record 17 #KOVA@DEPRECATED\\0 = 1\n"
              "record 17 #KOVA@EXPIRE@TIME = " +
                  std::to_string(expire) +
                  "\n"
                  "record 15 #KOVA@SYNC@TIME = 1700000000\n"
                  "record 5 alice = 1001\n"
                  "get #KOVA@SYNC@TIME/15 = 1700000000\n"
                  "get #KOVA@DEPRECATED/17 = 1\n"
                  "get #KOVA@EXPIRE@TIME/17 = " +
                  std::to_string(expire) + "\n");
}

TEST_F(BdbReservedTest, StoreReadsFileWrittenByPlainProgram) {
    ASSERT_EQ(run_plain("write", db_path()), "");
    db_ = KOVABDbOpen(db_path().c_str(), O_RDWR, 0);
    ASSERT_NE(db_, nullptr);
    EXPECT_EQ(KOVABDbIsNeedToRebuild(db_, 1700000000), 0);
    EXPECT_EQ(KOVABDbDeprecatedGet(db_), 1);
    int32_t *expire = nullptr;
    ASSERT_EQ(KOVABDbDomainExpireTimeGet(db_, &expire), 0);
    EXPECT_EQ(*expire, 1700000300);
    KOVABDbFree(expire);
    uint32_t end = 0;
    EXPECT_EQ(walk(KOVA_BDB_CURSOR_FIRST, 1, &end),
              (std::vector<std::string>{"alice=1001", "bob=1002"}));
}

}  // namespace
}  // namespace kova::test
