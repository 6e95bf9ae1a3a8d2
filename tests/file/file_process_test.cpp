// Several processes at once: the lock table (lock files made on first use, nesting, no upgrade,
// timeouts against another holder), writers under the lock that lose no update while readers
// see whole files, and writers killed in the middle of a rewrite.
#include <signal.h>
#include <sys/stat.h>

#include <algorithm>
#include <random>
#include <string>

#include "file_test.h"
#include "kovasdk/file.h"
#include "support/target.h"

namespace kova::test {
namespace {

constexpr uint32_t kInfoExclusive = KLIB_LOCK_KOVAINFO | KLIB_LOCK_EX | KLIB_LOCK_NB;
constexpr uint32_t kInfoShared = KLIB_LOCK_KOVAINFO | KLIB_LOCK_SH | KLIB_LOCK_NB;
constexpr uint32_t kSmbExclusive = KLIB_LOCK_SMB | KLIB_LOCK_EX | KLIB_LOCK_NB;

class FileLock : public SandboxTest {
  protected:
    void TearDown() override { ErrKLIBFileCloseLock(); }

    // Whether another process can take the mask right now (timeout 0).
    static bool free_for_others(uint32_t mask) {
        return wait_child(fork_child([mask] {
                   // The child inherits our table and descriptors: drop them without unlocking.
                   ErrKLIBFileCloseLock();
                   return ErrKLIBFileLock(mask, 0) == 0 ? 0 : 1;
               })) == 0;
    }

    // Another process holding mask until *release_fd is closed. A flock lock belongs to the open
    // file, which the child inherits: our own table then lets go of it without unlocking.
    static pid_t hold_in_child(uint32_t mask, int *release_fd) {
        int release[2];
        EXPECT_EQ(pipe(release), 0);
        EXPECT_EQ(ErrKLIBFileLock(mask, 0), 0);
        const pid_t pid = fork_child([&] {
            char c;
            close(release[1]);
            return read(release[0], &c, 1) == 0 ? 0 : 3;  // end of file: released
        });
        close(release[0]);
        ErrKLIBFileCloseLock();
        *release_fd = release[1];
        return pid;
    }

