// The file-service connection count and login limit, and the SMB connection functions, over a
// process table inside the sandbox.
#include "core/paths.h"
#include "proc/proc_test_support.h"

namespace kova::test {
namespace {

class ConnectionTest : public SandboxTest {
  protected:
    ConnectionTest() {
        kova::proc::testing::forget_max_services();
        write_file(path("/etc/passwd"),
                   "root:x:0:0:root:/root:/bin/sh\n"
                   "alice:x:1026:100:Alice:/var/services/homes/alice:/bin/csh\n"
                   "bob:x:1027:100:Bob:/var/services/homes/bob:/bin/csh\n");
    }
    ~ConnectionTest() override { kova::proc::testing::forget_max_services(); }

    // Processes of the sandbox's table named name: {pid, effective uid} each.
    void processes(const std::string &name, std::initializer_list<std::pair<int, int>> list) {
        for (const auto &[pid, euid] : list) {
            const std::string id = std::to_string(pid), uid = std::to_string(euid);
            write_file(path("/proc/" + id + "/status"), "Name:\t" + name + "\nState:\tS\nPid:\t" +
                                                            id + "\nUid:\t0\t" + uid + "\t" + uid +
                                                            "\t" + uid + "\n");
        }
    }
    // 3 smbd (2 masters), 1 afpd (the master), 2 ftpd (1 master): two connections.
    void two_connections() {
        processes("smbd", {{100, 0}, {101, 0}, {102, 1026}});
        processes("afpd", {{200, 0}});
        processes("proftpd", {{300, 0}, {301, 1027}});
        processes("bash", {{400, 0}});
    }
    // The factory settings with this "maxservices" line only; read at the first check.
    void max_services(const std::string &line) {
        write_file(path(kova::paths::kKovaInfoDefaults), line);
    }
    static int count() {
        int n = -1;
        return KLIBConnectionCountGet(&n) == 0 ? n : -1;
    }
    // The SMB connection pids of user (of everyone when null), sorted; {-1} on failure.
    static std::vector<int> smb(const char *user) {
        int pids[8] = {};
        const int n = user ? KOVAGetConnPidOfSmb(user, pids, 8) : KOVAGetAllConnPidOfSmb(pids, 8);
        std::vector<int> found(pids, pids + std::clamp(n, 0, 8));
        std::sort(found.begin(), found.end());
        return n < 0 ? std::vector{-1} : found;
    }
};

TEST_F(ConnectionTest, CountsServersBeyondTheirMasters) {
    processes("smbd", {{100, 0}});
    processes("afpd", {{200, 0}});
    EXPECT_EQ(count(), 0);
    two_connections();
    write_file(path("/proc/self/status"), "Name:\tsmbd\n");  // not a pid directory
    EXPECT_EQ(count(), 2);
    processes("afpd", {{201, 0}, {202, 0}});
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
    processes("smbd", {{103, 1028}});
    EXPECT_EQ(KLIBConnectionCountLogin(0, 0), -1);  // still 2
    kova::proc::testing::forget_max_services();
    EXPECT_EQ(KLIBConnectionCountLogin(0, 1), 3);
}

TEST_F(ConnectionTest, MissingOrNegativeMaximumMeans32) {
    for (int i = 0; i < 33; ++i)
        processes("afpd", {{1000 + i, 0}});  // 32 connections
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
    Children children;
    const pid_t holder = children.hold_while(
        [] { return ErrKLIBFileLock(KLIB_LOCK_CONNECT | KLIB_LOCK_EX | KLIB_LOCK_NB, 0); });
    ASSERT_GT(holder, 0);
    EXPECT_EQ(KLIBConnectionCountLogin(0, 1), -1);
    EXPECT_TRUE(raised(ERR_LOCK_FAILED, 30));
    children.end(holder);
    EXPECT_EQ(KLIBConnectionCountLogin(0, 1), 2);
}

TEST_F(ConnectionTest, ConnectionsOfAllUsersAndOfOne) {
    processes("smbd", {{100, 0}, {101, 0}, {102, 1026}, {103, 1027}, {104, 1026}});
    processes("smbdx", {{105, 1026}});
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

TEST_F(ConnectionTest, DeleteEndsTheUsersSessions) {
    // Real children stand in for the connection processes of the sandbox's table.
    Children children;
    const pid_t alices = children.sleeper(unique_name("smb"));
    const pid_t bobs = children.sleeper(unique_name("smb"));
    processes("smbd", {{100, 0}, {alices, 1026}, {bobs, 1027}});
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
