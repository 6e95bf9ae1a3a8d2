// Many writers at once, and writers killed at random moments: the ring always parses from head
// to tail, and every record in it is whole.
#include <signal.h>
#include <sys/wait.h>
#include <syslog.h>
#include <unistd.h>

#include <map>
#include <random>

#include "log/log_support.h"

namespace kova::test {
namespace {

using LogStressTest = LogTest;

constexpr int kWriters = 8;
constexpr int kEvents = 1000;

// Each writer appends its events "w<writer>" / "<n>" and exits with its number of failed
// appends. Waits between lock attempts are a few milliseconds here instead of a second, so the
// run takes seconds; the retry count is the library's.
void run_writers(const std::string &file, int size, int failures[kWriters]) {
    pid_t pids[kWriters];
    for (int w = 0; w < kWriters; ++w) {
        pids[w] = fork();
        ASSERT_GE(pids[w], 0);
        if (pids[w] == 0) {
            glogsizeMax = size;
            sys::calls().fsync = [](int) { return 0; };
            sys::calls().sleep = [](unsigned) -> unsigned {
                usleep(1000 + random() % 4000);
                return 0;
            };
            srandom(getpid());
            int failed = 0;
            const std::string writer = "w" + std::to_string(w);
            for (int n = 0; n < kEvents; ++n) {
                failed += KOVALogSet1a(file.c_str(), 1, 0x11100001, writer.c_str(),
                                       std::to_string(n).c_str(), "", "") != 0;
            }
            _exit(failed > 250 ? 250 : failed);
        }
    }
    for (int w = 0; w < kWriters; ++w) {
        int status = 0;
        ASSERT_EQ(waitpid(pids[w], &status, 0), pids[w]);
        ASSERT_TRUE(WIFEXITED(status));
        failures[w] = WEXITSTATUS(status);
    }
}

// Per writer, the events found in the ring, in ring order.
std::map<std::string, std::vector<int>> by_writer(const LogImage &log) {
    std::map<std::string, std::vector<int>> out;
    for (const EventRecord &r : log.records)
        out[r.args[0]].push_back(std::stoi(r.args[1]));
    return out;
}

TEST_F(LogStressTest, EightWritersIntoALogLargeEnoughForAll) {
    const std::string file = log_path();
    int failures[kWriters];
    run_writers(file, 1 << 20, failures);
    const LogImage log = image(file);
    ASSERT_TRUE(log.whole);
    const auto writers = by_writer(log);
    for (int w = 0; w < kWriters; ++w) {
        const auto it = writers.find("w" + std::to_string(w));
        ASSERT_NE(it, writers.end());
        const std::vector<int> &seen = it->second;
        // Every event that was not refused is there, once, in the writer's order.
        EXPECT_EQ(seen.size() + failures[w], static_cast<size_t>(kEvents)) << w;
        EXPECT_TRUE(std::is_sorted(seen.begin(), seen.end())) << w;
        EXPECT_EQ(std::adjacent_find(seen.begin(), seen.end()), seen.end()) << w;
        if (failures[w] == 0) {
            EXPECT_EQ(seen.back(), kEvents - 1);
        }
    }
}

TEST_F(LogStressTest, EightWritersIntoAWrappingLog) {
    const std::string file = log_path();
    int failures[kWriters];
    run_writers(file, 65536, failures);
    const LogImage log = image(file);
    ASSERT_TRUE(log.whole);
    ASSERT_FALSE(log.records.empty());
    for (const auto &[writer, seen] : by_writer(log)) {
        EXPECT_TRUE(std::is_sorted(seen.begin(), seen.end())) << writer;
        EXPECT_EQ(std::adjacent_find(seen.begin(), seen.end()), seen.end()) << writer;
    }
    // The last writer to finish wrote the newest record: its last event.
    int total_failures = 0;
    for (int f : failures)
        total_failures += f;
    if (total_failures == 0) {
        EXPECT_EQ(log.records.back().args[1], std::to_string(kEvents - 1));
    }
}

// A writer killed at any moment leaves a ring that reads whole; the next append works.
TEST_F(LogStressTest, WritersKilledAtRandomMomentsLeaveAReadableRing) {
    write_file(path("/usr/kova/kovasdk/texts/tst/events"), "[11100000]\n11100001=@1 @2\n");
    const std::string file = log_path();
    std::mt19937 random(42);
    int damaged = 0;
    LogCapture capture;
    for (int kill_no = 0; kill_no < 120; ++kill_no) {
        const pid_t child = fork();
        ASSERT_GE(child, 0);
        if (child == 0) {
            glogsizeMax = 2048;
            for (int n = 0;; ++n) {
                const std::string pad(n % 50, 'k');
                KOVALogSet1a(file.c_str(), 1, 0x11100001, pad.c_str(), std::to_string(n).c_str(),
                             "", "");
            }
        }
        usleep(random() % 20000);
        kill(child, SIGKILL);
        int status = 0;
        ASSERT_EQ(waitpid(child, &status, 0), child);
        if (!file_exists(file)) continue;
        const LogImage before = image(file);
        damaged += !before.whole;
        const std::string text = render(file, "tst");
        const LogImage after = image(file);
        ASSERT_TRUE(after.whole) << kill_no;
        EXPECT_EQ(static_cast<size_t>(std::count(text.begin(), text.end(), '\n')),
                  after.records.size());
        glogsizeMax = 2048;
        ASSERT_EQ(KOVALogSet1a(file.c_str(), 1, 0x11100001, "after",
                               std::to_string(kill_no).c_str(), "", ""),
                  0);
        const LogImage next = image(file);
        ASSERT_TRUE(next.whole);
        EXPECT_EQ(next.records.back().args[0], "after");
    }
    // The append's order of writes (record, sync, tail; head stored after each drop) leaves no
    // damaged ring behind, whatever moment the kill hits.
    EXPECT_EQ(damaged, 0);
    EXPECT_FALSE(capture.mentions(LOG_ERR, "Log format error"));
}

}  // namespace
}  // namespace kova::test
