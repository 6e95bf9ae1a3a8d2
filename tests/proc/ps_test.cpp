// Process checks against real processes: by command line, by name, by pid and by pid file.
#include <sys/stat.h>
#include <sys/wait.h>

#include <climits>

#include "proc/proc_test_support.h"

namespace kova::test {
namespace {

class PsTest : public SandboxTest {
  protected:
    Children children_;
};

TEST_F(PsTest, FindsEveryMatchButStoresOnlyTheCapacity) {
    const std::string name = unique_name("ps");
    std::vector<int> started;
    for (int i = 0; i < 5; ++i)
        started.push_back(children_.sleeper(name));
    int two[2] = {-1, -1}, all[8] = {};
    EXPECT_EQ(KLIBPs(name.c_str(), two, 2), 5);
    ASSERT_EQ(KLIBPs(name.c_str(), all, 8), 5);
    EXPECT_TRUE(std::is_permutation(all, all + 5, started.begin()));
    EXPECT_TRUE(two[0] != two[1] && std::count(all, all + 5, two[0]) == 1 &&
                std::count(all, all + 5, two[1]) == 1);
    EXPECT_EQ(BlKLIBIIsProcAlive(name.c_str()), 1);
    // The grep itself is not a match, and the listing's temporary file does not stay behind.
    EXPECT_EQ(KLIBPs(unique_name("none").c_str(), two, 2), 0);
    EXPECT_EQ(BlKLIBIIsProcAlive(unique_name("none").c_str()), 0);
    EXPECT_EQ(list_dir(path("/tmp")), std::vector<std::string>{".keep"});
}

TEST_F(PsTest, BadPatternsAndUnwritableTempDirectory) {
    int pid = 0;
    // A quote would end the quoted pattern; grep reads a line feed as a second pattern ("."
    // would match, and kill, every process).
    for (const char *bad : {"it's", "name\n.", "a\tb", "\x7f"}) {
        EXPECT_EQ(KLIBPs(bad, &pid, 1), -1);
        EXPECT_TRUE(raised(ERR_BAD_PARAMETERS));
        EXPECT_EQ(KLIBIKill(bad, 1), -1);
        EXPECT_TRUE(raised(ERR_BAD_PARAMETERS, 45));
    }
    EXPECT_EQ(KLIBPs(nullptr, &pid, 1), -1);
    EXPECT_EQ(KLIBPs("x", nullptr, 1), -1);
    std::filesystem::remove_all(path("/tmp"));
    EXPECT_EQ(KLIBPs("anything", nullptr, 0), -1);
    EXPECT_TRUE(raised(ERR_READ_FAILED, 39));
}

// Files that others can plant: the listing file in /tmp and pid files are never written
// through a link; pid files that hold no pid or are no regular file read as such.
TEST_F(PsTest, PlantedLinksAndOddPidFiles) {
    const std::string outside = path("/etc/outside");
    write_file(outside, "precious\n");
    const std::string listing = path("/tmp/tempKLIBPs" + std::to_string(getpid()));
    ASSERT_EQ(symlink(outside.c_str(), listing.c_str()), 0);
    int pid = 0;
    EXPECT_EQ(KLIBPs(unique_name("none").c_str(), &pid, 1), 0);
    const std::string pid_file = path("/tmp/daemon.pid");
    ASSERT_EQ(symlink(outside.c_str(), pid_file.c_str()), 0);
    EXPECT_EQ(KOVAProcPidFileCreate(pid_file.c_str()), -1);
    EXPECT_EQ(read_file(outside), "precious\n");
    ASSERT_EQ(unlink(pid_file.c_str()), 0);

    const std::pair<const char *, int> contents[] = {
        {"4294967297\n", 0},       {"-5\n", 0},         {"0\n", 0},  {"abc\n", 0},
        {"2147483647\n", INT_MAX}, {"2147483648\n", 0}, {"77\n", 77}};
    for (const auto &[content, expected] : contents) {
        write_file(pid_file, content);
        EXPECT_EQ(KLIBReadPidFile(pid_file.c_str()), expected) << content;
    }
    ASSERT_EQ(unlink(pid_file.c_str()), 0);
    ASSERT_EQ(mkdir(pid_file.c_str(), 0755), 0);
    EXPECT_EQ(KLIBReadPidFile(pid_file.c_str()), -1);
    ASSERT_EQ(rmdir(pid_file.c_str()), 0);
    ASSERT_EQ(mkfifo(pid_file.c_str(), 0644), 0);  // neither blocks: a child that does is killed
    const pid_t child = fork();
    if (child == 0) {
        alarm(2);
        _exit(KLIBReadPidFile(pid_file.c_str()) == -1 &&
                      KOVAProcPidFileCreate(pid_file.c_str()) == -1
                  ? 0
                  : 1);
    }
    int status = 0;
    ASSERT_EQ(waitpid(child, &status, 0), child);
    EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0);
}

// The appliance's ps, inside the sandbox, answers instead of the machine's.
TEST_F(PsTest, ProgramsInsideTheSandboxComeFirst) {
    write_file(path("/bin/ps"), "#!/bin/sh\necho ' 4242 ?  S  0:00 fakedaemon --serve'\n");
    chmod(path("/bin/ps").c_str(), 0755);
    int pid = 0;
    EXPECT_EQ(KLIBPs("fakedaemon", &pid, 1), 1);
    EXPECT_EQ(pid, 4242);
}

TEST_F(PsTest, KillTerminatesThenKillsWhatSurvivesOrKillsAtOnce) {
    const std::string name = unique_name("kill");
    const pid_t polite = children_.sleeper(name);
    const pid_t stubborn = children_.sleeper(name, /*ignore_term=*/true);
    EXPECT_EQ(KLIBIKill(name.c_str(), 0), 2);
    EXPECT_EQ(children_.finish(polite), -SIGTERM);
    EXPECT_EQ(children_.finish(stubborn), -SIGKILL);
    EXPECT_EQ(KLIBIKill(name.c_str(), 0), 0);
    const pid_t forced = children_.sleeper(name);
    EXPECT_EQ(KLIBIKill(name.c_str(), 1), 1);
    EXPECT_EQ(children_.finish(forced), -SIGKILL);
    EXPECT_EQ(KLIBIKill(nullptr, 1), -1);
    EXPECT_TRUE(raised(ERR_BAD_PARAMETERS, 45));
}

TEST_F(PsTest, ProcessIsAliveLooksAtTheProcessName) {
    // Plain ps shows the executable's name (at most 15 bytes): run sleep under a unique one.
    const std::string name = "kt" + std::to_string(getpid()) + "-alive";
    std::filesystem::create_directories(path("/bin"));
    std::filesystem::create_symlink("/bin/sleep", path("/bin/" + name));
    children_.sleeper(name, false, path("/bin/" + name));
    EXPECT_EQ(BlProcessIsAlive(name.c_str()), 1);
    EXPECT_EQ(BlProcessIsAlive((name + "x").c_str()), 0);
    // Shell metacharacters in the name reach grep as text.
    EXPECT_EQ(BlProcessIsAlive(("x; touch " + path("/tmp/injected")).c_str()), 0);
    EXPECT_FALSE(file_exists(path("/tmp/injected")));
}

TEST_F(PsTest, PidFilesAndLivenessOfAChildBeforeAndAfterItIsReaped) {
    const std::string file = path("/var/run/daemon.pid");
    write_file(file, "stale contents that are longer\n");
    EXPECT_EQ(KOVAProcPidFileCreate(file.c_str()), 0);
    EXPECT_EQ(read_file(file), std::to_string(getpid()) + "\n");
    EXPECT_EQ(KOVAProcPidFileCreate(path("/no/dir/x.pid").c_str()), -1);
    EXPECT_TRUE(raised(ERR_OPEN_FAILED));
    const pid_t child = children_.sleeper(unique_name("pid"));
    write_file(file, "  " + std::to_string(child) + "\n5678\n");
    EXPECT_EQ(KLIBReadPidFile(file.c_str()), child);
    EXPECT_EQ(BlKLIBProcAlive(child), 1);
    EXPECT_EQ(KLIBProcAliveByPidFile(file.c_str()), 1);
    children_.end(child);
    EXPECT_EQ(BlKLIBProcAlive(child), 0);
    EXPECT_EQ(KLIBProcAliveByPidFile(file.c_str()), 0);
    for (const char *unreadable : {"", "not a number\n"}) {
        write_file(file, unreadable);
        EXPECT_EQ(KLIBReadPidFile(file.c_str()), 0);
        EXPECT_EQ(KLIBProcAliveByPidFile(file.c_str()), 0);
    }
    EXPECT_EQ(KLIBReadPidFile(path("/var/run/missing.pid").c_str()), -1);
    EXPECT_TRUE(raised(ERR_OPEN_FAILED));
    EXPECT_EQ(KLIBReadPidFile(nullptr), -1);
    EXPECT_TRUE(raised(ERR_BAD_PARAMETERS));
    EXPECT_EQ(KLIBProcAliveByPidFile(nullptr), 0);
}

// A process that may not be signalled is alive for BlKLIBProcAlive but not for the pid file.
TEST_F(PsTest, PermissionDeniedCountsOnlyForProcAlive) {
    if (geteuid() != 0) GTEST_SKIP() << "needs root to drop to another user";
    const std::string file = path("/var/run/init.pid");
    write_file(file, "1\n");
    for (const std::string &p : {root(), path("/var"), path("/var/run"), file})
        chmod(p.c_str(), p == file ? 0644 : 0755);
    const pid_t child = fork();
    if (child == 0) {
        if (setuid(65534) != 0 || access(file.c_str(), R_OK) != 0) _exit(3);
        _exit(BlKLIBProcAlive(1) * 10 + KLIBProcAliveByPidFile(file.c_str()));
    }
    const int rc = reap(child);
    if (rc == 3) GTEST_SKIP() << "the build tree is not readable by nobody";
    EXPECT_EQ(rc, 10);
}

}  // namespace
}  // namespace kova::test
