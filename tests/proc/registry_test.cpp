// The operation registry, shared by processes: conflicts, purging, the full table, budgets.
#include <sys/wait.h>
#include <syslog.h>
#include <unistd.h>

#include <chrono>
#include <string>
#include <thread>
#include <vector>

#include "kovasdk/error.h"
#include "kovasdk/proc.h"
#include "proc/proc_internal.h"
#include "proc/proc_test_support.h"

namespace kova::test {
namespace {

using Clock = std::chrono::steady_clock;

// The live entries of this sandbox's segment.
std::vector<std::pair<uint32_t, uint32_t>> entries() {
    kova::proc::AttachedRegistry attached(false);
    std::vector<std::pair<uint32_t, uint32_t>> list;
    if (attached.get() == nullptr) return list;
    for (uint32_t i = 0; i < attached.get()->count; ++i) {
        list.emplace_back(attached.get()->entries[i].op, attached.get()->entries[i].pid);
    }
    return list;
}

std::pair<uint32_t, uint32_t> mine(int op) {
    return {static_cast<uint32_t>(op), static_cast<uint32_t>(getpid())};
}

using RegistryConflicts = RegistryTest;

TEST_F(RegistryConflicts, FreeOperationRegistersAndUnregisters) {
    int ids[4] = {-1, -1, -1, -1};
    int n = 4;
    EXPECT_EQ(KOVAOperationRegister(KOVA_OP_SHARE, 0, ids, &n, 0), 0);
    EXPECT_EQ(n, 0);
    EXPECT_EQ(entries(), (std::vector{mine(KOVA_OP_SHARE)}));
    EXPECT_EQ(KOVAOperationUnregister(KOVA_OP_SHARE), 0);
    EXPECT_EQ(KLIBErrGet(), static_cast<uint32_t>(ERR_OP_UNREGISTERED));  // left set (kept)
    EXPECT_TRUE(entries().empty());
    EXPECT_EQ(KOVAOperationUnregister(KOVA_OP_SHARE), -2);
}

TEST_F(RegistryConflicts, HardConflictReturnsTheRunningIds) {
    HeldOperation init(KOVA_OP_INIT);  // class 16 blocks every class hard
    ASSERT_EQ(init.result(), 0);
    int ids[4] = {-1, -1, -1, -1};
    int n = 4;
    EXPECT_EQ(KOVAOperationRegister(KOVA_OP_ACCOUNT, KOVA_OP_FLAG_SOFT_PASS, ids, &n, 0), 1);
    EXPECT_EQ(n, 1);
    EXPECT_EQ(ids[0], KOVA_OP_INIT);
    EXPECT_EQ(entries().size(), 1u);
}

TEST_F(RegistryConflicts, SoftConflictPassesOnlyWithTheFlag) {
    HeldOperation backup(KOVA_OP_BACKUP);  // class 14 blocks class 2 softly
    ASSERT_EQ(backup.result(), 0);
    int ids[4] = {-1, -1, -1, -1};
    int n = 4;
    EXPECT_EQ(KOVAOperationRegister(KOVA_OP_ACCOUNT, 0, ids, &n, 0), 2);
    EXPECT_EQ(n, 1);
    EXPECT_EQ(ids[0], KOVA_OP_BACKUP);
    n = 4;
    EXPECT_EQ(KOVAOperationRegister(KOVA_OP_ACCOUNT, KOVA_OP_FLAG_SOFT_PASS, ids, &n, 0), 0);
    EXPECT_EQ(n, 0);
    EXPECT_EQ(entries().back(), mine(KOVA_OP_ACCOUNT));
    // A second backup is blocked hard by the first (class 14 blocks itself: 0xE000).
    n = 4;
    EXPECT_EQ(KOVAOperationRegister(KOVA_OP_TAPEBACKUP, KOVA_OP_FLAG_SOFT_PASS, ids, &n, 0), 1);
}

TEST_F(RegistryConflicts, TestOnlyChecksWithoutRegistering) {
    int ids[4];
    int n = 4;
    EXPECT_EQ(KOVAOperationRegister(KOVA_OP_VOLUME, KOVA_OP_FLAG_TEST_ONLY, ids, &n, 0), 0);
    EXPECT_TRUE(entries().empty());
    HeldOperation volume(KOVA_OP_VOLUME);
    n = 4;
    EXPECT_EQ(KOVAOperationRegister(KOVA_OP_VOLUME, KOVA_OP_FLAG_TEST_ONLY, ids, &n, 0), 1);
    EXPECT_EQ(entries().size(), 1u);
}

TEST_F(RegistryConflicts, CapacityLimitsTheCopyNotTheCount) {
    HeldOperation a(KOVA_OP_HOSTNAME);  // classes 1, 2 and 10 do not block each other
    HeldOperation b(KOVA_OP_ACCOUNT);
    HeldOperation c(KOVA_OP_VOLUME);
    ASSERT_EQ(a.result() + b.result() + c.result(), 0);
    int ids[3] = {-1, -1, -1};
    int n = 1;
    EXPECT_EQ(KOVAOperationRegister(KOVA_OP_IRON, 0, ids, &n, 0), 1);
    EXPECT_EQ(n, 3);
    EXPECT_TRUE(ids[0] == KOVA_OP_HOSTNAME || ids[0] == KOVA_OP_ACCOUNT ||
                ids[0] == KOVA_OP_VOLUME);
    EXPECT_EQ(ids[1], -1);
}

TEST_F(RegistryConflicts, EntriesOfDeadProcessesArePurged) {
    HeldOperation first(KOVA_OP_INIT);
    first.end();
    HeldOperation second(KOVA_OP_PATCH);  // would conflict with a live init
    EXPECT_EQ(second.result(), 0);
    second.end();
    EXPECT_EQ(entries().size(), 1u);  // stays until someone registers
    int ids[4];
    int n = 4;
    EXPECT_EQ(KOVAOperationRegister(KOVA_OP_ACCOUNT, 0, ids, &n, 0), 0);
    EXPECT_EQ(entries(), (std::vector{mine(KOVA_OP_ACCOUNT)}));
}

TEST_F(RegistryConflicts, FullTableRefusesTheSeventeenth) {
    int ids[4];
    int n = 4;
    for (int i = 0; i < 16; ++i)
        ASSERT_EQ(KOVAOperationRegister(KOVA_OP_NONE, 0, ids, &n, 0), 0);
    EXPECT_EQ(KOVAOperationRegister(KOVA_OP_NONE, 0, ids, &n, 0), -1);
    EXPECT_EQ(KLIBErrGet(), static_cast<uint32_t>(ERR_NOT_ENOUGH_SPACE));
    EXPECT_EQ(KOVAErrorGetLine(), 92);
    EXPECT_EQ(n, 0);
    EXPECT_EQ(entries().size(), 16u);
}

TEST_F(RegistryConflicts, BadArguments) {
    int ids[4];
    int n = 4;
    EXPECT_EQ(KOVAOperationRegister(40, 0, ids, &n, 0), -1);
    EXPECT_EQ(KOVAErrorGetLine(), 36);
    EXPECT_EQ(n, 0);
    n = 4;
    EXPECT_EQ(KOVAOperationRegister(KOVA_OP_NFS, 0, ids, &n, -1), -1);
    EXPECT_EQ(KOVAOperationRegister(KOVA_OP_NFS, 0, nullptr, &n, 0), -1);
    EXPECT_EQ(KOVAOperationRegister(KOVA_OP_NFS, 0, ids, nullptr, 0), -1);
    n = -1;
    EXPECT_EQ(KOVAOperationRegister(KOVA_OP_NFS, 0, ids, &n, 0), -1);
    EXPECT_EQ(KLIBErrGet(), static_cast<uint32_t>(ERR_BAD_PARAMETERS));
}

using RegistryBudget = RegistryTest;

TEST_F(RegistryBudget, ConflictIsWaitedForWithinTheBudget) {
    HeldOperation init(KOVA_OP_INIT);
    int ids[4];
    int n = 4;
    const auto start = Clock::now();
    EXPECT_EQ(KOVAOperationRegister(KOVA_OP_SHARE, 0, ids, &n, 1000), 1);
    const auto waited = Clock::now() - start;
    EXPECT_GE(waited, std::chrono::milliseconds(1000));
    EXPECT_LT(waited, std::chrono::milliseconds(1000 + 200 + 150));
}

TEST_F(RegistryBudget, ConflictThatEndsInTimeLetsTheOperationIn) {
    HeldOperation init(KOVA_OP_INIT);
    std::thread ender([&] {
        std::this_thread::sleep_for(std::chrono::milliseconds(300));
        init.end();
    });
    int ids[4];
    int n = 4;
    const auto start = Clock::now();
    EXPECT_EQ(KOVAOperationRegister(KOVA_OP_SHARE, 0, ids, &n, 2000), 0);
    const auto waited = Clock::now() - start;
    ender.join();
    EXPECT_GE(waited, std::chrono::milliseconds(300));
    EXPECT_LT(waited, std::chrono::milliseconds(1000));
    EXPECT_EQ(entries(), (std::vector{mine(KOVA_OP_SHARE)}));
}

TEST_F(RegistryBudget, LockHeldOnTheFirstAttemptIsATimeOut) {
    int budget = 0;
    const int held = GetExclusiveFileLock(path("/tmp/procreg.lock").c_str(), &budget);
    ASSERT_GE(held, 0);
    int ids[4];
    int n = 4;
    EXPECT_EQ(KOVAOperationRegister(KOVA_OP_SHARE, 0, ids, &n, 0), -1);
    EXPECT_EQ(KLIBErrGet(), static_cast<uint32_t>(ERR_TIMER_EXPIRED));
    EXPECT_EQ(KOVAErrorGetLine(), 48);
    EXPECT_EQ(n, 0);
    EXPECT_EQ(KOVAOperationUnregister(KOVA_OP_SHARE), -1);  // 2000 ms, then gives up
    EXPECT_EQ(KLIBErrGet(), static_cast<uint32_t>(ERR_LOCK_FAILED));
    ReleaseExclusiveFileLock(held);
}

using RegistryOwnership = RegistryTest;

TEST_F(RegistryOwnership, AnotherProcessCannotTransferOrUnregister) {
    HeldOperation backup(KOVA_OP_BACKUP);
    LogCapture log;
    EXPECT_EQ(KOVAOperationTransfer(KOVA_OP_BACKUP, getpid()), -2);
    EXPECT_EQ(KLIBErrGet(), static_cast<uint32_t>(ERR_OP_UNREGISTERED));
    EXPECT_EQ(KOVAErrorGetLine(), 43);
    EXPECT_TRUE(log.contains(LOG_ERR, "KOVAOperationTransfer(57) transfer error"));
    EXPECT_EQ(KOVAOperationUnregister(KOVA_OP_BACKUP), -2);
    EXPECT_EQ(entries().size(), 1u);
}

TEST_F(RegistryOwnership, TransferHandsTheEntryToTheNewProcess) {
    int ids[4];
    int n = 4;
    ASSERT_EQ(KOVAOperationRegister(KOVA_OP_RESTORE, 0, ids, &n, 0), 0);
    int go[2];
    ASSERT_EQ(pipe(go), 0);
    const pid_t heir = fork();
    if (heir == 0) {
        close(go[1]);
        char byte;
        if (read(go[0], &byte, 1) != 1) _exit(1);
        _exit(KOVAOperationUnregister(KOVA_OP_RESTORE) == 0 ? 0 : 2);
    }
    close(go[0]);
    EXPECT_EQ(KOVAOperationTransfer(KOVA_OP_RESTORE, heir), 0);
    EXPECT_EQ(entries(), (std::vector{std::pair<uint32_t, uint32_t>(KOVA_OP_RESTORE, heir)}));
    EXPECT_EQ(KOVAOperationUnregister(KOVA_OP_RESTORE), -2);
    ASSERT_EQ(write(go[1], "x", 1), 1);
    close(go[1]);
    const int status = reap(heir);
    EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0);
    EXPECT_TRUE(entries().empty());
}

TEST_F(RegistryOwnership, TransferRefusesGroupPidsAndUnregisterNeedsTheSegment) {
    LogCapture log;
    EXPECT_EQ(KOVAOperationTransfer(KOVA_OP_SHARE, 0), -1);
    EXPECT_EQ(KOVAErrorGetLine(), 30);
    EXPECT_EQ(KOVAOperationTransfer(KOVA_OP_SHARE, -1), -1);
    EXPECT_TRUE(log.contains(LOG_ERR, "KOVAOperationTransfer(31) transfer error"));
    EXPECT_EQ(KOVAOperationUnregister(KOVA_OP_SHARE), -1);
    EXPECT_EQ(KLIBErrGet(), static_cast<uint32_t>(ERR_OUT_OF_MEMORY));
    EXPECT_EQ(KOVAErrorGetLine(), 48);
}

TEST(RegistryNames, NamesAndTheEndOfTheTable) {
    EXPECT_STREQ(KOVAOperationGetName(KOVA_OP_NONE), "none");
    EXPECT_STREQ(KOVAOperationGetName(KOVA_OP_TAPERESTORE), "taperestore");
    EXPECT_STREQ(KOVAOperationGetName(KOVA_OP_IRON), "iron");
    EXPECT_STREQ(KOVAOperationGetName(KOVA_OP_END), "");
    EXPECT_STREQ(KOVAOperationGetName(40), "");
    EXPECT_STREQ(KOVAOperationGetName(-1), "");
}

// Two sandboxes never share a segment, and neither uses the appliance's key.
TEST(RegistryKey, EachRootHasItsOwnSegment) {
    Sandbox one;
    const key_t first = kova::proc::registry_key();
    setenv("KOVA_ROOT", (one.root() + "/").c_str(), 1);
    EXPECT_EQ(kova::proc::registry_key(), first);
    setenv("KOVA_ROOT", (one.root() + "x").c_str(), 1);
    EXPECT_NE(kova::proc::registry_key(), first);
    setenv("KOVA_ROOT", "/", 1);
    EXPECT_EQ(kova::proc::registry_key(), 888);
    setenv("KOVA_ROOT", one.root().c_str(), 1);
    EXPECT_NE(first, 888);
}

}  // namespace
}  // namespace kova::test
