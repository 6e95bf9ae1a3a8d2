// The file-service connection count and login limit, and the SMB connection functions, over a
// process table inside the sandbox.
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <filesystem>
#include <string>
#include <vector>

#include "kovasdk/error.h"
#include "kovasdk/file.h"
#include "kovasdk/proc.h"
#include "proc/proc_internal.h"
#include "proc/proc_test_support.h"

namespace kova::test {
namespace {

class ConnectionTest : public SandboxTest {
  protected:
    ConnectionTest() { kova::proc::testing::forget_max_services(); }
    ~ConnectionTest() override { kova::proc::testing::forget_max_services(); }

    void process(int pid, const std::string &name, int euid = 0) {
        const std::string uid = std::to_string(euid);
        write_file(path("/proc/" + std::to_string(pid) + "/status"),
                   "Name:\t" + name + "\nUmask:\t0022\nState:\tS (sleeping)\nPid:\t" +
                       std::to_string(pid) + "\nUid:\t0\t" + uid + "\t" + uid + "\t" + uid + "\n");
    }
    void max_services(const std::string &line) {
        std::string info = read_file(path("/etc.defaults/kovainfo.conf"));
        const size_t at = info.find("maxservices=");
        if (at != std::string::npos) info.erase(at, info.find('\n', at) + 1 - at);
        write_file(path("/etc.defaults/kovainfo.conf"), info + line);
    }
    // 3 smbd (2 masters), 1 afpd (the master), 2 ftpd (1 master): two connections.
    void two_connections() {
        process(100, "smbd");
        process(101, "smbd");
        process(102, "smbd", 1026);
        process(200, "afpd");
        process(300, "proftpd");
        process(301, "proftpd", 1027);
        process(400, "bash");
    }
};

TEST_F(ConnectionTest, CountsServersBeyondTheirMasters) {
    two_connections();
    write_file(path("/proc/self/status"), "Name:\tsmbd\n");  // not a pid directory
    int count = -1;
    EXPECT_EQ(KLIBConnectionCountGet(&count), 0);
    EXPECT_EQ(count, 2);
    process(201, "afpd");
    process(202, "afpd");
    EXPECT_EQ(KLIBConnectionCountGet(&count), 0);
    EXPECT_EQ(count, 4);
}

TEST_F(ConnectionTest, MastersAloneAreNoConnection) {
    process(100, "smbd");
    process(200, "afpd");
    int count = -1;
    EXPECT_EQ(KLIBConnectionCountGet(&count), 0);
    EXPECT_EQ(count, 0);
    EXPECT_EQ(KLIBConnectionCountGet(nullptr), -1);
}

TEST_F(ConnectionTest, LoginLimitFromMaxServices) {
    two_connections();
    max_services("maxservices=\"2\"\n");
    EXPECT_EQ(KLIBConnectionCountLogin(0, 0), 2);   // existing ones may stay at the limit
    EXPECT_EQ(KLIBConnectionCountLogin(0, 1), -1);  // a new one may not exceed it
    EXPECT_EQ(KLIBErrGet(), static_cast<uint32_t>(ERR_OP_FAILURE));
    EXPECT_EQ(KOVAErrorGetLine(), 52);
    process(103, "smbd", 1028);
    EXPECT_EQ(KLIBConnectionCountLogin(0, 0), -1);
}

TEST_F(ConnectionTest, CheckWaitsForTheConnectLock) {
    two_connections();
    int ready[2];
    ASSERT_EQ(pipe(ready), 0);
    const pid_t holder = fork();
    if (holder == 0) {
        const int rc = ErrKLIBFileLock(KLIB_LOCK_CONNECT | KLIB_LOCK_EX | KLIB_LOCK_NB, 0);
        if (write(ready[1], &rc, sizeof rc) != sizeof rc) _exit(1);
        for (;;)
            pause();
    }
    int rc = -1;
    ASSERT_EQ(read(ready[0], &rc, sizeof rc), static_cast<ssize_t>(sizeof rc));
    ASSERT_EQ(rc, 0);
    EXPECT_EQ(KLIBConnectionCountLogin(0, 1), -1);
    EXPECT_EQ(KLIBErrGet(), static_cast<uint32_t>(ERR_LOCK_FAILED));
    EXPECT_EQ(KOVAErrorGetLine(), 30);
    kill(holder, SIGKILL);
    reap(holder);
    close(ready[0]);
    close(ready[1]);
    EXPECT_EQ(KLIBConnectionCountLogin(0, 1), 2);
}

TEST_F(ConnectionTest, MaximumIsReadOncePerProcess) {
    two_connections();
    max_services("maxservices=\"2\"\n");
    EXPECT_EQ(KLIBConnectionCountLogin(0, 1), -1);
    max_services("maxservices=\"40\"\n");
    EXPECT_EQ(KLIBConnectionCountLogin(0, 1), -1);  // still 2
    kova::proc::testing::forget_max_services();
    EXPECT_EQ(KLIBConnectionCountLogin(0, 1), 2);
}

TEST_F(ConnectionTest, MissingOrNegativeMaximumMeans32) {
    for (int i = 0; i < 33; ++i)
        process(1000 + i, "afpd");  // 32 connections
    max_services("");
    EXPECT_EQ(KLIBConnectionCountLogin(0, 0), 32);
    EXPECT_EQ(KLIBConnectionCountLogin(0, 1), -1);
    kova::proc::testing::forget_max_services();
    max_services("maxservices=\"-5\"\n");
    EXPECT_EQ(KLIBConnectionCountLogin(0, 0), 32);
}

class SmbConnectionTest : public ConnectionTest {
  protected:
    SmbConnectionTest() {
        write_file(path("/etc/passwd"),
                   "root:x:0:0:root:/root:/bin/sh\n"
                   "alice:x:1026:100:Alice:/var/services/homes/alice:/bin/csh\n"
                   "bob:x:1027:100:Bob:/var/services/homes/bob:/bin/csh\n");
    }
};

TEST_F(SmbConnectionTest, ConnectionsOfAllUsersAndOfOne) {
    process(100, "smbd");
    process(101, "smbd");
    process(102, "smbd", 1026);
    process(103, "smbd", 1027);
    process(104, "smbd", 1026);
    process(105, "smbdx", 1026);
    int pids[4] = {};
    ASSERT_EQ(KOVAGetAllConnPidOfSmb(pids, 4), 3);
    std::vector<int> all(pids, pids + 3);
    std::sort(all.begin(), all.end());
    EXPECT_EQ(all, (std::vector<int>{102, 103, 104}));
    EXPECT_EQ(KOVAGetAllConnPidOfSmb(pids, 1), 3);
    ASSERT_EQ(KOVAGetConnPidOfSmb("alice", pids, 4), 2);
    EXPECT_EQ(std::min(pids[0], pids[1]), 102);
    EXPECT_EQ(std::max(pids[0], pids[1]), 104);
    EXPECT_EQ(KOVAGetConnPidOfSmb("bob", pids, 4), 1);
    EXPECT_EQ(pids[0], 103);
    EXPECT_EQ(KOVAGetConnPidOfSmb("root", pids, 4), 0);
    EXPECT_EQ(KOVAGetConnPidOfSmb("carol", pids, 4), -1);
    EXPECT_EQ(KLIBErrGet(), static_cast<uint32_t>(ERR_NO_SUCH_USER));
    EXPECT_EQ(KOVAGetConnPidOfSmb(nullptr, pids, 4), -1);
    EXPECT_EQ(KOVAGetAllConnPidOfSmb(nullptr, 1), -1);
}

TEST_F(SmbConnectionTest, DeleteEndsTheUsersSessions) {
    // Real children stand in for the connection processes of the sandbox's table.
    const pid_t alices = start_sleeper(unique_name("smb"));
    const pid_t bobs = start_sleeper(unique_name("smb"));
    process(100, "smbd");
    process(alices, "smbd", 1026);
    process(bobs, "smbd", 1027);
    EXPECT_EQ(KOVADelConnOfSmb("alice"), 1);
    EXPECT_EQ(WTERMSIG(reap(alices)), SIGTERM);
    EXPECT_EQ(BlKLIBProcAlive(bobs), 1);
    EXPECT_EQ(KOVADelConnOfSmb("nobody-here"), -1);
    std::filesystem::remove_all(path("/proc/" + std::to_string(alices)));
    EXPECT_EQ(KOVADelConnOfSmb(nullptr), 1);
    EXPECT_EQ(WTERMSIG(reap(bobs)), SIGTERM);
}

}  // namespace
}  // namespace kova::test
