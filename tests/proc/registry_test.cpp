// The exclusive lock file and the operation registry shared by processes: conflicts, purging,
// the full table, budgets, ownership.
#include <sys/shm.h>
#include <syslog.h>

#include <thread>

#include "proc/proc_test_support.h"

namespace kova::test {
namespace {

using Entry = std::pair<uint32_t, uint32_t>;  // operation, pid

TEST(ExclusiveLock, TimesOutAfterTheBudgetInStepsAndIsFreeAfterRelease) {
    Sandbox sandbox;
    const std::string file = sandbox.path("/tmp/test.lock");
    int budget = 1000;
    const int held = GetExclusiveFileLock(file.c_str(), &budget);
    ASSERT_GE(held, 0);
    EXPECT_EQ(budget, 1000);  // nothing waited for
    budget = 500;
    const auto start = Clock::now();
    EXPECT_EQ(GetExclusiveFileLock(file.c_str(), &budget), -2);
    EXPECT_GE(Clock::now() - start, milliseconds(600));
    EXPECT_LT(Clock::now() - start, milliseconds(900));
    EXPECT_TRUE(raised(ERR_LOCK_FAILED, 36));
    EXPECT_EQ(budget, -100);  // three 200 ms steps
    EXPECT_EQ(ReleaseExclusiveFileLock(held), 0);
    budget = 0;
    EXPECT_EQ(ReleaseExclusiveFileLock(GetExclusiveFileLock(file.c_str(), &budget)), 0);

    budget = -1;
    EXPECT_EQ(GetExclusiveFileLock(file.c_str(), &budget), -1);
    EXPECT_TRUE(raised(ERR_BAD_PARAMETERS, 22));
    budget = 100;
    EXPECT_EQ(GetExclusiveFileLock(nullptr, &budget), -1);
    EXPECT_EQ(GetExclusiveFileLock(file.c_str(), nullptr), -1);
    EXPECT_EQ(GetExclusiveFileLock(sandbox.path("/no/dir/x.lock").c_str(), &budget), -1);
    EXPECT_TRUE(raised(ERR_OPEN_FAILED, 31));
}

class RegistryTest : public SandboxTest {
  protected:
    ~RegistryTest() override { remove_segment(); }
    static void remove_segment() {
        const int id = shmget(kova::proc::registry_key(), 0, 0);
        if (id >= 0) shmctl(id, IPC_RMID, nullptr);
    }
    // The entries of this sandbox's segment.
    static std::vector<Entry> entries() {
        kova::proc::AttachedRegistry attached(false);
        std::vector<Entry> list;
        for (uint32_t i = 0; attached.get() != nullptr && i < attached.get()->count; ++i)
            list.emplace_back(attached.get()->entries[i].op, attached.get()->entries[i].pid);
        return list;
    }
    static std::vector<Entry> mine(int op) { return {Entry(op, getpid())}; }
    // KOVAOperationRegister with room for four ids; n_ holds the count it gave back.
    int enroll(int op, int flags = 0, int budget_ms = 0) {
        n_ = 4;
        return KOVAOperationRegister(op, flags, ids_, &n_, budget_ms);
    }
    int ids_[4] = {-1, -1, -1, -1};
    int n_ = 4;
    Children children_;
};

// Other processes hold some operations; one more is asked for with room for one running id.
TEST_F(RegistryTest, ConflictsByClass) {
    const struct {
        std::vector<int> held;
        int op, flags, rc, n;
    } cases[] = {
        {{}, KOVA_OP_SHARE, 0, 0, 0},
        {{}, KOVA_OP_VOLUME, KOVA_OP_FLAG_TEST_ONLY, 0, 0},
        {{KOVA_OP_VOLUME}, KOVA_OP_VOLUME, KOVA_OP_FLAG_TEST_ONLY, 1, 1},
        {{KOVA_OP_INIT}, KOVA_OP_ACCOUNT, KOVA_OP_FLAG_SOFT_PASS, 1, 1},  // 16 blocks all hard
        {{KOVA_OP_BACKUP}, KOVA_OP_ACCOUNT, 0, 2, 1},                     // 14 blocks 2 softly
        {{KOVA_OP_BACKUP}, KOVA_OP_ACCOUNT, KOVA_OP_FLAG_SOFT_PASS, 0, 0},
        {{KOVA_OP_BACKUP}, KOVA_OP_TAPEBACKUP, KOVA_OP_FLAG_SOFT_PASS, 1, 1},  // ... 14 hard
        // Classes 1, 2 and 10 do not block each other: all three counted, one id copied.
        {{KOVA_OP_HOSTNAME, KOVA_OP_ACCOUNT, KOVA_OP_VOLUME}, KOVA_OP_IRON, 0, 1, 3},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(&c - cases);
        Children holders;
        for (int op : c.held)
            ASSERT_GT(holders.hold(op), 0);
        int ids[2] = {-1, -1}, n = 1;
        EXPECT_EQ(KOVAOperationRegister(c.op, c.flags, ids, &n, 0), c.rc);
        EXPECT_EQ(n, c.n);
        EXPECT_TRUE(n == 0 || std::count(c.held.begin(), c.held.end(), ids[0]) == 1) << ids[0];
        EXPECT_EQ(ids[1], -1);
        const bool registered = c.rc == 0 && c.flags != KOVA_OP_FLAG_TEST_ONLY;
        EXPECT_EQ(entries().size(), c.held.size() + registered);
        EXPECT_TRUE(!registered || entries().back() == mine(c.op)[0]);
        remove_segment();
    }
}

TEST_F(RegistryTest, EntriesOfDeadProcessesArePurged) {
    children_.end(children_.hold(KOVA_OP_INIT));
    const pid_t patch = children_.hold(KOVA_OP_PATCH);  // would conflict with a live init
    EXPECT_GT(patch, 0);
    children_.end(patch);
    EXPECT_EQ(entries().size(), 1u);  // stays until someone registers
    EXPECT_EQ(enroll(KOVA_OP_ACCOUNT), 0);
    EXPECT_EQ(entries(), mine(KOVA_OP_ACCOUNT));
}

TEST_F(RegistryTest, FullTableAndBadArguments) {
    for (int i = 0; i < 16; ++i)
        ASSERT_EQ(enroll(KOVA_OP_NONE), 0);
    EXPECT_EQ(enroll(KOVA_OP_NONE), -1);
    EXPECT_TRUE(raised(ERR_NOT_ENOUGH_SPACE, 92));
    EXPECT_EQ(n_, 0);
    EXPECT_EQ(entries().size(), 16u);
    remove_segment();
    EXPECT_EQ(enroll(40), -1);
    EXPECT_TRUE(raised(ERR_BAD_PARAMETERS, 36));
    EXPECT_EQ(n_, 0);
    EXPECT_EQ(enroll(KOVA_OP_NFS, 0, -1), -1);
    EXPECT_EQ(KOVAOperationRegister(KOVA_OP_NFS, 0, nullptr, &n_, 0), -1);
    EXPECT_EQ(KOVAOperationRegister(KOVA_OP_NFS, 0, ids_, nullptr, 0), -1);
    n_ = -1;
    EXPECT_EQ(KOVAOperationRegister(KOVA_OP_NFS, 0, ids_, &n_, 0), -1);
    EXPECT_TRUE(entries().empty());
}

TEST_F(RegistryTest, ConflictIsWaitedForWithinTheBudget) {
    const pid_t init = children_.hold(KOVA_OP_INIT);
    auto start = Clock::now();
    EXPECT_EQ(enroll(KOVA_OP_SHARE, 0, 1000), 1);
    EXPECT_GE(Clock::now() - start, milliseconds(1000));
    EXPECT_LT(Clock::now() - start, milliseconds(1000 + 200 + 150));  // one step over at most
    // A conflict that ends in time lets the operation in.
    std::thread ender([&] {
        std::this_thread::sleep_for(milliseconds(300));
        children_.end(init);
    });
    start = Clock::now();
    EXPECT_EQ(enroll(KOVA_OP_SHARE, 0, 2000), 0);
    const auto waited = Clock::now() - start;
    ender.join();
    EXPECT_GE(waited, milliseconds(300));
    EXPECT_LT(waited, milliseconds(1000));
    EXPECT_EQ(entries(), mine(KOVA_OP_SHARE));
}

TEST_F(RegistryTest, LockHeldOnTheFirstAttemptIsATimeOut) {
    int budget = 0;
    const int held = GetExclusiveFileLock(path("/tmp/procreg.lock").c_str(), &budget);
    ASSERT_GE(held, 0);
    EXPECT_EQ(enroll(KOVA_OP_SHARE), -1);
    EXPECT_TRUE(raised(ERR_TIMER_EXPIRED, 48));
    EXPECT_EQ(n_, 0);
    EXPECT_EQ(KOVAOperationUnregister(KOVA_OP_SHARE), -1);  // 2000 ms, then gives up
    EXPECT_TRUE(raised(ERR_LOCK_FAILED));
    ReleaseExclusiveFileLock(held);
}

TEST_F(RegistryTest, OnlyTheOwnerTransfersOrUnregisters) {
    LogCapture log;
    EXPECT_EQ(KOVAOperationTransfer(KOVA_OP_SHARE, 0), -1);
    EXPECT_TRUE(raised(ERR_BAD_PARAMETERS, 30));
    EXPECT_EQ(KOVAOperationTransfer(KOVA_OP_SHARE, -1), -1);
    EXPECT_TRUE(log.contains(LOG_ERR, "KOVAOperationTransfer(31) transfer error"));
    EXPECT_EQ(KOVAOperationUnregister(KOVA_OP_SHARE), -1);  // no segment yet
    EXPECT_TRUE(raised(ERR_OUT_OF_MEMORY, 48));
    ASSERT_GT(children_.hold(KOVA_OP_BACKUP), 0);
    EXPECT_EQ(KOVAOperationTransfer(KOVA_OP_BACKUP, getpid()), -2);
    EXPECT_TRUE(raised(ERR_OP_UNREGISTERED, 43));
    EXPECT_TRUE(log.contains(LOG_ERR, "KOVAOperationTransfer(57) transfer error"));
    EXPECT_EQ(KOVAOperationUnregister(KOVA_OP_BACKUP), -2);
    EXPECT_EQ(entries().size(), 1u);
}

TEST_F(RegistryTest, UnregisterAndTransferToTheNewProcess) {
    ASSERT_EQ(enroll(KOVA_OP_SHARE), 0);
    EXPECT_EQ(KOVAOperationUnregister(KOVA_OP_SHARE), 0);
    EXPECT_TRUE(raised(ERR_OP_UNREGISTERED));  // left set (kept)
    EXPECT_EQ(KOVAOperationUnregister(KOVA_OP_SHARE), -2);
    ASSERT_EQ(enroll(KOVA_OP_RESTORE), 0);
    int go[2];
    ASSERT_EQ(pipe(go), 0);
    const pid_t heir = fork();
    if (heir == 0) {
        char byte;
        _exit(read(go[0], &byte, 1) == 1 ? KOVAOperationUnregister(KOVA_OP_RESTORE) + 10 : 1);
    }
    EXPECT_EQ(KOVAOperationTransfer(KOVA_OP_RESTORE, heir), 0);
    EXPECT_EQ(entries(), std::vector{Entry(KOVA_OP_RESTORE, heir)});
    EXPECT_EQ(KOVAOperationUnregister(KOVA_OP_RESTORE), -2);
    ASSERT_EQ(write(go[1], "x", 1), 1);
    close(go[0]);
    close(go[1]);
    EXPECT_EQ(reap(heir), 10);  // the heir's unregister returned 0
    EXPECT_TRUE(entries().empty());
}

// Names end with the table; two sandboxes never share a segment, nor use the appliance's key.
TEST(RegistryKey, NamesAndOneSegmentPerRoot) {
    EXPECT_STREQ(KOVAOperationGetName(KOVA_OP_NONE), "none");
    EXPECT_STREQ(KOVAOperationGetName(KOVA_OP_TAPERESTORE), "taperestore");
    EXPECT_STREQ(KOVAOperationGetName(KOVA_OP_IRON), "iron");
    for (int op : {KOVA_OP_END, 40, -1})
        EXPECT_STREQ(KOVAOperationGetName(op), "") << op;
    Sandbox one;
    const key_t first = kova::proc::registry_key();
    EXPECT_NE(first, 888);
    setenv("KOVA_ROOT", (one.root() + "/").c_str(), 1);
    EXPECT_EQ(kova::proc::registry_key(), first);
    setenv("KOVA_ROOT", (one.root() + "x").c_str(), 1);
    EXPECT_NE(kova::proc::registry_key(), first);
    setenv("KOVA_ROOT", "/", 1);
    EXPECT_EQ(kova::proc::registry_key(), 888);
    setenv("KOVA_ROOT", one.root().c_str(), 1);
}

}  // namespace
}  // namespace kova::test
