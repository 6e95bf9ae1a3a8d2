// Running programs: exit codes, what the children inherit and what they do not; shell escaping.
#include <cstdio>

#include "proc/proc_test_support.h"

namespace kova::test {
namespace {

using ExecTest = SandboxTest;

int sh(const char *script) {
    return KLIBExec("/bin/sh", "-c", script, nullptr, nullptr);
}

TEST_F(ExecTest, ExitCodesOfTheProgram) {
    EXPECT_EQ(KLIBExec("/bin/false", nullptr, nullptr, nullptr, nullptr), 1);
    EXPECT_EQ(sh("exit 42"), 42);
    EXPECT_EQ(KLIBExec("/bin/sh", "-c", "exit $#", "zero", "one"), 1);
    EXPECT_EQ(KLIBExec("/bin/sh", "-c", "exit $#", "zero", nullptr), 0);  // ends at a null
    EXPECT_EQ(KLIBExec(path("/no/such/program").c_str(), nullptr, nullptr, nullptr, nullptr), 255);
    KLIBErrSet(ERR_SUCCESS);
    EXPECT_EQ(sh("kill -9 $$"), -1);  // a killed child
    EXPECT_TRUE(raised(ERR_OP_FAILURE, 92));
    EXPECT_STREQ(KOVAErrorGetFile(), "proc_exec.cpp");
    EXPECT_EQ(KLIBExec(nullptr, nullptr, nullptr, nullptr, nullptr), -1);
    EXPECT_TRUE(raised(ERR_BAD_PARAMETERS));
}

// Both get 0-2 on /dev/null; only KLIBExec's child gets a new session, "/" and no environment
// but the appliance root.
TEST_F(ExecTest, WhatTheChildInherits) {
    const std::string out = path("/tmp/child.txt"), null3 = "/dev/null /dev/null /dev/null ";
    const std::string script =
        "exec 3>" + out + "; echo $(readlink /proc/$$/fd/0 /proc/$$/fd/1 /proc/$$/fd/2)" +
        " \"dir=$(pwd) mark=$KOVA_TEST_MARK root=$KOVA_ROOT\" " +
        "$([ \"$(ps -o sid= -p $$ | tr -d ' ')\" = $$ ] && echo leader || echo member) >&3";
    char cwd[4096];
    ASSERT_NE(getcwd(cwd, sizeof cwd), nullptr);
    setenv("KOVA_TEST_MARK", "inherited", 1);
    EXPECT_EQ(sh(script.c_str()), 0);
    const std::string exec_saw = read_file(out);
    const int background = KLIBBackgroundExec("/bin/sh", "-c", script.c_str(), nullptr, nullptr);
    unsetenv("KOVA_TEST_MARK");
    const std::string root = getenv("KOVA_ROOT");
    EXPECT_EQ(exec_saw, null3 + "dir=/ mark= root=" + root + " leader\n");
    ASSERT_GT(background, 0);
    EXPECT_EQ(reap(background), 0);
    EXPECT_EQ(read_file(out), null3 + "dir=" + cwd + " mark=inherited root=" + root + " member\n");
}

// A daemon started while the caller held a lock must not keep the lock once the caller lets go.
TEST_F(ExecTest, ChildrenDoNotKeepTheCallersLockFiles) {
    Children children;
    ASSERT_EQ(ErrKLIBFileLock(KLIB_LOCK_KOVAINFO | KLIB_LOCK_EX | KLIB_LOCK_NB, 0), 0);
    ASSERT_GT(children.adopt(KLIBBackgroundExec("/bin/sleep", "5", nullptr, nullptr, nullptr)), 0);
    EXPECT_EQ(sh("for f in /proc/$$/fd/*; do readlink $f; done | grep -q /tmp/lock/"), 1);
    ASSERT_EQ(ErrKLIBFileUnlock(KLIB_LOCK_KOVAINFO), 0);
    const pid_t other = fork();
    if (other == 0) _exit(ErrKLIBFileLock(KLIB_LOCK_KOVAINFO | KLIB_LOCK_EX | KLIB_LOCK_NB, 0));
    EXPECT_EQ(reap(other), 0);
    // KLIBExecv is the one form whose program keeps them.
    ASSERT_EQ(ErrKLIBFileLock(KLIB_LOCK_KOVAINFO | KLIB_LOCK_EX | KLIB_LOCK_NB, 0), 0);
    char sh_[] = "sh", c[] = "-c",
         held[] = "for f in /proc/$$/fd/*; do readlink $f; done | grep -q /tmp/lock/";
    char *argv[] = {sh_, c, held, nullptr};
    EXPECT_EQ(KLIBExecv("/bin/sh", argv, 1), 0);
    ASSERT_EQ(ErrKLIBFileUnlock(KLIB_LOCK_KOVAINFO), 0);
}

TEST_F(ExecTest, BackgroundChildIsNotWaitedForAndAbortsOnFailedExec) {
    const auto start = Clock::now();
    const int pid = KLIBBackgroundExec("/bin/sleep", "2", nullptr, nullptr, nullptr);
    EXPECT_LT(Clock::now() - start, milliseconds(1000));
    ASSERT_GT(pid, 0);
    EXPECT_EQ(BlKLIBProcAlive(pid), 1);  // still running (a zombie would have exited early)
    EXPECT_EQ(Children().end(pid), -SIGKILL);
    const std::string missing = path("/no/such/program");
    const int failed = KLIBBackgroundExec(missing.c_str(), nullptr, nullptr, nullptr, nullptr);
    ASSERT_GT(failed, 0);
    EXPECT_EQ(reap(failed), -SIGABRT);
    char *argv[] = {const_cast<char *>("missing"), nullptr};
    EXPECT_EQ(KLIBExecv(missing.c_str(), argv, 1), -1);
}

// KLIBExecv keeps the environment and waits only when asked. Under SA_NOCLDWAIT the kernel
// would reap a child before it could be waited for: the flag is lifted during a call and
// restored. SIG_IGN reaps children itself: the wait finds none.
TEST_F(ExecTest, ExecvAndTheCallersChildSignalSettings) {
    std::string check = "[ \"$KOVA_TEST_MARK\" = kept ] && exit 5", flag = path("/tmp/flag");
    std::string later = "sleep 0.3; touch " + flag;
    char sh_[] = "sh", c[] = "-c";
    char *waited[] = {sh_, c, check.data(), nullptr},
         *background[] = {sh_, c, later.data(), nullptr};
    struct sigaction nowait = {}, ignore = {}, saved = {}, after = {};
    nowait.sa_flags = SA_NOCLDWAIT;
    ignore.sa_handler = SIG_IGN;
    setenv("KOVA_TEST_MARK", "kept", 1);
    ASSERT_EQ(sigaction(SIGCHLD, &nowait, &saved), 0);
    EXPECT_EQ(sh("exit 9"), 9);
    EXPECT_EQ(KLIBExecv("/bin/sh", waited, 1), 5);
    sigaction(SIGCHLD, &ignore, &after);
    EXPECT_NE(after.sa_flags & SA_NOCLDWAIT, 0);
    EXPECT_EQ(sh("exit 9"), 0);
    sigaction(SIGCHLD, &saved, nullptr);
    unsetenv("KOVA_TEST_MARK");
    EXPECT_EQ(KLIBExecv("/bin/sh", background, 0), 0);
    EXPECT_FALSE(file_exists(flag));
    EXPECT_GT(wait(nullptr), 0);
    EXPECT_TRUE(file_exists(flag));
}

TEST_F(ExecTest, SystemRunsTheShellAndTestsCanSeeIt) {
    RunCapture runs;
    EXPECT_EQ(KLIBSystem(nullptr), 0);
    EXPECT_EQ(KLIBSystem("exit 3"), 3 << 8);  // a wait status
    EXPECT_EQ(sh("exit 0"), 0);
    EXPECT_EQ(runs.runs(), (std::vector<std::string>{"exit 3", "/bin/sh -c exit 0"}));
}

// Each byte is escaped while room remains. Every byte 1..255, escaped, stands unquoted in a
// command and reaches the program unchanged.
TEST(EncShParam, EscapesWhileRoomRemainsAndEveryByteSurvivesTheShell) {
    char out[8];
    EXPECT_EQ(KLIBEncShParam("ab", out, 5), 0);
    EXPECT_STREQ(out, "\\a\\b");
    EXPECT_EQ(KLIBEncShParam("ab", out, 4), -1);
    EXPECT_STREQ(out, "\\a");
    EXPECT_EQ(KLIBEncShParam("a", out, 2), -1);
    EXPECT_STREQ(out, "");
    EXPECT_EQ(KLIBEncShParam(nullptr, out, 8), -1);
    EXPECT_TRUE(raised(ERR_BAD_PARAMETERS));
    EXPECT_EQ(KLIBEncShParam("a", out, 0), -1);

    std::string all, back;
    for (int c = 1; c < 256; ++c)
        all += static_cast<char>(c);
    std::string escaped(4 * all.size(), '\0');
    ASSERT_EQ(KLIBEncShParam(all.c_str(), escaped.data(), static_cast<int>(escaped.size())), 0);
    FILE *pipe = popen(("printf %s " + std::string(escaped.c_str())).c_str(), "r");  // sh -c
    ASSERT_NE(pipe, nullptr);
    char buf[512];
    for (size_t n; (n = fread(buf, 1, sizeof buf, pipe)) > 0;)
        back.append(buf, n);
    EXPECT_EQ(pclose(pipe), 0);
    EXPECT_EQ(back, all);
}

}  // namespace
}  // namespace kova::test
