// Shell-argument escaping and the exclusive lock file.
#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <string>

#include "kovasdk/error.h"
#include "kovasdk/proc.h"
#include "proc/proc_test_support.h"

namespace kova::test {
namespace {

TEST(EncShParam, EscapesEachByteWhileRoomRemains) {
    char out[8];
    EXPECT_EQ(KLIBEncShParam("ab", out, 5), 0);
    EXPECT_STREQ(out, "\\a\\b");
    EXPECT_EQ(KLIBEncShParam("ab", out, 4), -1);
    EXPECT_STREQ(out, "\\a");
    EXPECT_EQ(KLIBEncShParam("", out, 1), 0);
    EXPECT_STREQ(out, "");
    EXPECT_EQ(KLIBEncShParam("a", out, 2), -1);
    EXPECT_STREQ(out, "");
    EXPECT_EQ(KLIBEncShParam(nullptr, out, 8), -1);
    EXPECT_EQ(KLIBErrGet(), static_cast<uint32_t>(ERR_BAD_PARAMETERS));
    EXPECT_EQ(KLIBEncShParam("a", out, 0), -1);
}

// Every byte 1..255, escaped, stands unquoted in a command and reaches the program unchanged.
TEST(EncShParam, EveryByteSurvivesTheShell) {
    std::string all;
    for (int c = 1; c < 256; ++c)
        all += static_cast<char>(c);
    std::string escaped(4 * all.size(), '\0');
    ASSERT_EQ(KLIBEncShParam(all.c_str(), escaped.data(), static_cast<int>(escaped.size())), 0);
    // popen runs /bin/sh -c with the command.
    FILE *pipe = popen(("printf %s " + std::string(escaped.c_str())).c_str(), "r");
    ASSERT_NE(pipe, nullptr);
    std::string back;
    char buf[512];
    size_t n;
    while ((n = fread(buf, 1, sizeof buf, pipe)) > 0)
        back.append(buf, n);
    EXPECT_EQ(pclose(pipe), 0);
    EXPECT_EQ(back, all);
}

using ExclusiveLockTest = SandboxTest;

TEST_F(ExclusiveLockTest, CreatesTakesAndReleases) {
    const std::string file = path("/tmp/test.lock");
    int budget = 1000;
    const int fd = GetExclusiveFileLock(file.c_str(), &budget);
    ASSERT_GE(fd, 0);
    EXPECT_EQ(budget, 1000);  // nothing waited for
    EXPECT_TRUE(file_exists(file));
    EXPECT_EQ(ReleaseExclusiveFileLock(fd), 0);
    budget = 0;
    const int again = GetExclusiveFileLock(file.c_str(), &budget);
    EXPECT_GE(again, 0);
    ReleaseExclusiveFileLock(again);
}

TEST_F(ExclusiveLockTest, HeldLockTimesOutAfterTheBudget) {
    const std::string file = path("/tmp/test.lock");
    int budget = 0;
    const int held = GetExclusiveFileLock(file.c_str(), &budget);
    ASSERT_GE(held, 0);
    budget = 500;
    const auto start = std::chrono::steady_clock::now();
    EXPECT_EQ(GetExclusiveFileLock(file.c_str(), &budget), -2);
    const auto waited = std::chrono::steady_clock::now() - start;
    EXPECT_EQ(KLIBErrGet(), static_cast<uint32_t>(ERR_LOCK_FAILED));
    EXPECT_EQ(KOVAErrorGetLine(), 36);
    EXPECT_EQ(budget, -100);  // three 200 ms steps
    EXPECT_GE(waited, std::chrono::milliseconds(600));
    EXPECT_LT(waited, std::chrono::milliseconds(900));
    ReleaseExclusiveFileLock(held);
}

TEST_F(ExclusiveLockTest, BadArgumentsAndOpenFailures) {
    int budget = -1;
    EXPECT_EQ(GetExclusiveFileLock(path("/tmp/x.lock").c_str(), &budget), -1);
    EXPECT_EQ(KOVAErrorGetLine(), 22);
    EXPECT_EQ(GetExclusiveFileLock(nullptr, &budget), -1);
    EXPECT_EQ(GetExclusiveFileLock(path("/tmp/x.lock").c_str(), nullptr), -1);
    budget = 100;
    EXPECT_EQ(GetExclusiveFileLock(path("/no/dir/x.lock").c_str(), &budget), -1);
    EXPECT_EQ(KLIBErrGet(), static_cast<uint32_t>(ERR_OPEN_FAILED));
    EXPECT_EQ(KOVAErrorGetLine(), 31);
}

}  // namespace
}  // namespace kova::test
