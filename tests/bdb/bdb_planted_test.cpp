// Files that any local user can put where the caches live: a blocked creation name, a FIFO, a
// damaged or foreign file. Each is refused quickly and left as it was; none reaches the btree
// library, which would hang or crash on it.
#include <signal.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <functional>
#include <random>
#include <string>

#include "bdb/bdb_fixture.h"
#include "support/sys_fault.h"

namespace kova::test {
namespace {

using BdbPlantedTest = BdbTest;

// fn's result in a child killed after `seconds`: -1 when it had to be killed.
int in_child(const std::function<int()> &fn, unsigned seconds = 5) {
    const pid_t pid = fork();
    if (pid == 0) {
        alarm(seconds);
        _exit(fn());
    }
    int status = 0;
    waitpid(pid, &status, 0);
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

// A store of 300 records, closed.
void make_store(const std::string &path) {
    PKOVABDB db = KOVABDbOpen(path.c_str(), O_RDWR | O_CREAT, 0);
    ASSERT_NE(db, nullptr);
    for (int i = 0; i < 300; ++i) {
        const std::string key = "user" + std::to_string(i);
        ASSERT_EQ(KOVABDbSet(db, key.c_str(), static_cast<int32_t>(key.size() + 1), key.c_str(),
                             static_cast<int32_t>(key.size() + 1)),
                  0);
    }
    ASSERT_EQ(KOVABDbClose(db), 0);
}

TEST_F(BdbPlantedTest, ABlockedCreationNameFailsWithinASecondUnlessItIsOurStaleOne) {
    const std::string planted = path("/tmp/__db.test.db");
    write_file(planted, "");
    const auto started = std::chrono::steady_clock::now();
    EXPECT_EQ(in_child([&] {
                  return open_store() == nullptr && KLIBErrGet() == ERR_OPEN_FAILED ? 0 : 1;
              }),
              0);
    EXPECT_LT(std::chrono::steady_clock::now() - started, std::chrono::seconds(3));
    EXPECT_FALSE(file_exists(db_path()));
    // Left by a creator that was killed a while ago: ours to remove.
    const struct timespec old[2] = {{time(nullptr) - 60, 0}, {time(nullptr) - 60, 0}};
    ASSERT_EQ(utimensat(AT_FDCWD, planted.c_str(), old, 0), 0);
    ASSERT_NE(open_store(), nullptr);
    EXPECT_FALSE(file_exists(planted));
}

TEST_F(BdbPlantedTest, FifosAndDamagedHeadersAreRefusedAndLeftAlone) {
    ASSERT_EQ(mkfifo(db_path().c_str(), 0666), 0);
    EXPECT_EQ(in_child([&] {
                  return open_store() == nullptr && KLIBErrGet() == ERR_BDB_INVALID ? 0 : 1;
              }),
              0);
    ASSERT_EQ(unlink(db_path().c_str()), 0);

    make_store(db_path());
    const std::string good = read_file(db_path());
    // One byte each of magic, version, page size, page type and last page, in either byte order.
    for (const size_t at : {12, 15, 16, 19, 21, 22, 25, 32, 35}) {
        std::string bad = good;
        bad[at] = static_cast<char>(bad[at] ^ 0xff);
        write_file(db_path(), bad);
        EXPECT_EQ(open_store(0, O_RDWR), nullptr) << "byte " << at;
        EXPECT_EQ(KLIBErrGet(), ERR_BDB_INVALID);
        EXPECT_EQ(read_file(db_path()), bad);
    }
    std::string no_min_keys = good;  // 0 keys per page: the library divides by it
    no_min_keys.replace(76, 4, 4, '\0');
    write_file(db_path(), no_min_keys);
    EXPECT_EQ(open_store(0, O_RDWR), nullptr);
    write_file(db_path(), good.substr(0, good.size() - 100));  // not whole pages
    EXPECT_EQ(open_store(0, O_RDWR), nullptr);
    write_file(db_path(), good);
    EXPECT_NE(open_store(0, O_RDWR), nullptr);
}

// The caches are made readable for every process by the descriptor, not by the path; a
// failure of that is only logged.
TEST_F(BdbPlantedTest, ModeIsSetThroughTheDescriptor) {
    if (geteuid() != 0) GTEST_SKIP() << "the mode is set only for root";
    const mode_t saved = umask(077);
    ASSERT_NE(open_store(), nullptr);
    close_store();
    struct stat st {};
    ASSERT_EQ(stat(db_path().c_str(), &st), 0);
    EXPECT_EQ(st.st_mode & 07777, 0666u);
    umask(saved);
    LogCapture log;
    SysFault<&sys::Calls::fchmod> fault(1, EPERM);
    EXPECT_NE(open_store(), nullptr);
    EXPECT_EQ(fault.calls(), 1);
    EXPECT_EQ(log.lines().size(), 1u);
    EXPECT_NE(log.lines()[0].text.find("errno=1/Operation not permitted, chmod failed."),
              std::string::npos);
}

// Random bit flips anywhere in a store, opened and walked in a child: the header check catches
// what is cheap to catch; what the library still crashes on is counted, not asserted.
TEST_F(BdbPlantedTest, BitFlippedStoresAreRefusedOrReadWithoutHarmMostly) {
    make_store(db_path());
    const std::string good = read_file(db_path());
    std::mt19937 random(4242);
    constexpr int kRuns = 200;
    int refused = 0, crashed = 0;
    for (int run = 0; run < kRuns; ++run) {
        std::string bad = good;
        const int flips = std::uniform_int_distribution<int>(1, 8)(random);
        for (int i = 0; i < flips; ++i) {
            const size_t at =
                std::uniform_int_distribution<size_t>(0, run % 2 ? bad.size() - 1 : 63)(random);
            bad[at] = static_cast<char>(bad[at] ^ (1 << (random() % 8)));
        }
        write_file(db_path(), bad);
        const int rc = in_child([&] {
            PKOVABDB db = KOVABDbOpen(db_path().c_str(), O_RDWR, 0);
            if (db == nullptr) return 2;
            db_ = db;
            walk(KOVA_BDB_CURSOR_FIRST);
            db_ = nullptr;
            KOVABDbClose(db);
            return 0;
        });
        refused += rc == 2;
        crashed += rc == -1;
    }
    printf("%d bit-flipped stores: %d refused, %d crashed the btree library\n", kRuns, refused,
           crashed);
    RecordProperty("crashed", crashed);
    EXPECT_GT(refused, 0);
}

}  // namespace
}  // namespace kova::test
