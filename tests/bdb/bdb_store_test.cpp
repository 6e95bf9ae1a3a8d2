// Open, get, set, delete and close, the caller-owned buffers, and how every failure of the
// btree library is reported.
#include <sys/mount.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <utility>

#include "bdb/bdb_fixture.h"
#include "core/owners.h"

namespace kova::test {
namespace {

using BdbStoreTest = BdbTest;

// A failed call must report exactly this code; the state is cleared for the next one.
bool refused(int rc, uint32_t code = ERR_BAD_PARAMETERS) {
    const bool ok = rc == -1 && KLIBErrGet() == code;
    KLIBErrSet(ERR_SUCCESS);
    return ok;
}
std::string open_failed_line(const std::string &error) {
    return "bdb_open.cpp:" + std::to_string(KOVAErrorGetLine()) + " errno=" + error +
           ", dbopen failed.";
}

TEST_F(BdbStoreTest, RecordsRoundTripAndMissingKeysFail) {
    const mode_t old_mask = umask(077);
    ASSERT_NE(open_store(), nullptr);
    umask(old_mask);
    struct stat st {};
    ASSERT_EQ(stat(db_path().c_str(), &st), 0);
    EXPECT_EQ(st.st_mode & 0777, geteuid() == 0 ? 0666u : 0600u);  // root: readable by all
    EXPECT_EQ(db_->nCursorType, KOVA_BDB_CURSOR_NEXT);
    for (const char *kv : {"alice=1001", "bob=1002", "bob=2002", "carol=3"})  // bob replaced
        EXPECT_EQ(set(std::string(kv, strchr(kv, '=')), strchr(kv, '=') + 1), 0);
    close_store();
    ASSERT_NE(open_store(0, O_RDWR), nullptr);
    EXPECT_EQ(get("alice"), "1001");
    EXPECT_EQ(get("bob"), "2002");
    EXPECT_EQ(KOVABDbDelete(db_, "carol", 5), 0);
    for (const char *key : {"bo", "carol"}) {
        EXPECT_EQ(get(key), "<absent>");
        EXPECT_EQ(KLIBErrGet(), ERR_KEY_NOT_FOUND);
    }
    EXPECT_TRUE(refused(KOVABDbDelete(db_, "carol", 5), ERR_KEY_NOT_FOUND));

    // An empty value (the store itself never writes one) cannot be copied out.
    DBT key = {const_cast<char *>("empty"), 5}, value = {const_cast<char *>(""), 0};
    ASSERT_EQ(db_->pDb->put(db_->pDb, &key, &value, 0), 0);
    LogCapture log;
    EXPECT_EQ(get("empty"), "<absent>");
    EXPECT_EQ(KLIBErrGet(), ERR_BAD_PARAMETERS);
    EXPECT_TRUE(log.lines().at(0).text.ends_with(" KOVACheckAndRealloc failed. kovaerr=0x0D00"));
}

TEST_F(BdbStoreTest, DuplicateStoreKeepsOrdinaryDuplicatesButNeverReservedOnes) {
    ASSERT_NE(open_store(KOVA_BDB_DUP), nullptr);
    const int32_t t200 = 200, zero = 0;
    for (int i : {1, 0}) {
        EXPECT_EQ(set("users", i ? "alice" : std::string("b\0b", 3)), 0);
        EXPECT_EQ(KOVABDbConfSyncTimeSet(db_, i ? 100 : t200), 0);
        EXPECT_EQ(KOVABDbDeprecatedSet(db_, i), 0);
        EXPECT_EQ(set("#OTHER", i ? "a" : "b"), 0);
    }
    EXPECT_EQ(walk(KOVA_BDB_CURSOR_NEXT, 0),  // unpositioned: from the first record
              (std::vector<std::string>{std::string("#KOVA@DEPRECATED\0=", 18) + bytes(&zero, 4),
                                        "#KOVA@SYNC@TIME=" + bytes(&t200, 4), "#OTHER=b",
                                        "users=alice", std::string("users=b\0b", 9)}));
    EXPECT_EQ(KLIBErrGet(), ERR_BDB_END_OF_RECORDS);
    EXPECT_EQ(KOVABDbDelete(db_, "users", 5), 0);  // every record under the key
    EXPECT_EQ(get("users"), "<absent>");
}

TEST_F(BdbStoreTest, BadArgumentsAreRefused) {
    ASSERT_NE(open_store(), nullptr);
    void *buf = nullptr;
    int32_t cb = 0;
    EXPECT_TRUE(KOVABDbOpen("", O_RDWR | O_CREAT, 0) == nullptr && refused(-1));
    EXPECT_TRUE(refused(KOVABDbClose(nullptr)));
    EXPECT_TRUE(refused(KOVABDbGet(db_, "k", 1, nullptr, &cb)));
    EXPECT_TRUE(refused(KOVABDbSet(db_, "k", 1, "v", 0)));
    EXPECT_TRUE(refused(KOVABDbDelete(db_, "k", 0)));
    EXPECT_TRUE(refused(KOVABDbCursorSetType(db_, 6)));
    EXPECT_TRUE(refused(KOVABDbCursorGet(db_, 1, nullptr, &cb, &buf, &cb)));
    char held[4];
    buf = held;  // a buffer with capacity 0 is a caller's mistake
    EXPECT_TRUE(refused(KOVACheckAndRealloc(&buf, &cb, 2)) && buf == held);
    EXPECT_EQ(db_->nCursorType, KOVA_BDB_CURSOR_NEXT);
    EXPECT_TRUE(walk(KOVA_BDB_CURSOR_FIRST).empty());  // nothing was stored meanwhile
}

TEST_F(BdbStoreTest, BufferGrowthAndItsFailures) {
    void *buf = nullptr;
    int32_t cap = 0;
    ASSERT_EQ(KOVACheckAndRealloc(&buf, &cap, 8), 0);
    EXPECT_EQ(bytes(buf, cap), std::string(8, '\0'));  // zeroed
    memcpy(buf, "01234567", 8);
    EXPECT_EQ(KOVACheckAndRealloc(&buf, &cap, 4), 0);  // big enough: nothing changes
    EXPECT_EQ(bytes(buf, cap), "01234567");
    ASSERT_EQ(KOVACheckAndRealloc(&buf, &cap, 100000), 0);
    EXPECT_EQ(cap, 100000);
    EXPECT_EQ(bytes(buf, 8), "01234567");  // contents kept
    cap = 8;
    const std::pair<int32_t, std::string> failures[] = {
        {64, " NULL != *ppData, cbNeed=[64] > *pcbAlloc=[8]. errno=12/Cannot allocate memory"},
        {32, " NULL == *ppData, NULL == malloc(32). errno=12/Cannot allocate memory"},
    };
    for (const auto &[need, text] : failures) {  // growing, then allocating anew
        LogCapture log;
        AllocationFailure fail(1);
        EXPECT_EQ(KOVACheckAndRealloc(&buf, &cap, need), -1);
        EXPECT_EQ(KLIBErrGet(), ERR_OUT_OF_MEMORY);
        EXPECT_TRUE(buf == nullptr && cap == 0);  // freed, not leaked (the sanitizer checks)
        EXPECT_TRUE(log.contains(
            LOG_ERR, "bdb_check_and_realloc.cpp:" + std::to_string(KOVAErrorGetLine()) + text));
    }
    ASSERT_EQ(KOVACheckAndRealloc(&buf, &cap, 32), 0);  // usable again afterwards
    free(buf);
}

// Every allocation of a cursor read failing in turn: the call fails cleanly, nothing leaks,
// and the mode is kept for a retry.
TEST_F(BdbStoreTest, CursorReadUnderEveryAllocationFailure) {
    ASSERT_NE(open_store(), nullptr);
    ASSERT_EQ(set("alice", std::string(300, 'a')), 0);
    for (long nth = 1; nth < 5; ++nth) {
        ASSERT_EQ(KOVABDbCursorSetType(db_, KOVA_BDB_CURSOR_FIRST), 0);
        const long before = allocation_count();
        AllocationFailure fail(nth);
        const std::string got = cursor_get();
        if (allocation_count() - before < nth) {
            EXPECT_EQ(got, "alice=" + std::string(300, 'a'));
            return;
        }
        EXPECT_TRUE(got.empty() && refused(-1, ERR_OUT_OF_MEMORY));
        EXPECT_EQ(db_->nCursorType, KOVA_BDB_CURSOR_FIRST);
        KOVABDbFree(std::exchange(key_, nullptr));
        KOVABDbFree(std::exchange(value_, nullptr));
        cb_key_ = cb_value_ = 0;
    }
    FAIL() << "the read never got through";
}

TEST_F(BdbStoreTest, OpenFailuresMapErrnoAndLeaveFilesAlone) {
    EXPECT_TRUE(open_store(0, O_RDWR) == nullptr && refused(-1, ERR_FILE_NOT_FOUND));
    {
        AllocationFailure fail(1);
        EXPECT_TRUE(open_store() == nullptr && refused(-1, ERR_OUT_OF_MEMORY));
    }
    EXPECT_FALSE(file_exists(db_path()));
    // The 1.85 layer refuses duplicate mode on a file created without it (rather than
    // following the file): the caller gets the library's EINVAL.
    ASSERT_NE(open_store(), nullptr);
    close_store();
    EXPECT_TRUE(open_store(KOVA_BDB_DUP, O_RDWR) == nullptr && refused(-1, ERR_BDB_INVALID));
    write_file(db_path(), "not a btree at all\n");
    EXPECT_TRUE(open_store(0, O_RDWR) == nullptr && refused(-1, ERR_BDB_INVALID));
    EXPECT_EQ(read_file(db_path()), "not a btree at all\n");
    LogCapture log;
    EXPECT_EQ(KOVABDbOpen(path("/tmp").c_str(), O_RDWR, 0), nullptr);
    EXPECT_EQ(KLIBErrGet(), ERR_OPEN_FAILED);
    EXPECT_TRUE(log.contains(LOG_NOTICE, open_failed_line("21/Is a directory")));
}

TEST_F(BdbStoreTest, PermissionDenied) {
    ASSERT_NE(open_store(), nullptr);
    close_store();
    ASSERT_EQ(chmod(db_path().c_str(), geteuid() == 0 ? 0600 : 0), 0);
    if (geteuid() != 0) {
        EXPECT_TRUE(open_store(0, O_RDWR) == nullptr && refused(-1, ERR_ACCESS_DENIED));
        return;
    }
    // Root reads everything: a child drops to nobody, the directories let it through.
    ASSERT_EQ(chmod(root().c_str(), 0755), 0);
    const pid_t child = fork();
    ASSERT_GE(child, 0);
    if (child == 0) {
        if (setgid(65534) != 0 || setuid(65534) != 0) _exit(100);
        _exit(open_store(0, O_RDWR) == nullptr ? static_cast<int>(KLIBErrGet() >> 8) : 101);
    }
    int status = 0;
    ASSERT_EQ(waitpid(child, &status, 0), child);
    EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == ERR_ACCESS_DENIED >> 8) << status;
}

TEST_F(BdbStoreTest, ReadOnlyFileSystem) {
    if (geteuid() != 0) GTEST_SKIP() << "mounting a read-only tmpfs needs root";
    const std::string mnt = path("/tmp/ro"), file = mnt + "/users.db";
    ASSERT_EQ(mkdir(mnt.c_str(), 0755), 0);
    if (mount("kova-bdb-test", mnt.c_str(), "tmpfs", 0, "size=1m") != 0) {
        GTEST_SKIP() << "cannot mount a tmpfs here: " << strerror(errno);
    }
    ScopeGuard unmount([&] { umount2(mnt.c_str(), MNT_DETACH); });
    db_ = KOVABDbOpen(file.c_str(), O_RDWR | O_CREAT, 0);
    ASSERT_EQ(set("alice", "1001"), 0);
    close_store();
    ASSERT_EQ(mount("kova-bdb-test", mnt.c_str(), "tmpfs", MS_REMOUNT | MS_RDONLY, "size=1m"), 0)
        << strerror(errno);
    LogCapture log;
    EXPECT_EQ(KOVABDbOpen(file.c_str(), O_RDWR, 0), nullptr);
    EXPECT_EQ(KLIBErrGet(), ERR_OPEN_FAILED);  // EROFS is no errno of its own at open
    EXPECT_TRUE(log.contains(LOG_NOTICE, open_failed_line("30/Read-only file system")));
    ASSERT_NE(db_ = KOVABDbOpen(file.c_str(), O_RDONLY, 0), nullptr);  // readers still read
    EXPECT_EQ(get("alice"), "1001");
}

// The library's calls are function pointers in the DB record; swapping one in makes it fail
// the way a real disk or signal would.
int g_errno = 0;
int (*g_real_close)(DB *) = nullptr;
constexpr auto failing = [](auto...) {
    errno = g_errno;
    return -1;
};
int failing_close(DB *db) {
    g_real_close(db);
    return failing();
}

TEST_F(BdbStoreTest, LibraryFailuresAreLoggedAndMapped) {
    const struct {
        std::string call, file;
        int err;
        uint32_t code;
    } cases[] = {
        {"get", "get", EIO, ERR_DISK_IO_FAILED},
        {"get", "get", ENOSPC, ERR_BDB_GET_FAILED},
        {"put", "set", EINTR, ERR_INTERRUPTED},
        {"put", "set", ENOSPC, ERR_NOT_ENOUGH_SPACE},
        {"put", "set", EACCES, ERR_BDB_PUT_FAILED},
        {"del", "delete", EIO, ERR_DISK_IO_FAILED},
        {"del", "delete", ENOSPC, ERR_NOT_ENOUGH_SPACE},
        {"del", "delete", EPERM, ERR_BDB_DEL_FAILED},
        {"seq", "cursor_get", EINTR, ERR_INTERRUPTED},
        {"seq", "cursor_get", EINVAL, ERR_BDB_GET_FAILED},
        {"close", "close", EIO, ERR_DISK_IO_FAILED},
        {"close", "close", ENOSPC, ERR_NOT_ENOUGH_SPACE},
        {"close", "close", EROFS, ERR_READ_ONLY_FS},
        {"close", "close", EBADF, ERR_SUCCESS},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(c.call + " " + strerrorname_np(c.err));
        if (db_ != nullptr) close_store();
        ASSERT_NE(open_store(), nullptr);
        ASSERT_EQ(set("alice", "1001"), 0);
        DB *db = db_->pDb;
        if (c.call == "get") db->get = failing;
        if (c.call == "put") db->put = failing;
        if (c.call == "del") db->del = failing;
        if (c.call == "seq") db->seq = failing;
        if (c.call == "close") g_real_close = std::exchange(db->close, failing_close);
        g_errno = c.err;
        KLIBErrSet(ERR_SUCCESS);
        LogCapture log;
        const int rc = c.call == "get"   ? KOVABDbGet(db_, "alice", 5, &value_, &cb_value_)
                       : c.call == "put" ? set("alice", "1")
                       : c.call == "del" ? KOVABDbDelete(db_, "alice", 5)
                       : c.call == "seq" ? (cursor_get().empty() ? -1 : 0)
                                         : KOVABDbClose(std::exchange(db_, nullptr));
        EXPECT_EQ(rc, c.call == "close" ? 0 : -1);  // close: 0 all the same (kept as it is)
        EXPECT_EQ(KLIBErrGet(), c.code);
        ASSERT_EQ(log.lines().size(), 1u);
        EXPECT_EQ(log.lines()[0].priority, LOG_ERR);
        const std::string file = "bdb_" + c.file + ".cpp", &text = log.lines()[0].text,
                          tail = " errno=" + std::to_string(c.err) + "/" + strerror(c.err) +
                                 ", db->" + c.call + " failed.";
        EXPECT_TRUE(text.starts_with(file + ":") && text.ends_with(tail)) << text;
        if (c.code == ERR_SUCCESS) continue;  // nothing raised: the line is only logged
        EXPECT_EQ(text, file + ":" + std::to_string(KOVAErrorGetLine()) + tail);
        EXPECT_STREQ(KOVAErrorGetFile(), file.c_str());
    }

    // A reserved record whose old copy cannot be deleted is not stored: logged, no code.
    ASSERT_NE(open_store(), nullptr);
    db_->pDb->del = failing;
    g_errno = EIO;
    LogCapture log;
    EXPECT_TRUE(refused(KOVABDbConfSyncTimeSet(db_, 200), ERR_SUCCESS));
    EXPECT_TRUE(log.lines().at(0).text.starts_with("bdb_set.cpp:"));
    EXPECT_TRUE(log.lines()[0].text.ends_with(" errno=5/Input/output error, db->del failed."));
    EXPECT_TRUE(KOVABDbIsNeedToRebuild(db_, 200) == -1 && refused(-1, ERR_KEY_NOT_FOUND));
    db_->pDb->put = [](const DB *, DBT *, const DBT *, u_int) { return 1; };  // "key exists"
    EXPECT_TRUE(refused(set("alice", "1"), ERR_SUCCESS));                     // no code either
}

}  // namespace
}  // namespace kova::test
