// Running programs: exit codes, what the children inherit and what they do not.
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <string>

#include "kovasdk/error.h"
#include "kovasdk/file.h"
#include "kovasdk/proc.h"
#include "proc/proc_test_support.h"

namespace kova::test {
namespace {

using ExecTest = SandboxTest;

// The text a child wrote to the given file, without trailing line feeds.
std::string written(const std::string &path) {
    std::string text = read_file(path);
    while (!text.empty() && text.back() == '\n')
        text.pop_back();
    return text;
}

TEST_F(ExecTest, ExitCodesOfTheProgram) {
    EXPECT_EQ(KLIBExec("/bin/true", nullptr, nullptr, nullptr, nullptr), 0);
    EXPECT_EQ(KLIBExec("/bin/false", nullptr, nullptr, nullptr, nullptr), 1);
    EXPECT_EQ(KLIBExec("/bin/sh", "-c", "exit 42", nullptr, nullptr), 42);
    EXPECT_EQ(KLIBExec("/bin/sh", "-c", "exit $#", "x", nullptr), 0);
    EXPECT_EQ(KLIBExec("/bin/sh", "-c", "exit $#", "zero", "one"), 1);
    // The argument list ends at the first null.
    EXPECT_EQ(KLIBExec("/bin/sh", "-c", "exit $#", "zero", nullptr), 0);
}

TEST_F(ExecTest, MissingProgramExitsWith255) {
    EXPECT_EQ(KLIBExec(path("/no/such/program").c_str(), nullptr, nullptr, nullptr, nullptr), 255);
}

TEST_F(ExecTest, KilledChildIsAFailure) {
    KLIBErrSet(ERR_SUCCESS);
    EXPECT_EQ(KLIBExec("/bin/sh", "-c", "kill -9 $$", nullptr, nullptr), -1);
    EXPECT_EQ(KLIBErrGet(), static_cast<uint32_t>(ERR_OP_FAILURE));
    EXPECT_STREQ(KOVAErrorGetFile(), "proc_exec.cpp");
    EXPECT_EQ(KOVAErrorGetLine(), 92);
    EXPECT_EQ(KLIBExec(nullptr, nullptr, nullptr, nullptr, nullptr), -1);
    EXPECT_EQ(KLIBErrGet(), static_cast<uint32_t>(ERR_BAD_PARAMETERS));
}

TEST_F(ExecTest, ChildGetsNullStdioNewSessionRootDirAndNoEnvironment) {
    setenv("KOVA_TEST_MARK", "inherited", 1);
    const std::string out = path("/tmp/child.txt");
    const std::string script =
        "exec 3>" + out +
        "; fds=$(readlink /proc/$$/fd/0 /proc/$$/fd/1 /proc/$$/fd/2); echo \"$fds\" >&3"
        "; echo \"dir=$(pwd) mark=$KOVA_TEST_MARK root=$KOVA_ROOT\" >&3"
        "; [ \"$(ps -o sid= -p $$ | tr -d ' ')\" = $$ ] && echo leader >&3";
    EXPECT_EQ(KLIBExec("/bin/sh", "-c", script.c_str(), nullptr, nullptr), 0);
    unsetenv("KOVA_TEST_MARK");
    EXPECT_EQ(written(out), "/dev/null\n/dev/null\n/dev/null\ndir=/ mark= root=\nleader");
}

TEST_F(ExecTest, BackgroundChildKeepsSessionDirectoryAndEnvironment) {
    setenv("KOVA_TEST_MARK", "inherited", 1);
    const std::string out = path("/tmp/child.txt");
    char cwd[4096];
    ASSERT_NE(getcwd(cwd, sizeof cwd), nullptr);
    const std::string script = "exec 3>" + out +
                               "; fds=$(readlink /proc/$$/fd/1); echo \"$fds\" >&3; echo "
                               "\"dir=$(pwd) mark=$KOVA_TEST_MARK\" >&3"
                               "; [ \"$(ps -o sid= -p $$ | tr -d ' ')\" = $$ ] || echo member >&3";
    const int pid = KLIBBackgroundExec("/bin/sh", "-c", script.c_str(), nullptr, nullptr);
    unsetenv("KOVA_TEST_MARK");
    ASSERT_GT(pid, 0);
    const int status = reap(pid);
    EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0);
    EXPECT_EQ(written(out), "/dev/null\ndir=" + std::string(cwd) + " mark=inherited\nmember");
}

// A daemon started while the caller held a lock must not keep the lock once the caller lets go.
TEST_F(ExecTest, ChildrenDoNotKeepTheCallersLockFiles) {
    ASSERT_EQ(ErrKLIBFileLock(KLIB_LOCK_KOVAINFO | KLIB_LOCK_EX | KLIB_LOCK_NB, 0), 0);
    const int daemon = KLIBBackgroundExec("/bin/sleep", "5", nullptr, nullptr, nullptr);
    ASSERT_GT(daemon, 0);
    const char *no_lock_fd = "for f in /proc/$$/fd/*; do readlink $f; done | grep -q /tmp/lock/";
    EXPECT_EQ(KLIBExec("/bin/sh", "-c", no_lock_fd, nullptr, nullptr), 1);
    ASSERT_EQ(ErrKLIBFileUnlock(KLIB_LOCK_KOVAINFO), 0);
    const pid_t other = fork();
    if (other == 0) _exit(ErrKLIBFileLock(KLIB_LOCK_KOVAINFO | KLIB_LOCK_EX | KLIB_LOCK_NB, 0));
    const int status = reap(other);
    EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0);
    kill(daemon, SIGKILL);
    reap(daemon);
}

