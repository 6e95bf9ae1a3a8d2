// Faults injected into the commit and the appends through the system-call seam: every step of
// every rewrite raises its defined code and line and leaves the old file byte for byte; a file
// that cannot be opened is never taken for a missing one; FIFOs and symlinks planted where a
// settings or lock file belongs are refused without blocking.
#include <fcntl.h>
#include <signal.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <functional>
#include <string>

#include "file_test.h"
#include "kovasdk/file.h"
#include "support/sys_fault.h"

namespace kova::test {
namespace {

using Names = std::vector<std::string>;
using sys::Calls;

// A 40-line settings file with a section, as the faults find it.
std::string forty_lines() {
    std::string text = "top=1\n[s]\n";
    for (int i = 1; i < 40; ++i)
        text += "key" + std::to_string(i) + "=\"value " + std::to_string(i) + "\"\n";
    return text;
}

class FileFault : public FileTest {
  protected:
    void SetUp() override { write_file(conf_, forty_lines()); }
    // The settings file as it was, and nothing beside it.
    void expect_untouched() {
        EXPECT_EQ(read_file(conf_), forty_lines());
        EXPECT_EQ(new_entries("/etc"), (Names{"test.conf"}));
    }
};

// The defined lines of a rewrite's commit steps, the call that makes it, and which of its
// allocations is the temporary file's stream (a hash made for the call comes first).
struct CommitCase {
    const char *name;
    std::function<int(const char *)> call;
    int create, stream, flush, sync, close, rename;
    long stream_allocation = 2;
};

const CommitCase kCommitCases[] = {
    {"KLIBFileSetKeyValue",
     [](const char *p) { return KLIBFileSetKeyValue(p, "key7", "x", nullptr); }, 105, 109, 151, 157,
     161, 166},
    {"KLIBFileSetKeys",
     [](const char *p) {
         return KLIBFileSetKeys(p, Hash{{"key7", "x"}}, nullptr, nullptr);
     },
     204, 208, 269, 275, 279, 284, 3},
    {"ErrKLIBFileSetSection",
     [](const char *p) {
         return ErrKLIBFileSetSection(p, "s", nullptr, Hash{{"a", "1"}}, nullptr);
     },
     86, 90, 132, 138, 142, 147, 3},
    {"ErrKLIBFileRemoveSection", [](const char *p) { return ErrKLIBFileRemoveSection(p, "s"); }, 86,
     90, 132, 138, 142, 147},
};

TEST_F(FileFault, EveryCommitStepRaisesItsLineAndKeepsTheFile) {
    for (const CommitCase &c : kCommitCases) {
        SCOPED_TRACE(c.name);
        const auto fails = [&](uint32_t code, int line) {
            EXPECT_EQ(c.call(conf_), -1);
            EXPECT_TRUE(raised(code, line));
            expect_untouched();
        };
        {
            SysFault<&Calls::open> f(2, ENOSPC);  // the first open is the file itself
            fails(ERR_OPEN_FAILED, c.create);
        }
        {
            AllocationFailure f(c.stream_allocation);
            fails(ERR_OPEN_FAILED, c.stream);
        }
        {
            SysFault<&Calls::write> f(1, ENOSPC);
            fails(ERR_WRITE_FAILED, c.flush);
        }
        {
            SysFault<&Calls::fsync> f(1, EIO);
            fails(ERR_WRITE_FAILED, c.sync);
        }
        {
            SysFault<&Calls::fchown> f(1, EPERM);
            fails(ERR_WRITE_FAILED, c.sync);
        }
        {
            SysFault<&Calls::fchmod> f(1, EPERM);
            fails(ERR_WRITE_FAILED, c.sync);
        }
        {
            SysFault<&Calls::close> f(2, EIO);  // the first close is the file's
            fails(ERR_WRITE_FAILED, c.close);
        }
        {
            SysFault<&Calls::rename> f(1, EXDEV);
            fails(ERR_RENAME_FAILED, c.rename);
        }
        {
            SysFault<&Calls::linkat> f(1, ENOSPC, true);  // the temporary name cannot be made
            fails(ERR_OPEN_FAILED, c.create);
        }
        EXPECT_GE(c.call(conf_), 0);  // and without a fault it goes through
        write_file(conf_, forty_lines());
    }
}

// The writers whose lines are not all defined: each step fails cleanly all the same.
TEST_F(FileFault, RewritesWithoutDefinedLinesFailCleanly) {
    const std::function<int()> calls[] = {
        [&] { return KLIBFileSetLine(conf_, "key3", "x", 0); },
        [&] { return KLIBFileAddLine(conf_, "key3", "x", 0); },
        [&] { return KLIBFileRemoveKey(conf_, "key3"); },
        [&] { return KLIBFileAppendKey(conf_, "k", "v", nullptr); },
        [&] { return KLIBFileReplaceSubStr(conf_, "value", "v"); },
    };
    for (const auto &call : calls) {
        {
            SysFault<&Calls::fsync> f(1, EIO);
            EXPECT_EQ(call(), -1);
            EXPECT_EQ(KLIBErrGet(), ERR_WRITE_FAILED);
        }
        {
            SysFault<&Calls::rename> f(1, EXDEV);
            EXPECT_EQ(call(), -1);
            EXPECT_EQ(KLIBErrGet(), ERR_RENAME_FAILED);
        }
        expect_untouched();
    }
}

// Only a file that does not exist is created; one that exists but cannot be opened (no
// permission, no memory for its stream) fails and stays as it was.
TEST_F(FileFault, AFileThatCannotBeOpenedIsNotReplaced) {
    const std::function<int()> setters[] = {
        [&] { return KLIBFileSetKeyValue(conf_, "a", "1", nullptr); },
        [&] { return KLIBFileSetLine(conf_, "key1", "a=1", 0); },
        [&] {
            return KLIBFileSetKeys(conf_, Hash{{"a", "1"}}, nullptr, nullptr);
        },
        [&] { return KLIBFileAddLine(conf_, nullptr, "a=1", 0); },
        [&] { return KLIBFileAddLine(conf_, nullptr, "a=1", KLIB_FILE_ADD_AFTER); },
        [&] { return KLIBFileAppendKey(conf_, "a", "1", nullptr); },
    };
    for (const auto &set : setters) {
        SysFault<&Calls::open> f(1, EACCES);
        EXPECT_EQ(set(), -1);
        EXPECT_EQ(KLIBErrGet(), ERR_OPEN_FAILED);
        expect_untouched();
    }
    SysFault<&Calls::open> f(1, EACCES);
    EXPECT_EQ(KLIBFileSetKeyValue(conf_, "a", "1", nullptr), -1);
    EXPECT_TRUE(raised(ERR_OPEN_FAILED, 69));
}

// Every allocation of the writers, failed in turn: the file is byte-identical after each.
TEST_F(FileFault, EveryAllocationFailureLeavesTheFile) {
    const std::function<int(PKLIBSZHASH)> writers[] = {
        [&](PKLIBSZHASH) { return KLIBFileSetKeyValue(conf_, "key20", "x", nullptr); },
        [&](PKLIBSZHASH h) { return KLIBFileSetKeys(conf_, h, nullptr, nullptr); },
        [&](PKLIBSZHASH) { return KLIBFileSetLine(conf_, "key20", "x=1", 0); },
        [&](PKLIBSZHASH) { return KLIBFileAddLine(conf_, "key20", "x=1", 0); },
        [&](PKLIBSZHASH) { return KLIBFileAddLine(conf_, nullptr, "x=1", KLIB_FILE_ADD_AFTER); },
        [&](PKLIBSZHASH h) { return ErrKLIBFileAddSection(conf_, "t", h, nullptr); },
    };
    for (const auto &write : writers) {
        int failures = 0;
        for (long nth = 1;; ++nth, ++failures) {
            Hash pairs{{"key20", "x"}, {"new", "y"}};
            int rc = 0;
            {
                AllocationFailure guard(nth);
                rc = write(pairs);
            }
            if (rc != -1) break;
            EXPECT_TRUE(KLIBErrGet() == ERR_OUT_OF_MEMORY || KLIBErrGet() == ERR_OPEN_FAILED);
            expect_untouched();
        }
        EXPECT_GT(failures, 0);
        write_file(conf_, forty_lines());
    }
}

// A disk that fills up after the first 100 bytes of a write.
ssize_t write_then_full(int fd, const void *buffer, size_t size) {
    static size_t room = 0;
    if (buffer == nullptr) return static_cast<ssize_t>(room = size);  // sets the room left
    if (room == 0) {
        errno = ENOSPC;
        return -1;
    }
    const ssize_t n = sys::real_calls().write(fd, buffer, std::min(size, room));
    room -= static_cast<size_t>(n);
    return n;
}

// A disk that fills up in the middle of an append: what was written is cut off again.
TEST_F(FileFault, FailedAppendsAreCutBack) {
    const std::string long_line(20000, 'v');
    sys::calls().write = write_then_full;
    write_then_full(-1, nullptr, 100);
    EXPECT_EQ(KLIBFileAddLine(conf_, nullptr, long_line.c_str(), KLIB_FILE_ADD_AFTER), -1);
    EXPECT_EQ(KLIBErrGet(), ERR_WRITE_FAILED);
    expect_untouched();
    write_then_full(-1, nullptr, 100);
    EXPECT_EQ(ErrKLIBFileAddSection(conf_, "t", Hash{{"k", long_line.c_str()}}, nullptr), -1);
    sys::calls().write = sys::real_calls().write;
    expect_untouched();
    {
        SysFault<&Calls::fsync> f(1, EIO);
        EXPECT_EQ(KLIBFileAddLine(conf_, nullptr, "x=1", KLIB_FILE_ADD_AFTER), -1);
    }
    expect_untouched();
}

// Runs fn in a child that is killed after two seconds: a call that blocks fails the test
// instead of hanging it. The child's result: fn's, or -1 when it had to be killed.
int within_two_seconds(const std::function<int()> &fn) {
    return wait_child(fork_child([&] {
        alarm(2);
        return fn();
    }));
}

TEST_F(FileFault, FifosAreRefusedWithoutBlocking) {
    ASSERT_EQ(unlink(conf_), 0);
    ASSERT_EQ(mkfifo(conf_, 0644), 0);
    char buf[64];
    const std::function<int()> calls[] = {
        [&] { return KLIBFileGetKeyValue(conf_, "a", buf, sizeof buf, 0) == -1 ? 0 : 1; },
        [&] { return KLIBFileGetLine(conf_, "a", buf, sizeof buf, 0) == -1 ? 0 : 1; },
        [&] { return KLIBFileSetKeyValue(conf_, "a", "1", nullptr) == -1 ? 0 : 1; },
        [&] {
            return KLIBFileSetKeys(conf_, Hash{{"a", "1"}}, nullptr, nullptr) == -1 ? 0 : 1;
        },
        [&] { return KLIBFileAddLine(conf_, nullptr, "a", KLIB_FILE_ADD_AFTER) == -1 ? 0 : 1; },
        [&] { return ErrKLIBFileAddSection(conf_, "t", Hash{}, nullptr) == -1 ? 0 : 1; },
        [&] {
            return ErrKLIBFileSetPair(conf_, Hash{{"a", "1"}}, nullptr) == -1 ? 0 : 1;
        },
    };
    for (const auto &call : calls)
        EXPECT_EQ(within_two_seconds(call), 0);
    // A FIFO planted at a lock file's name.
    ASSERT_EQ(ErrKLIBILockCheckDir(), 0);
    const std::string lock = path("/tmp/lock/lock_pw");
    ASSERT_EQ(unlink(lock.c_str()), 0);
    ASSERT_EQ(mkfifo(lock.c_str(), 0644), 0);
    EXPECT_EQ(within_two_seconds([] { return ErrKLIBFileLock(0x16, 0) == -1 ? 0 : 1; }), 0);
}

// The loser of two processes creating the lock directory at once finds it made by the other.
int mkdir_lost_race(const char *path, mode_t mode) {
    sys::real_calls().mkdir(path, mode);
    errno = EEXIST;
    return -1;
}

TEST_F(FileFault, LockDirectoryRaceAndPlantedLinks) {
    sys::calls().mkdir = mkdir_lost_race;
    const int rc = ErrKLIBILockCheckDir();
    sys::calls().mkdir = sys::real_calls().mkdir;
    EXPECT_EQ(rc, 0);
    EXPECT_TRUE(file_exists(path("/tmp/lock/lock_kovainfo")));

    // A lock file that is a symlink is not written through.
    const std::string outside = path("/etc/outside");
    write_file(outside, "precious\n");
    const std::string lock = path("/tmp/lock/lock_gr");
    ASSERT_EQ(unlink(lock.c_str()), 0);
    ASSERT_EQ(symlink(outside.c_str(), lock.c_str()), 0);
    EXPECT_EQ(ErrKLIBFileLock(0x26, 0), -1);
    EXPECT_EQ(read_file(outside), "precious\n");

    // A lock directory replaced by a symlink to somewhere else is refused.
    ASSERT_EQ(system(("rm -rf " + path("/tmp/lock")).c_str()), 0);
    const std::string elsewhere = path("/etc/elsewhere");
    ASSERT_EQ(mkdir(elsewhere.c_str(), 0755), 0);
    ASSERT_EQ(symlink(elsewhere.c_str(), path("/tmp/lock").c_str()), 0);
    EXPECT_EQ(ErrKLIBFileLock(0x806, 0), -1);
    EXPECT_TRUE(raised(ERR_CREATE_FAILED, 37));
    EXPECT_EQ(list_dir(elsewhere), Names{});
}

}  // namespace
}  // namespace kova::test
