// Pid files and process liveness.
#include <signal.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <string>

#include "kovasdk/error.h"
#include "kovasdk/proc.h"
#include "proc/proc_test_support.h"

namespace kova::test {
namespace {

using PidFileTest = SandboxTest;

TEST_F(PidFileTest, CreateWritesTheCallersPid) {
    const std::string file = path("/var/run/daemon.pid");
    write_file(file, "stale contents that are longer\n");
    EXPECT_EQ(KOVAProcPidFileCreate(file.c_str()), 0);
    EXPECT_EQ(read_file(file), std::to_string(getpid()) + "\n");
    EXPECT_EQ(KLIBReadPidFile(file.c_str()), getpid());
    EXPECT_EQ(KLIBProcAliveByPidFile(file.c_str()), 1);

    EXPECT_EQ(KOVAProcPidFileCreate(path("/no/dir/x.pid").c_str()), -1);
    EXPECT_EQ(KLIBErrGet(), static_cast<uint32_t>(ERR_OPEN_FAILED));
}

TEST_F(PidFileTest, ReadingOddFiles) {
    const std::string file = path("/var/run/odd.pid");
    write_file(file, "");
    EXPECT_EQ(KLIBReadPidFile(file.c_str()), 0);
    write_file(file, "not a number\n");
    EXPECT_EQ(KLIBReadPidFile(file.c_str()), 0);
    EXPECT_EQ(KLIBProcAliveByPidFile(file.c_str()), 0);
    write_file(file, "  1234\n5678\n");
    EXPECT_EQ(KLIBReadPidFile(file.c_str()), 1234);
    EXPECT_EQ(KLIBReadPidFile(path("/var/run/missing.pid").c_str()), -1);
    EXPECT_EQ(KLIBErrGet(), static_cast<uint32_t>(ERR_OPEN_FAILED));
    EXPECT_EQ(KLIBReadPidFile(nullptr), -1);
    EXPECT_EQ(KLIBErrGet(), static_cast<uint32_t>(ERR_BAD_PARAMETERS));
    EXPECT_EQ(KLIBProcAliveByPidFile(nullptr), 0);
}

TEST_F(PidFileTest, LivenessOfAReapedChild) {
    const pid_t child = start_sleeper(unique_name("pid"));
    const std::string file = path("/var/run/child.pid");
    write_file(file, std::to_string(child) + "\n");
    EXPECT_EQ(BlKLIBProcAlive(child), 1);
    EXPECT_EQ(KLIBProcAliveByPidFile(file.c_str()), 1);
    kill(child, SIGKILL);
    reap(child);
    EXPECT_EQ(BlKLIBProcAlive(child), 0);
    EXPECT_EQ(KLIBProcAliveByPidFile(file.c_str()), 0);
}

// A process that may not be signalled is alive for BlKLIBProcAlive but not for the pid file.
TEST_F(PidFileTest, PermissionDeniedCountsOnlyForProcAlive) {
    if (geteuid() != 0) GTEST_SKIP() << "needs root to drop to another user";
    const std::string file = path("/var/run/init.pid");
    write_file(file, "1\n");
    chmod(root().c_str(), 0711);
    chmod(path("/var").c_str(), 0755);
    chmod(path("/var/run").c_str(), 0755);
    chmod(file.c_str(), 0644);
    const pid_t child = fork();
    if (child == 0) {
        if (setuid(65534) != 0) _exit(2);
        if (access(file.c_str(), R_OK) != 0) _exit(3);
        _exit(BlKLIBProcAlive(1) * 10 + KLIBProcAliveByPidFile(file.c_str()));
    }
    const int status = reap(child);
    ASSERT_TRUE(WIFEXITED(status));
    if (WEXITSTATUS(status) == 3) GTEST_SKIP() << "the build tree is not readable by nobody";
    EXPECT_EQ(WEXITSTATUS(status), 10);
}

}  // namespace
}  // namespace kova::test
