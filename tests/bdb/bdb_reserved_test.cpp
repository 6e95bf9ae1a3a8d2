// The reserved bookkeeping records, the rebuild decisions they drive, and their file format as
// any other program on the 1.85 interface sees it.
#include <sys/wait.h>

#include <cstdio>
#include <ctime>
#include <string>
#include <utility>

#include "bdb/bdb_fixture.h"

namespace kova::test {
namespace {

using BdbReservedTest = BdbTest;

TEST_F(BdbReservedTest, SyncTimeDecidesRebuildAndDeprecatedMarker) {
    ASSERT_NE(open_store(), nullptr);
    EXPECT_EQ(KOVABDbIsNeedToRebuild(db_, 1700000000), -1);  // no record yet: not 1
    EXPECT_EQ(KLIBErrGet(), ERR_KEY_NOT_FOUND);
    EXPECT_EQ(KOVABDbDeprecatedGet(db_), -1);
    EXPECT_EQ(KLIBErrGet(), ERR_KEY_NOT_FOUND);
    ASSERT_EQ(set("#KOVA@SYNC@TIME", "12"), 0);  // a record of the wrong size
    int32_t *stored = nullptr;
    EXPECT_EQ(KOVABDbConfSyncTimeGet(db_, &stored), -1);
    EXPECT_EQ(KLIBErrGet(), ERR_BDB_GET_FAILED);
    EXPECT_EQ(stored, nullptr);

    ASSERT_EQ(KOVABDbConfSyncTimeSet(db_, 1700000000), 0);
    for (auto [t, answer] : {std::pair{1700000000, 0}, {1700000001, 1}, {1699999999, 1}})
        EXPECT_EQ(KOVABDbIsNeedToRebuild(db_, t), answer) << t;  // older counts too
    ASSERT_EQ(KOVABDbConfSyncTimeGet(db_, &stored), 0);
    EXPECT_EQ(*stored, 1700000000);
    KOVABDbFree(stored);
    for (int marker : {1, 0}) {
        ASSERT_EQ(KOVABDbDeprecatedSet(db_, marker), 0);
        EXPECT_EQ(KOVABDbDeprecatedGet(db_), marker);
    }
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
    KLIBErrSet(ERR_SUCCESS);
    EXPECT_EQ(KOVABDbDomainExpireTimeDelete(db_), 0);  // a missing record is fine
    EXPECT_EQ(KLIBErrGet(), ERR_SUCCESS);
    for (auto [age, answer] : {std::pair<int64_t, int>{0, 0}, {300, 0}, {301, 1}, {-1, 1}}) {
        EXPECT_EQ(domain_rebuild_at_age(db_, age), answer) << age;  // -1: ahead of the clock
    }
    ASSERT_EQ(KOVABDbDomainExpireTimeSet(db_), 0);
    EXPECT_EQ(KOVABDbIsNeedToDomainRebuild(db_), 0);
    int32_t *filled = nullptr;
    ASSERT_EQ(KOVABDbDomainExpireTimeGet(db_, &filled), 0);
    EXPECT_LE(time(nullptr) - *filled, 1);
    KOVABDbFree(filled);
    EXPECT_EQ(KOVABDbDomainExpireTimeDelete(db_), 0);
    EXPECT_EQ(KOVABDbIsNeedToDomainRebuild(db_), 1);

    EXPECT_EQ(KOVABDbIsNeedToDomainRebuild(nullptr), 0);
    EXPECT_EQ(KLIBErrGet(), ERR_BAD_PARAMETERS);
    ASSERT_EQ(set("#KOVA@EXPIRE@TIME", "x"), 0);  // unreadable, but present: no refill
    EXPECT_EQ(KOVABDbIsNeedToDomainRebuild(db_), 0);
}

// Runs the plain 1.85 program; its standard output.
std::string run_plain(const std::string &mode, const std::string &file) {
    FILE *pipe =
        popen((std::string(KOVA_DB185_PLAIN) + " " + mode + " '" + file + "'").c_str(), "r");
    if (pipe == nullptr) return "<popen failed>";
    std::string out;
    char buf[512];
    for (size_t n; (n = fread(buf, 1, sizeof buf, pipe)) > 0;)
        out.append(buf, n);
    const int status = pclose(pipe);
    return status == 0 ? out : out + "<exit " + std::to_string(status) + ">";
}

// The compatibility promise: files of a plain program on the 1.85 interface and of the store
// (duplicate-key here) read each other's, every reserved key at its exact length.
TEST_F(BdbReservedTest, PlainProgramAndStoreReadEachOthersFiles) {
    const std::string theirs = path("/tmp/theirs.db");
    ASSERT_EQ(run_plain("write", theirs), "");
    ASSERT_NE(db_ = KOVABDbOpen(theirs.c_str(), O_RDWR, 0), nullptr);
    EXPECT_EQ(KOVABDbIsNeedToRebuild(db_, 1700000000), 0);
    EXPECT_EQ(KOVABDbDeprecatedGet(db_), 1);
    int32_t *expire = nullptr;
    ASSERT_EQ(KOVABDbDomainExpireTimeGet(db_, &expire), 0);
    EXPECT_EQ(*expire, 1700000300);
    KOVABDbFree(std::exchange(expire, nullptr));
    EXPECT_EQ(walk(KOVA_BDB_CURSOR_FIRST), (std::vector<std::string>{"alice=1001", "bob=1002"}));
    close_store();

    ASSERT_NE(open_store(KOVA_BDB_DUP), nullptr);
    ASSERT_EQ(KOVABDbConfSyncTimeSet(db_, 1700000000), 0);
    ASSERT_EQ(KOVABDbDeprecatedSet(db_, 1), 0);
    ASSERT_EQ(KOVABDbDomainExpireTimeSet(db_), 0);
    ASSERT_EQ(KOVABDbDomainExpireTimeGet(db_, &expire), 0);
    const std::string e = std::to_string(*expire);
    KOVABDbFree(expire);
    ASSERT_EQ(set("alice", "1001"), 0);
    close_store();
    EXPECT_EQ(run_plain("read", db_path()),
              "record 17 #KOVA@DEPRECATED\\0 = 1\nrecord 17 #KOVA@EXPIRE@TIME = " + e +
                  "\nrecord 15 #KOVA@SYNC@TIME = 1700000000\nrecord 5 alice = 1001\n"
                  "get #KOVA@SYNC@TIME/15 = 1700000000\nget #KOVA@DEPRECATED/17 = 1\n"
                  "get #KOVA@EXPIRE@TIME/17 = " +
                  e + "\n");
}

}  // namespace
}  // namespace kova::test
