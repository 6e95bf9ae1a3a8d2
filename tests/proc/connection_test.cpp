// The file-service connection count and login limit, and the SMB connection functions, over a
// process table inside the sandbox.
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
    // 3 smbd (2 masters), 1 afpd (the master), 2 ftpd (1 master): two connections.
    void two_connections() {
        for (int pid : {100, 101, 102})
            process(pid, "smbd", pid == 102 ? 1026 : 0);
        process(200, "afpd");
        process(300, "proftpd");
        process(301, "proftpd", 1027);
        process(400, "bash");
    }
    // The factory settings with this "maxservices" line only; read at the first check.
    void max_services(const std::string &line) {
        write_file(path("/etc.defaults/kovainfo.conf"), line);
    }
    static int count() {
        int n = -1;
        return KLIBConnectionCountGet(&n) == 0 ? n : -1;
    }
};

TEST_F(ConnectionTest, CountsServersBeyondTheirMasters) {
    process(100, "smbd");
    process(200, "afpd");
    EXPECT_EQ(count(), 0);
    two_connections();
    write_file(path("/proc/self/status"), "Name:\tsmbd\n");  // not a pid directory
    EXPECT_EQ(count(), 2);
    process(201, "afpd");
    process(202, "afpd");
    EXPECT_EQ(count(), 4);
    EXPECT_EQ(KLIBConnectionCountGet(nullptr), -1);
}

TEST_F(ConnectionTest, LoginLimitFromMaxServicesReadOncePerProcess) {
    two_connections();
    max_services("maxservices=\"2\"\n");
    EXPECT_EQ(KLIBConnectionCountLogin(0, 0), 2);   // existing ones may stay at the limit
    EXPECT_EQ(KLIBConnectionCountLogin(0, 1), -1);  // a new one may not exceed it
    EXPECT_TRUE(raised(ERR_OP_FAILURE, 52));
    max_services("maxservices=\"40\"\n");
    process(103, "smbd", 1028);
    EXPECT_EQ(KLIBConnectionCountLogin(0, 0), -1);  // still 2
    kova::proc::testing::forget_max_services();
    EXPECT_EQ(KLIBConnectionCountLogin(0, 1), 3);
}

TEST_F(ConnectionTest, MissingOrNegativeMaximumMeans32) {
    for (int i = 0; i < 33; ++i)
        process(1000 + i, "afpd");  // 32 connections
    for (const char *line : {"", "maxservices=\"-5\"\n"}) {
        SCOPED_TRACE(line);
        kova::proc::testing::forget_max_services();
        max_services(line);
        EXPECT_EQ(KLIBConnectionCountLogin(0, 0), 32);
        EXPECT_EQ(KLIBConnectionCountLogin(0, 1), -1);
    }
}

TEST_F(ConnectionTest, CheckWaitsForTheConnectLock) {
    two_connections();
    int ready[2], rc = -1;
    ASSERT_EQ(pipe(ready), 0);
    Children children;
    const pid_t holder = children.adopt(fork());
    if (holder == 0) {
        rc = ErrKLIBFileLock(KLIB_LOCK_CONNECT | KLIB_LOCK_EX | KLIB_LOCK_NB, 0);
        if (write(ready[1], &rc, sizeof rc) == sizeof rc) pause();
        _exit(1);
    }
    ASSERT_EQ(read(ready[0], &rc, sizeof rc), static_cast<ssize_t>(sizeof rc));
    close(ready[0]);
    close(ready[1]);
    ASSERT_EQ(rc, 0);
    EXPECT_EQ(KLIBConnectionCountLogin(0, 1), -1);
    EXPECT_TRUE(raised(ERR_LOCK_FAILED, 30));
    children.end(holder);
    EXPECT_EQ(KLIBConnectionCountLogin(0, 1), 2);
}

class SmbConnectionTest : public ConnectionTest {
  protected:
    SmbConnectionTest() {
        write_file(path("/etc/passwd"),
                   "root:x:0:0:root:/root:/bin/sh\n"
                   "alice:x:1026:100:Alice:/var/services/homes/alice:/bin/csh\n"
                   "bob:x:1027:100:Bob:/var/services/homes/bob:/bin/csh\n");
    }
    // The connection pids of user (of everyone when null), sorted; {-1} when the call failed.
    static std::vector<int> smb(const char *user) {
        int pids[8] = {};
        const int n = user ? KOVAGetConnPidOfSmb(user, pids, 8) : KOVAGetAllConnPidOfSmb(pids, 8);
        std::vector<int> found(pids, pids + std::clamp(n, 0, 8));
        std::sort(found.begin(), found.end());
        return n < 0 ? std::vector{-1} : found;
    }
};

TEST_F(SmbConnectionTest, ConnectionsOfAllUsersAndOfOne) {
    for (int pid : {100, 101, 102, 103, 104})
        process(pid, "smbd", pid < 102 ? 0 : pid == 103 ? 1027 : 1026);
    process(105, "smbdx", 1026);
    EXPECT_EQ(smb(nullptr), (std::vector{102, 103, 104}));
    EXPECT_EQ(smb("alice"), (std::vector{102, 104}));
    EXPECT_EQ(smb("bob"), std::vector{103});
    EXPECT_TRUE(smb("root").empty());
    EXPECT_EQ(smb("carol"), std::vector{-1});
    EXPECT_TRUE(raised(ERR_NO_SUCH_USER));
    int one = 0;
    EXPECT_EQ(KOVAGetAllConnPidOfSmb(&one, 1), 3);  // all counted, one stored
    EXPECT_EQ(KOVAGetConnPidOfSmb(nullptr, &one, 1), -1);
    EXPECT_EQ(KOVAGetAllConnPidOfSmb(nullptr, 1), -1);
}

TEST_F(SmbConnectionTest, DeleteEndsTheUsersSessions) {
    // Real children stand in for the connection processes of the sandbox's table.
    Children children;
    const pid_t alices = children.sleeper(unique_name("smb"));
    const pid_t bobs = children.sleeper(unique_name("smb"));
    process(100, "smbd");
    process(alices, "smbd", 1026);
    process(bobs, "smbd", 1027);
    EXPECT_EQ(KOVADelConnOfSmb("alice"), 1);
    EXPECT_EQ(children.finish(alices), -SIGTERM);
    EXPECT_EQ(BlKLIBProcAlive(bobs), 1);
    EXPECT_EQ(KOVADelConnOfSmb("nobody-here"), -1);
    std::filesystem::remove_all(path("/proc/" + std::to_string(alices)));
    EXPECT_EQ(KOVADelConnOfSmb(nullptr), 1);  // everyone's
    EXPECT_EQ(children.finish(bobs), -SIGTERM);
}

}  // namespace
}  // namespace kova::test