TEST_F(ExecTest, BackgroundExecDoesNotWait) {
    const auto start = std::chrono::steady_clock::now();
    const int pid = KLIBBackgroundExec("/bin/sleep", "2", nullptr, nullptr, nullptr);
    const auto elapsed = std::chrono::steady_clock::now() - start;
    ASSERT_GT(pid, 0);
    EXPECT_LT(elapsed, std::chrono::milliseconds(1000));
    EXPECT_EQ(BlKLIBProcAlive(pid), 1);  // still running (a zombie would have exited early)
    kill(pid, SIGKILL);
    EXPECT_EQ(WTERMSIG(reap(pid)), SIGKILL);
}

TEST_F(ExecTest, FailedExecAbortsBackgroundAndExecvChildren) {
    const std::string missing = path("/no/such/program");
    const int pid = KLIBBackgroundExec(missing.c_str(), nullptr, nullptr, nullptr, nullptr);
    ASSERT_GT(pid, 0);
    const int status = reap(pid);
    ASSERT_TRUE(WIFSIGNALED(status));
    EXPECT_EQ(WTERMSIG(status), SIGABRT);

    char *argv[] = {const_cast<char *>("missing"), nullptr};
    EXPECT_EQ(KLIBExecv(missing.c_str(), argv, 1), -1);
}

TEST_F(ExecTest, ExecvWaitsOnlyWhenAsked) {
    setenv("KOVA_TEST_MARK", "kept", 1);
    char sh[] = "sh";
    char c[] = "-c";
    char check[] = "[ \"$KOVA_TEST_MARK\" = kept ] && exit 5";
    char *argv[] = {sh, c, check, nullptr};
    EXPECT_EQ(KLIBExecv("/bin/sh", argv, 1), 5);  // environment kept

    const std::string flag = path("/tmp/flag");
    std::string later = "sleep 0.3; touch " + flag;
    char *background[] = {sh, c, later.data(), nullptr};
    EXPECT_EQ(KLIBExecv("/bin/sh", background, 0), 0);
    EXPECT_FALSE(file_exists(flag));
    int status = 0;
    EXPECT_GT(wait(&status), 0);
    EXPECT_TRUE(file_exists(flag));
    unsetenv("KOVA_TEST_MARK");
}

// With SA_NOCLDWAIT the kernel would reap the child before it could be waited for.
TEST_F(ExecTest, NoChildWaitFlagIsLiftedDuringTheCallAndRestored) {
    struct sigaction nowait {};
    nowait.sa_handler = SIG_DFL;
    nowait.sa_flags = SA_NOCLDWAIT;
    struct sigaction saved {};
    ASSERT_EQ(sigaction(SIGCHLD, &nowait, &saved), 0);
    const int rc = KLIBExec("/bin/sh", "-c", "exit 9", nullptr, nullptr);
    char sh[] = "sh";
    char c[] = "-c";
    char exit4[] = "exit 4";
    char *argv[] = {sh, c, exit4, nullptr};
    const int rcv = KLIBExecv("/bin/sh", argv, 1);
    struct sigaction after {};
    sigaction(SIGCHLD, &saved, &after);
    EXPECT_EQ(rc, 9);
    EXPECT_EQ(rcv, 4);
    EXPECT_NE(after.sa_flags & SA_NOCLDWAIT, 0);
}

TEST_F(ExecTest, IgnoredChildSignalGivesZero) {
    // SIG_IGN reaps children itself; the wait then finds none.
    struct sigaction ignore {};
    ignore.sa_handler = SIG_IGN;
    struct sigaction saved {};
    ASSERT_EQ(sigaction(SIGCHLD, &ignore, &saved), 0);
    const int rc = KLIBExec("/bin/sh", "-c", "exit 9", nullptr, nullptr);
    sigaction(SIGCHLD, &saved, nullptr);
    EXPECT_EQ(rc, 0);
}

TEST_F(ExecTest, SystemRunsTheShellAndTestsCanSeeIt) {
    RunCapture runs;
    EXPECT_EQ(KLIBSystem(nullptr), 0);
    const int status = KLIBSystem("exit 3");
    EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 3);
    EXPECT_EQ(KLIBExec("/bin/sh", "-c", "exit 0", nullptr, nullptr), 0);
    EXPECT_EQ(runs.runs(), (std::vector<std::string>{"exit 3", "/bin/sh -c exit 0"}));
}

}  // namespace
}  // namespace kova::test
