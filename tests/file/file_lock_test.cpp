// The lock table: lock files made on first use, nesting, no upgrade, other processes.
#include <sys/stat.h>

#include <chrono>

#include "file_process_helpers.h"
#include "kovasdk/error.h"
#include "kovasdk/file.h"
#include "support/sandbox.h"

namespace {

using kova::test::fork_child;
using kova::test::seconds_since;
using kova::test::wait_child;

constexpr uint32_t kInfoExclusive = KLIB_LOCK_KOVAINFO | KLIB_LOCK_EX | KLIB_LOCK_NB;
constexpr uint32_t kInfoShared = KLIB_LOCK_KOVAINFO | KLIB_LOCK_SH | KLIB_LOCK_NB;

class FileLock : public kova::test::SandboxTest {
  protected:
    void TearDown() override { ErrKLIBFileCloseLock(); }

    // Whether another process can take the mask right now (timeout 0).
    bool free_for_others(uint32_t mask) {
        return wait_child(fork_child([mask] {
                   // The child inherits our table and descriptors: drop them without unlocking.
                   ErrKLIBFileCloseLock();
                   return ErrKLIBFileLock(mask, 0) == 0 ? 0 : 1;
               })) == 0;
    }

    // A child that holds mask until the returned pipe is closed; waits until it holds it.
    pid_t hold_in_child(uint32_t mask, int *release_fd) {
        int ready[2];
        int release[2];
        EXPECT_EQ(pipe(ready), 0);
        EXPECT_EQ(pipe(release), 0);
        const pid_t pid = fork_child([&] {
            close(ready[0]);
            close(release[1]);
            ErrKLIBFileCloseLock();
            const char ok = ErrKLIBFileLock(mask, 0) == 0 ? 'y' : 'n';
            if (write(ready[1], &ok, 1) != 1) return 2;
            char c;
            (void)!read(release[0], &c, 1);
            return 0;
        });
        close(ready[1]);
        close(release[0]);
        char ok = 'n';
        EXPECT_EQ(read(ready[0], &ok, 1), 1);
        EXPECT_EQ(ok, 'y');
        close(ready[0]);
        *release_fd = release[1];
        return pid;
    }
};

TEST_F(FileLock, LockFilesAreMadeOnFirstUse) {
    ASSERT_FALSE(kova::test::file_exists(path("/tmp/lock")));
    ASSERT_EQ(ErrKLIBFileLock(kInfoExclusive, 0), 0);
    struct stat st {};
    ASSERT_EQ(stat(path("/tmp/lock").c_str(), &st), 0);
    EXPECT_EQ(st.st_mode & 07777, 0755u);
    EXPECT_EQ(kova::test::list_dir(path("/tmp/lock")).size(), KLIB_LOCK_ENTRIES);
    EXPECT_TRUE(kova::test::file_exists(path("/tmp/lock/lock_hotswap")));
    EXPECT_EQ(rgslckList[0].count, 1);
    EXPECT_EQ(rgslckList[0].mode, 6);
    EXPECT_EQ(ErrKLIBFileUnlock(KLIB_LOCK_KOVAINFO), 0);
    EXPECT_EQ(rgslckList[0].pFile, nullptr);
}

TEST_F(FileLock, NestingAndRelease) {
    ASSERT_EQ(ErrKLIBFileLock(kInfoExclusive, 0), 0);
    ASSERT_EQ(ErrKLIBFileLock(kInfoExclusive, 0), 0);
    EXPECT_EQ(rgslckList[0].count, 2);
    EXPECT_FALSE(free_for_others(kInfoExclusive));
    EXPECT_EQ(ErrKLIBFileUnlock(KLIB_LOCK_KOVAINFO), 0);
    EXPECT_FALSE(free_for_others(kInfoExclusive));  // released only by the second unlock
    EXPECT_EQ(ErrKLIBFileUnlock(KLIB_LOCK_KOVAINFO), 0);
    EXPECT_TRUE(free_for_others(kInfoExclusive));
    EXPECT_EQ(ErrKLIBFileUnlock(KLIB_LOCK_KOVAINFO), 0);  // not held: skipped silently
}

TEST_F(FileLock, SharedIsNotUpgraded) {
    ASSERT_EQ(ErrKLIBFileLock(kInfoShared, 0), 0);
    EXPECT_TRUE(free_for_others(kInfoShared));
    EXPECT_EQ(ErrKLIBFileLock(kInfoExclusive, 5), -1);  // refused at once, not after 5 s
    EXPECT_EQ(KLIBErrGet(), ERR_LOCK_FAILED);
    EXPECT_EQ(rgslckList[0].count, 1);
    EXPECT_TRUE(free_for_others(kInfoShared));
    // A combined request touching a held and a new entry releases what it took.
    ASSERT_EQ(ErrKLIBFileLock(KLIB_LOCK_PW | KLIB_LOCK_EX | KLIB_LOCK_NB, 0), 0);
    EXPECT_EQ(ErrKLIBFileLock(KLIB_LOCK_PW | KLIB_LOCK_KOVAINFO | kInfoExclusive, 0), -1);
    EXPECT_EQ(rgslckList[1].count, 1);
    EXPECT_EQ(ErrKLIBFileLock(0x1000000 | KLIB_LOCK_EX | KLIB_LOCK_NB, 0), -1);  // no such file
}

TEST_F(FileLock, HeldByAnotherProcess) {
    int release = -1;
    const pid_t holder = hold_in_child(kInfoExclusive, &release);
    auto start = std::chrono::steady_clock::now();
    EXPECT_EQ(ErrKLIBFileLock(kInfoExclusive, 0), -1);
    EXPECT_LT(seconds_since(start), 0.2);
    EXPECT_EQ(KLIBErrGet(), ERR_LOCK_FAILED);
    EXPECT_EQ(KOVAErrorGetLine(), 87);
    EXPECT_STREQ(KOVAErrorGetFile(), "file_lock.cpp");
    start = std::chrono::steady_clock::now();
    EXPECT_EQ(ErrKLIBFileLock(kInfoExclusive, 1), -1);
    const double waited = seconds_since(start);
    EXPECT_GT(waited, 0.9);
    EXPECT_LT(waited, 2.5);
    EXPECT_EQ(rgslckList[0].pFile, nullptr);
    // Released by the holder while we wait: taken within the timeout.
    const pid_t releaser = fork_child([release] {
        usleep(300000);
        close(release);
        return 0;
    });
    close(release);
    start = std::chrono::steady_clock::now();
    EXPECT_EQ(ErrKLIBFileLock(kInfoExclusive, 3), 0);
    EXPECT_LT(seconds_since(start), 2.0);
    EXPECT_EQ(wait_child(holder), 0);
    EXPECT_EQ(wait_child(releaser), 0);
}

TEST_F(FileLock, ResetAndCloseLocks) {
    ASSERT_EQ(ErrKLIBFileLock(kInfoExclusive, 0), 0);
    ASSERT_EQ(ErrKLIBFileLock(kInfoExclusive, 0), 0);
    ASSERT_EQ(ErrKLIBFileLock(KLIB_LOCK_SMB | KLIB_LOCK_EX | KLIB_LOCK_NB, 0), 0);
    EXPECT_EQ(ErrKLIBFileResetLock(KLIB_LOCK_KOVAINFO), 0);
    EXPECT_EQ(rgslckList[0].count, 1);
    EXPECT_EQ(rgslckList[5].pFile, nullptr);
    EXPECT_TRUE(free_for_others(KLIB_LOCK_SMB | KLIB_LOCK_EX | KLIB_LOCK_NB));
    EXPECT_FALSE(free_for_others(kInfoExclusive));
    EXPECT_EQ(ErrKLIBFileCloseLock(), 0);
    EXPECT_TRUE(free_for_others(kInfoExclusive));
}

TEST_F(FileLock, LockDirectoryCannotBeMade) {
    kova::test::write_file(path("/tmp/lock"), "not a directory");
    EXPECT_EQ(ErrKLIBFileLock(kInfoExclusive, 0), -1);
    EXPECT_EQ(KLIBErrGet(), ERR_CREATE_FAILED);
    EXPECT_EQ(KOVAErrorGetLine(), 37);
}

TEST_F(FileLock, SystemInfoSetterTakesTheLock) {
    EXPECT_EQ(KOVAINFOSetKeyValue("hostname", "nas1"), 0);
    char buf[32];
    EXPECT_EQ(KLIBFileGetKeyValue(path("/etc/kovainfo.conf").c_str(), "hostname", buf, 32, 0), 5);
    EXPECT_STREQ(buf, "nas1");
    EXPECT_NE(kova::test::read_file(path("/etc/kovainfo.conf")).find("hostname=\"nas1\"\n"),
              std::string::npos);
    int release = -1;
    const pid_t holder = hold_in_child(kInfoExclusive, &release);
    const auto start = std::chrono::steady_clock::now();
    EXPECT_EQ(KOVAINFOSetKeyValue("hostname", "nas2"), -1);
    EXPECT_GT(seconds_since(start), 4.5);  // five seconds of retries
    close(release);
    EXPECT_EQ(wait_child(holder), 0);
}

}  // namespace
