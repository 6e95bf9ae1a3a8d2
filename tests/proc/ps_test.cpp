// Finding and signalling processes by their command line, against real processes.
#include <signal.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <filesystem>
#include <string>
#include <vector>

#include "kovasdk/error.h"
#include "kovasdk/proc.h"
#include "proc/proc_test_support.h"

namespace kova::test {
namespace {

class PsTest : public SandboxTest {
  protected:
    ~PsTest() override {
        for (pid_t pid : children_) {
            kill(pid, SIGKILL);
            reap(pid);
        }
    }
    pid_t start(const std::string &name, bool ignore_term = false) {
        const pid_t pid = start_sleeper(name, ignore_term);
        children_.push_back(pid);
        usleep(50 * 1000);  // until the exec has happened and ps shows the name
        return pid;
    }
    // Reaps a child the test expects to be gone; its raw status.
    int finish(pid_t pid) {
        children_.erase(std::remove(children_.begin(), children_.end(), pid), children_.end());
        return reap(pid);
    }
    std::vector<pid_t> children_;
};

TEST_F(PsTest, FindsEveryMatchButStoresOnlyTheCapacity) {
    const std::string name = unique_name("ps");
    std::vector<pid_t> started;
    for (int i = 0; i < 5; ++i)
        started.push_back(start(name));
    int pids[2] = {-1, -1};
    EXPECT_EQ(KLIBPs(name.c_str(), pids, 2), 5);
    for (int pid : pids)
        EXPECT_NE(std::find(started.begin(), started.end(), pid), started.end());
    EXPECT_NE(pids[0], pids[1]);

    int all[8] = {};
    ASSERT_EQ(KLIBPs(name.c_str(), all, 8), 5);
    std::vector<pid_t> found(all, all + 5);
    std::sort(found.begin(), found.end());
    std::sort(started.begin(), started.end());
    EXPECT_EQ(found, started);
    EXPECT_EQ(BlKLIBIIsProcAlive(name.c_str()), 1);
    // The listing's temporary file does not stay behind.
    EXPECT_EQ(list_dir(path("/tmp")), std::vector<std::string>{".keep"});
}

TEST_F(PsTest, NoMatchAndBadPatterns) {
    const std::string name = unique_name("none");
    int pid = 0;
    EXPECT_EQ(KLIBPs(name.c_str(), &pid, 1), 0);  // the grep itself is not a match
    EXPECT_EQ(BlKLIBIIsProcAlive(name.c_str()), 0);
    EXPECT_EQ(KLIBPs("it's", &pid, 1), -1);
    EXPECT_EQ(KLIBErrGet(), static_cast<uint32_t>(ERR_BAD_PARAMETERS));
    EXPECT_EQ(KLIBPs(nullptr, &pid, 1), -1);
    EXPECT_EQ(KLIBPs(name.c_str(), nullptr, 1), -1);
}

TEST_F(PsTest, UnwritableTempDirectoryIsAReadFailure) {
    std::filesystem::remove_all(path("/tmp"));
    EXPECT_EQ(KLIBPs("anything", nullptr, 0), -1);
    EXPECT_EQ(KLIBErrGet(), static_cast<uint32_t>(ERR_READ_FAILED));
    EXPECT_EQ(KOVAErrorGetLine(), 39);
}

TEST_F(PsTest, ProgramsInsideTheSandboxComeFirst) {
    // A ps of the sandbox appliance answers instead of the machine's.
    write_file(path("/bin/ps"), "#!/bin/sh\necho ' 4242 ?  S  0:00 fakedaemon --serve'\n");
    chmod(path("/bin/ps").c_str(), 0755);
    RunCapture runs;
    int pid = 0;
    EXPECT_EQ(KLIBPs("fakedaemon", &pid, 1), 1);
    EXPECT_EQ(pid, 4242);
    ASSERT_EQ(runs.runs().size(), 1u);
    EXPECT_EQ(runs.runs()[0], path("/bin/ps") + " -awx | grep 'fakedaemon' > " +
                                  path("/tmp/tempKLIBPs") + std::to_string(getpid()) + " 2>&1");
}

TEST_F(PsTest, KillTerminatesThenKillsWhatSurvives) {
    const std::string name = unique_name("kill");
    const pid_t polite = start(name);
    const pid_t stubborn = start(name, /*ignore_term=*/true);
    EXPECT_EQ(KLIBIKill(name.c_str(), 0), 2);
    EXPECT_EQ(WTERMSIG(finish(polite)), SIGTERM);
    EXPECT_EQ(WTERMSIG(finish(stubborn)), SIGKILL);
    EXPECT_EQ(KLIBIKill(name.c_str(), 0), 0);
}

TEST_F(PsTest, ForcedKillSendsKillAtOnce) {
    const std::string name = unique_name("force");
    const pid_t child = start(name);
    EXPECT_EQ(KLIBIKill(name.c_str(), 1), 1);
    EXPECT_EQ(WTERMSIG(finish(child)), SIGKILL);
    EXPECT_EQ(KLIBIKill(nullptr, 1), -1);
    EXPECT_EQ(KOVAErrorGetLine(), 45);
}

TEST_F(PsTest, ProcessIsAliveLooksAtTheProcessName) {
    // Plain ps shows the executable's name (at most 15 bytes): run sleep under a unique one.
    const std::string name = "kt" + std::to_string(getpid()) + "-alive";
    const std::string link = path("/bin/") + name;
    std::filesystem::create_directories(path("/bin"));
    std::filesystem::create_symlink("/bin/sleep", link);
    const pid_t pid = fork();
    if (pid == 0) {
        execl(link.c_str(), name.c_str(), "30", static_cast<char *>(nullptr));
        _exit(127);
    }
    children_.push_back(pid);
    usleep(50 * 1000);
    EXPECT_EQ(BlProcessIsAlive(name.c_str()), 1);
    EXPECT_EQ(BlProcessIsAlive((name + "x").c_str()), 0);
    // Shell metacharacters in the name reach grep as text.
    const std::string injected = path("/tmp/injected");
    EXPECT_EQ(BlProcessIsAlive(("x; touch " + injected).c_str()), 0);
    EXPECT_FALSE(file_exists(injected));
}

}  // namespace
}  // namespace kova::test
