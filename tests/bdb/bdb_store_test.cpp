// Open, get, set, delete and close, and how every failure of the btree library is reported.
#include <sys/mount.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <string>

#include "bdb/bdb_fixture.h"
#include "core/owners.h"

namespace kova::test {
namespace {

// The library's calls are function pointers in the DB record; swapping one in makes it fail
// the way a real disk or signal would.
int g_errno = 0;
int (*g_real_close)(DB *) = nullptr;

int failing_get(const DB *, const DBT *, DBT *, u_int) {
    errno = g_errno;
    return -1;
}
int failing_put(const DB *, DBT *, const DBT *, u_int) {
    errno = g_errno;
    return -1;
}
int existing_put(const DB *, DBT *, const DBT *, u_int) {
    return 1;
}
int failing_del(const DB *, const DBT *, u_int) {
    errno = g_errno;
    return -1;
}
int failing_seq(const DB *, DBT *, DBT *, u_int) {
    errno = g_errno;
    return -1;
}
int failing_close(DB *db) {
    g_real_close(db);
    errno = g_errno;
    return -1;
}

// The logged "file:line" must be where the code was raised.
void expect_logged_at_raise(const LogCapture &log, const std::string &file,
                            const std::string &tail) {
    ASSERT_FALSE(log.lines().empty());
    const std::string &line = log.lines().back().text;
    EXPECT_EQ(log.lines().back().priority, LOG_ERR);
    EXPECT_EQ(line, file + ":" + std::to_string(KOVAErrorGetLine()) + " " + tail) << line;
    EXPECT_STREQ(KOVAErrorGetFile(), file.c_str());
}

using BdbStoreTest = BdbTest;

TEST_F(BdbStoreTest, RecordsRoundTripAndSurviveReopening) {
    ASSERT_NE(open_store(), nullptr);
    EXPECT_EQ(db_->nCursorType, KOVA_BDB_CURSOR_NEXT);
    EXPECT_EQ(set("alice", std::string("1001\0x", 6)), 0);
    EXPECT_EQ(set("bob", "1002"), 0);
    EXPECT_EQ(set("bob", "2002"), 0);  // replaces in a btree without duplicates
    EXPECT_EQ(KOVABDbClose(db_), 0);
    db_ = KOVABDbOpen(db_path().c_str(), O_RDWR, 0);
    ASSERT_NE(db_, nullptr);
    EXPECT_EQ(get("alice"), std::string("1001\0x", 6));
    EXPECT_EQ(cb_value_, 6);  // the capacity doubles as the length
    EXPECT_EQ(get("bob"), "2002");
    EXPECT_EQ(get("bo"), "<absent>");
    EXPECT_EQ(KLIBErrGet(), ERR_KEY_NOT_FOUND);
}

TEST_F(BdbStoreTest, MissingKeysFailGetAndDelete) {
    ASSERT_NE(open_store(), nullptr);
    ASSERT_EQ(set("alice", "1"), 0);
    EXPECT_EQ(KOVABDbDelete(db_, "alice", 5), 0);
    EXPECT_EQ(get("alice"), "<absent>");
    EXPECT_EQ(KLIBErrGet(), ERR_KEY_NOT_FOUND);
    KLIBErrSet(ERR_SUCCESS);
    EXPECT_EQ(KOVABDbDelete(db_, "alice", 5), -1);
    EXPECT_EQ(KLIBErrGet(), ERR_KEY_NOT_FOUND);
}

TEST_F(BdbStoreTest, DuplicateStoreKeepsOrdinaryDuplicatesButNeverReservedOnes) {
    ASSERT_NE(open_store(KOVA_BDB_DUP), nullptr);
    EXPECT_EQ(set("users", "alice"), 0);
    EXPECT_EQ(set("users", "bob"), 0);
    EXPECT_EQ(KOVABDbConfSyncTimeSet(db_, 100), 0);
    EXPECT_EQ(KOVABDbConfSyncTimeSet(db_, 200), 0);
    EXPECT_EQ(KOVABDbDeprecatedSet(db_, 1), 0);
    EXPECT_EQ(KOVABDbDeprecatedSet(db_, 0), 0);
    EXPECT_EQ(set("#OTHER", "a"), 0);
    EXPECT_EQ(set("#OTHER", "b"), 0);

    uint32_t end = 0;
    const std::vector<std::string> all = walk(KOVA_BDB_CURSOR_FIRST, 0, &end);
    const int32_t t200 = 200, zero = 0;
    const std::vector<std::string> expected = {
        std::string("#KOVA@DEPRECATED\0=", 18) +
            std::string(reinterpret_cast<const char *>(&zero), 4),
        "#KOVA@SYNC@TIME=" + std::string(reinterpret_cast<const char *>(&t200), 4), "#OTHER=b",
        "users=alice", "users=bob"};
    EXPECT_EQ(all, expected);
    EXPECT_EQ(end, ERR_BDB_END_OF_RECORDS);

    EXPECT_EQ(KOVABDbDelete(db_, "users", 5), 0);  // every record under the key
    EXPECT_EQ(get("users"), "<absent>");
}

TEST_F(BdbStoreTest, EmptyValueCannotBeReadBack) {
    ASSERT_NE(open_store(), nullptr);
    DBT key = {const_cast<char *>("empty"), 5};
    DBT value = {const_cast<char *>(""), 0};
    ASSERT_EQ(db_->pDb->put(db_->pDb, &key, &value, 0), 0);  // the store itself refuses these
    LogCapture log;
    EXPECT_EQ(get("empty"), "<absent>");
    EXPECT_EQ(KLIBErrGet(), ERR_BAD_PARAMETERS);
    ASSERT_FALSE(log.lines().empty());
    EXPECT_NE(log.lines().back().text.find(" KOVACheckAndRealloc failed. kovaerr=0x0D00"),
              std::string::npos);
}

TEST_F(BdbStoreTest, BadArgumentsAreRefused) {
    ASSERT_NE(open_store(), nullptr);
    void *buf = nullptr;
    int32_t cb = 0;
    const auto refused = [](int rc) { return rc == -1 && KLIBErrGet() == ERR_BAD_PARAMETERS; };
    EXPECT_EQ(KOVABDbOpen(nullptr, O_RDWR, 0), nullptr);
    EXPECT_EQ(KOVABDbOpen("", O_RDWR | O_CREAT, 0), nullptr);
    EXPECT_EQ(KLIBErrGet(), ERR_BAD_PARAMETERS);
    EXPECT_TRUE(refused(KOVABDbClose(nullptr)));
    EXPECT_TRUE(refused(KOVABDbGet(nullptr, "k", 1, &buf, &cb)));
    EXPECT_TRUE(refused(KOVABDbGet(db_, nullptr, 1, &buf, &cb)));
    EXPECT_TRUE(refused(KOVABDbGet(db_, "k", 0, &buf, &cb)));
    EXPECT_TRUE(refused(KOVABDbGet(db_, "k", 1, nullptr, &cb)));
    EXPECT_TRUE(refused(KOVABDbGet(db_, "k", 1, &buf, nullptr)));
    EXPECT_TRUE(refused(KOVABDbSet(nullptr, "k", 1, "v", 1)));
    EXPECT_TRUE(refused(KOVABDbSet(db_, "k", 0, "v", 1)));
    EXPECT_TRUE(refused(KOVABDbSet(db_, "k", 1, nullptr, 1)));
    EXPECT_TRUE(refused(KOVABDbSet(db_, "k", 1, "v", 0)));
    EXPECT_TRUE(refused(KOVABDbDelete(db_, nullptr, 1)));
    EXPECT_TRUE(refused(KOVABDbDelete(db_, "k", 0)));
    EXPECT_TRUE(refused(KOVABDbCursorSetType(nullptr, KOVA_BDB_CURSOR_NEXT)));
    EXPECT_TRUE(refused(KOVABDbCursorSetType(db_, 0)));
    EXPECT_TRUE(refused(KOVABDbCursorSetType(db_, 6)));
    EXPECT_TRUE(refused(KOVABDbCursorGet(db_, 1, nullptr, &cb, &buf, &cb)));
    EXPECT_TRUE(refused(KOVABDbCursorGet(nullptr, 1, &buf, &cb, &buf, &cb)));
    EXPECT_EQ(set("k", "v"), 0);  // nothing was stored meanwhile
    EXPECT_EQ(db_->nCursorType, KOVA_BDB_CURSOR_NEXT);
}

TEST_F(BdbStoreTest, OpenFailuresMapErrno) {
    EXPECT_EQ(KOVABDbOpen(db_path().c_str(), O_RDWR, 0), nullptr);  // no O_CREAT
    EXPECT_EQ(KLIBErrGet(), ERR_FILE_NOT_FOUND);
    EXPECT_FALSE(file_exists(db_path()));

    write_file(path("/tmp/junk.db"), "not a btree at all\n");
    EXPECT_EQ(KOVABDbOpen(path("/tmp/junk.db").c_str(), O_RDWR, 0), nullptr);
    EXPECT_EQ(KLIBErrGet(), ERR_BDB_INVALID);
    EXPECT_EQ(read_file(path("/tmp/junk.db")), "not a btree at all\n");

    LogCapture log;
    EXPECT_EQ(KOVABDbOpen(path("/tmp").c_str(), O_RDWR, 0), nullptr);
    EXPECT_EQ(KLIBErrGet(), ERR_OPEN_FAILED);
    ASSERT_EQ(log.lines().size(), 1u);
    EXPECT_EQ(log.lines()[0].priority, LOG_NOTICE);
    EXPECT_EQ(log.lines()[0].text, "bdb_open.cpp:" + std::to_string(KOVAErrorGetLine()) +
                                       " errno=21/Is a directory, dbopen failed.");
}

// The 1.85 layer refuses duplicate mode on a file created without it (rather than following
// the file): the caller gets the library's EINVAL.
TEST_F(BdbStoreTest, DuplicateModeOnPlainFileIsRefused) {
    ASSERT_NE(open_store(), nullptr);
    ASSERT_EQ(KOVABDbClose(db_), 0);
    db_ = KOVABDbOpen(db_path().c_str(), O_RDWR, KOVA_BDB_DUP);
    EXPECT_EQ(db_, nullptr);
    EXPECT_EQ(KLIBErrGet(), ERR_BDB_INVALID);
}

TEST_F(BdbStoreTest, OutOfMemoryForTheHandleCreatesNothing) {
    {
        AllocationFailure fail(1);
        EXPECT_EQ(KOVABDbOpen(db_path().c_str(), O_RDWR | O_CREAT, 0), nullptr);
    }
    EXPECT_EQ(KLIBErrGet(), ERR_OUT_OF_MEMORY);
    EXPECT_FALSE(file_exists(db_path()));
}

TEST_F(BdbStoreTest, PermissionDenied) {
    ASSERT_NE(open_store(), nullptr);
    ASSERT_EQ(KOVABDbClose(db_), 0);
    db_ = nullptr;
    ASSERT_EQ(chmod(db_path().c_str(), 0600), 0);
    if (geteuid() != 0) {
        EXPECT_EQ(chmod(db_path().c_str(), 0), 0);
        EXPECT_EQ(KOVABDbOpen(db_path().c_str(), O_RDWR, 0), nullptr);
        EXPECT_EQ(KLIBErrGet(), ERR_ACCESS_DENIED);
        return;
    }
    // Root reads everything: a child drops to nobody, the directories let it through.
    ASSERT_EQ(chmod(root().c_str(), 0755), 0);
    const pid_t child = fork();
    ASSERT_GE(child, 0);
    if (child == 0) {
        if (setgid(65534) != 0 || setuid(65534) != 0) _exit(100);
        PKOVABDB db = KOVABDbOpen(db_path().c_str(), O_RDWR, 0);
        _exit(db == nullptr ? static_cast<int>(KLIBErrGet() >> 8) : 101);
    }
    int status = 0;
    ASSERT_EQ(waitpid(child, &status, 0), child);
    ASSERT_TRUE(WIFEXITED(status));
    EXPECT_EQ(WEXITSTATUS(status), ERR_ACCESS_DENIED >> 8);
}

TEST_F(BdbStoreTest, ReadOnlyFileSystem) {
    if (geteuid() != 0) GTEST_SKIP() << "mounting a read-only tmpfs needs root";
    const std::string mnt = path("/tmp/ro");
    ASSERT_EQ(mkdir(mnt.c_str(), 0755), 0);
    if (mount("kova-bdb-test", mnt.c_str(), "tmpfs", 0, "size=1m") != 0) {
        GTEST_SKIP() << "cannot mount a tmpfs here: " << strerror(errno);
    }
    ScopeGuard unmount([&] { umount2(mnt.c_str(), MNT_DETACH); });
    const std::string file = mnt + "/users.db";
    PKOVABDB db = KOVABDbOpen(file.c_str(), O_RDWR | O_CREAT, 0);
    ASSERT_NE(db, nullptr);
    ASSERT_EQ(KOVABDbSet(db, "alice", 5, "1001", 4), 0);
    ASSERT_EQ(KOVABDbClose(db), 0);
    ASSERT_EQ(mount("kova-bdb-test", mnt.c_str(), "tmpfs", MS_REMOUNT | MS_RDONLY, "size=1m"), 0)
        << strerror(errno);

    LogCapture log;
    EXPECT_EQ(KOVABDbOpen(file.c_str(), O_RDWR, 0), nullptr);
    EXPECT_EQ(KLIBErrGet(), ERR_OPEN_FAILED);  // EROFS is no errno of its own at open
    EXPECT_TRUE(log.contains(LOG_NOTICE, "bdb_open.cpp:" + std::to_string(KOVAErrorGetLine()) +
                                             " errno=30/Read-only file system, dbopen failed."));
    db = KOVABDbOpen(file.c_str(), O_RDONLY, 0);  // readers still read
    ASSERT_NE(db, nullptr);
    void *value = nullptr;
    int32_t cb = 0;
    EXPECT_EQ(KOVABDbGet(db, "alice", 5, &value, &cb), 0);
    EXPECT_EQ(std::string(static_cast<char *>(value), static_cast<size_t>(cb)), "1001");
    KOVABDbFree(value);
    EXPECT_EQ(KOVABDbClose(db), 0);
}

TEST_F(BdbStoreTest, RootMakesTheFileReadableByEveryone) {
    if (geteuid() != 0) GTEST_SKIP() << "the store changes the mode only when run as root";
    const mode_t old_mask = umask(077);
    open_store();
    umask(old_mask);
    struct stat st {};
    ASSERT_EQ(stat(db_path().c_str(), &st), 0);
    EXPECT_EQ(st.st_mode & 07777, 0666u);
}

struct ErrnoCase {
    const char *call;
    int err;
    uint32_t code;
};

void PrintTo(const ErrnoCase &c, std::ostream *out) {
    *out << "db->" << c.call << " with " << strerrorname_np(c.err);
}

class BdbErrnoTest : public BdbTest, public ::testing::WithParamInterface<ErrnoCase> {};

TEST_P(BdbErrnoTest, LibraryFailureIsLoggedAndMapped) {
    const ErrnoCase c = GetParam();
    ASSERT_NE(open_store(), nullptr);
    ASSERT_EQ(set("alice", "1001"), 0);
    g_errno = c.err;
    KLIBErrSet(ERR_SUCCESS);
    const std::string tail =
        "errno=" + std::to_string(c.err) + "/" + strerror(c.err) + ", db->" + c.call + " failed.";
    LogCapture log;
    const std::string call = c.call;
    std::string file;
    if (call == "get") {
        db_->pDb->get = failing_get;
        EXPECT_EQ(get("alice"), "<absent>");
        file = "bdb_get.cpp";
    } else if (call == "put") {
        db_->pDb->put = failing_put;
        EXPECT_EQ(set("alice", "1"), -1);
        file = "bdb_set.cpp";
    } else if (call == "del") {
        db_->pDb->del = failing_del;
        EXPECT_EQ(KOVABDbDelete(db_, "alice", 5), -1);
        file = "bdb_delete.cpp";
    } else if (call == "seq") {
        db_->pDb->seq = failing_seq;
        EXPECT_EQ(cursor_get(), "");
        file = "bdb_cursor_get.cpp";
    } else {
        g_real_close = db_->pDb->close;
        db_->pDb->close = failing_close;
        EXPECT_EQ(KOVABDbClose(db_), 0);  // all the same (kept as it is)
        db_ = nullptr;
        file = "bdb_close.cpp";
    }
    EXPECT_EQ(KLIBErrGet(), c.code);
    ASSERT_EQ(log.lines().size(), 1u);
    if (c.code == ERR_SUCCESS) {
        EXPECT_EQ(log.lines()[0].text.substr(0, file.size() + 1), file + ":");
        EXPECT_NE(log.lines()[0].text.find(tail), std::string::npos);
    } else {
        expect_logged_at_raise(log, file, tail);
    }
}

INSTANTIATE_TEST_SUITE_P(
    Calls, BdbErrnoTest,
    ::testing::Values(
        ErrnoCase{"get", EIO, ERR_DISK_IO_FAILED}, ErrnoCase{"get", EINTR, ERR_INTERRUPTED},
        ErrnoCase{"get", ENOSPC, ERR_BDB_GET_FAILED}, ErrnoCase{"put", EIO, ERR_DISK_IO_FAILED},
        ErrnoCase{"put", EINTR, ERR_INTERRUPTED}, ErrnoCase{"put", ENOSPC, ERR_NOT_ENOUGH_SPACE},
        ErrnoCase{"put", EACCES, ERR_BDB_PUT_FAILED}, ErrnoCase{"del", EIO, ERR_DISK_IO_FAILED},
        ErrnoCase{"del", EINTR, ERR_INTERRUPTED}, ErrnoCase{"del", ENOSPC, ERR_NOT_ENOUGH_SPACE},
        ErrnoCase{"del", EPERM, ERR_BDB_DEL_FAILED}, ErrnoCase{"seq", EIO, ERR_DISK_IO_FAILED},
        ErrnoCase{"seq", EINTR, ERR_INTERRUPTED}, ErrnoCase{"seq", EINVAL, ERR_BDB_GET_FAILED},
        ErrnoCase{"close", EIO, ERR_DISK_IO_FAILED}, ErrnoCase{"close", EINTR, ERR_INTERRUPTED},
        ErrnoCase{"close", ENOSPC, ERR_NOT_ENOUGH_SPACE},
        ErrnoCase{"close", EROFS, ERR_READ_ONLY_FS}, ErrnoCase{"close", EBADF, ERR_SUCCESS}),
    [](const ::testing::TestParamInfo<ErrnoCase> &info) {
        return std::string(info.param.call) + "_" + strerrorname_np(info.param.err);
    });

TEST_F(BdbStoreTest, ReservedKeyIsNotStoredWhenItsDeletionFails) {
    ASSERT_NE(open_store(KOVA_BDB_DUP), nullptr);
    ASSERT_EQ(KOVABDbConfSyncTimeSet(db_, 100), 0);
    auto *real_del = db_->pDb->del;
    db_->pDb->del = failing_del;
    g_errno = EIO;
    KLIBErrSet(ERR_SUCCESS);
    LogCapture log;
    EXPECT_EQ(KOVABDbConfSyncTimeSet(db_, 200), -1);
    EXPECT_EQ(KLIBErrGet(), ERR_SUCCESS);  // logged only, no code of its own
    ASSERT_EQ(log.lines().size(), 1u);
    EXPECT_NE(log.lines()[0].text.find("errno=5/Input/output error, db->del failed."),
              std::string::npos);
    EXPECT_EQ(log.lines()[0].text.rfind("bdb_set.cpp:", 0), 0u);
    db_->pDb->del = real_del;
    EXPECT_EQ(KOVABDbIsNeedToRebuild(db_, 100), 0);

    db_->pDb->put = existing_put;  // "key exists": -1 without a code
    EXPECT_EQ(set("alice", "1"), -1);
    EXPECT_EQ(KLIBErrGet(), ERR_SUCCESS);
}

}  // namespace
}  // namespace kova::test