    std::string info_ = path("/etc/kovainfo.conf");
};

TEST_F(FileLock, LockFilesAreMadeOnFirstUse) {
    write_file(path("/tmp/lock"), "not a directory");
    EXPECT_EQ(ErrKLIBFileLock(kInfoExclusive, 0), -1);
    EXPECT_TRUE(raised(ERR_CREATE_FAILED, 37));
    ASSERT_EQ(unlink(path("/tmp/lock").c_str()), 0);

    ASSERT_EQ(ErrKLIBFileLock(kInfoExclusive, 0), 0);
    struct stat st {};
    ASSERT_EQ(stat(path("/tmp/lock").c_str(), &st), 0);
    EXPECT_EQ(st.st_mode & 07777, 0755u);
    EXPECT_EQ(list_dir(path("/tmp/lock")).size(), KLIB_LOCK_ENTRIES);
    EXPECT_TRUE(file_exists(path("/tmp/lock/lock_hotswap")));
    EXPECT_EQ(rgslckList[0].count, 1);
    EXPECT_EQ(rgslckList[0].mode, 6);
    EXPECT_EQ(ErrKLIBFileUnlock(KLIB_LOCK_KOVAINFO), 0);
    EXPECT_EQ(rgslckList[0].pFile, nullptr);
}

// Locks nest by count; a reset keeps the named ones, once, and drops the rest; closing drops all.
TEST_F(FileLock, NestingResetAndClose) {
    ASSERT_EQ(ErrKLIBFileLock(kInfoExclusive, 0), 0);
    ASSERT_EQ(ErrKLIBFileLock(kInfoExclusive, 0), 0);
    EXPECT_EQ(rgslckList[0].count, 2);
    EXPECT_EQ(ErrKLIBFileUnlock(KLIB_LOCK_KOVAINFO), 0);
    EXPECT_FALSE(free_for_others(kInfoExclusive));  // released only by the second unlock
    EXPECT_EQ(ErrKLIBFileUnlock(KLIB_LOCK_KOVAINFO), 0);
    EXPECT_TRUE(free_for_others(kInfoExclusive));
    EXPECT_EQ(ErrKLIBFileUnlock(KLIB_LOCK_KOVAINFO), 0);  // not held: skipped silently

    for (const uint32_t mask : {kInfoExclusive, kInfoExclusive, kSmbExclusive})
        ASSERT_EQ(ErrKLIBFileLock(mask, 0), 0);
    EXPECT_EQ(ErrKLIBFileResetLock(KLIB_LOCK_KOVAINFO), 0);
    EXPECT_EQ(rgslckList[0].count, 1);
    EXPECT_TRUE(free_for_others(kSmbExclusive));
    EXPECT_FALSE(free_for_others(kInfoExclusive));
    EXPECT_EQ(ErrKLIBFileCloseLock(), 0);
    EXPECT_TRUE(free_for_others(kInfoExclusive));
}

TEST_F(FileLock, SharedIsNotUpgraded) {
    ASSERT_EQ(ErrKLIBFileLock(kInfoShared, 0), 0);
    EXPECT_TRUE(free_for_others(kInfoShared));
    EXPECT_LT(seconds_for([] { EXPECT_EQ(ErrKLIBFileLock(kInfoExclusive, 5), -1); }), 1.0);
    EXPECT_EQ(KLIBErrGet(), ERR_LOCK_FAILED);
    EXPECT_EQ(rgslckList[0].count, 1);
    EXPECT_TRUE(free_for_others(kInfoShared));
    // A combined request touching a held and a new entry releases what it took.
    ASSERT_EQ(ErrKLIBFileLock(KLIB_LOCK_PW | KLIB_LOCK_EX | KLIB_LOCK_NB, 0), 0);
    EXPECT_EQ(ErrKLIBFileLock(KLIB_LOCK_PW | KLIB_LOCK_KOVAINFO | kInfoExclusive, 0), -1);
    EXPECT_EQ(rgslckList[1].count, 1);
    EXPECT_EQ(ErrKLIBFileLock(0x1000000 | KLIB_LOCK_EX | KLIB_LOCK_NB, 0), -1);  // no such file
}

// Timeout 0 fails at once, timeout 1 after about a second, the system information setter after
// its five; a lock the holder releases while we wait is taken.
TEST_F(FileLock, HeldByAnotherProcess) {
    ASSERT_EQ(KOVAINFOSetKeyValue("hostname", "nas1"), 0);
    EXPECT_NE(read_file(info_).find("\nhostname=\"nas1\"\n"), std::string::npos);
    EXPECT_EQ(rgslckList[0].pFile, nullptr);
    int release = -1;
    const pid_t holder = hold_in_child(kInfoExclusive, &release);
    EXPECT_LT(seconds_for([] { EXPECT_EQ(ErrKLIBFileLock(kInfoExclusive, 0), -1); }), 0.2);
    EXPECT_TRUE(raised(ERR_LOCK_FAILED, 87));
    EXPECT_STREQ(KOVAErrorGetFile(), "file_lock.cpp");
    const double waited = seconds_for([] { EXPECT_EQ(ErrKLIBFileLock(kInfoExclusive, 1), -1); });
    EXPECT_GT(waited, 0.9);
    EXPECT_LT(waited, 2.5);
    EXPECT_GT(seconds_for([] { EXPECT_EQ(KOVAINFOSetKeyValue("hostname", "nas2"), -1); }), 4.5);
    EXPECT_EQ(rgslckList[0].pFile, nullptr);

    const pid_t releaser = fork_child([release] {
        usleep(300000);
        return close(release);
    });
    close(release);
    EXPECT_LT(seconds_for([] { EXPECT_EQ(ErrKLIBFileLock(kInfoExclusive, 3), 0); }), 2.0);
    EXPECT_EQ(wait_child(holder), 0);
    EXPECT_EQ(wait_child(releaser), 0);
}

using FileConcurrency = FileLock;
constexpr int kWriters = 8;
constexpr int kRounds = 200;

// The shared file with every writer's counter at value: header, one line per writer, trailer.
std::string counters(int value) {
    std::string text = "# head\n";
    for (int w = 0; w < kWriters; ++w)
        text += "writer" + std::to_string(w) + "=" + std::to_string(value) + "\n";
    return text + "tail=1\n";
}

// Whether text is some complete version of the shared file.
bool complete(const std::string &text) {
    return text.rfind("# head\n", 0) == 0 && text.ends_with("tail=1\n") &&
           std::count(text.begin(), text.end(), '\n') == kWriters + 2;
}

TEST_F(FileConcurrency, WritersUnderTheLockLoseNoUpdate) {
    write_file(info_, counters(0));
    const char *info = info_.c_str();
    // A reader without lock, which stops at the first incomplete file it sees.
    const pid_t reader = fork_child([info] {
        for (;;) {
            if (!complete(read_file(info))) return 1;
        }
    });
    pid_t writers[kWriters];
    for (int w = 0; w < kWriters; ++w) {
        writers[w] = fork_child([info, w] {
            const std::string key = "writer" + std::to_string(w);
            for (int i = 0; i < kRounds; ++i) {
                char buf[16];
                if (ErrKLIBFileLock(kInfoExclusive, 60) != 0) return 1;
                if (KLIBFileGetKeyValue(info, key.c_str(), buf, sizeof buf, 0) <= 0) return 2;
                const std::string next = std::to_string(atoi(buf) + 1);
                if (KLIBFileSetKeyValue(info, key.c_str(), next.c_str(), nullptr) != 1) return 3;
                if (ErrKLIBFileUnlock(KLIB_LOCK_KOVAINFO) != 0) return 4;
            }
            return 0;
        });
    }
    for (const pid_t pid : writers)
        EXPECT_EQ(wait_child(pid), 0);
    EXPECT_EQ(waitpid(reader, nullptr, WNOHANG), 0) << "the reader saw an incomplete file";
    kill(reader, SIGKILL);
    EXPECT_EQ(wait_child(reader), -1);

    EXPECT_EQ(read_file(info_), counters(kRounds));
    EXPECT_TRUE(new_entries("/etc").empty());
}

// The file with value n: a large fixed body, so that each rewrite takes a while, and one key.
std::string version(int n) {
    std::string text;
    for (int i = 0; i < 3000; ++i)
        text += "filler" + std::to_string(i) + "=\"0123456789\"\n";
    return text + "round=" + std::to_string(n) + "\n";
}

// Two writers rewriting under the lock, both killed at a random instant, hundreds of times:
// the file is always a whole version, and the nameless temporary files leave (almost) nothing.
TEST_F(FileConcurrency, WritersKilledMidRewriteLeaveOldOrNew) {
    constexpr int kRounds = 150;  // two kills each
    write_file(info_, version(0));
    const char *info = info_.c_str();
    std::mt19937 random(20240611);
    int last = 0;
    for (int round = 0; round < kRounds; ++round) {
        pid_t writers[2];
        for (pid_t &writer : writers) {
            writer = fork_child([info, last] {
                for (int n = last + 1;; ++n) {
                    if (ErrKLIBFileLock(kInfoExclusive, 5) != 0) return 1;
                    if (KLIBFileSetKeyValue(info, "round", std::to_string(n).c_str(), nullptr) !=
                        1) {
                        return 1;
                    }
                    ErrKLIBFileUnlock(KLIB_LOCK_KOVAINFO);
                }
            });
        }
        // Under an emulator a rewrite takes several times longer: kills fall later there.
        usleep(std::uniform_int_distribution<int>(200, kEmulated ? 40000 : 8000)(random));
        for (const pid_t writer : writers) {
            kill(writer, SIGKILL);
            EXPECT_EQ(wait_child(writer), -1);
        }
        char buf[16];
        ASSERT_GT(KLIBFileGetKeyValue(info, "round", buf, sizeof buf, 0), 0);
        const int seen = atoi(buf);
        ASSERT_EQ(read_file(info_), version(seen)) << "after round " << round;
        last = std::max(last, seen);
    }
    EXPECT_GT(last, 0);
    const std::vector<std::string> left = new_entries("/etc");
    RecordProperty("leftover_temporary_files", static_cast<int>(left.size()));
    printf("%d kills: %zu temporary files left\n", 2 * kRounds, left.size());
    // A kill between naming and renaming leaves a file: a few in 300 on an idle machine, more
    // under load (6 with the suite running beside it) and under an emulator.
    EXPECT_LE(left.size(), kEmulated ? 20u : 10u);
    // Leftovers of killed writers do not disturb the next writer.
    EXPECT_EQ(KLIBFileSetKeyValue(info, "round", "-1", nullptr), 1);
    EXPECT_EQ(read_file(info_), version(-1));
}

}  // namespace
}  // namespace kova::test
