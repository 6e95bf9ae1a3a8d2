// Several processes at once: writers under the lock lose no update, readers see whole files, and
// a writer killed in the middle of a rewrite leaves the old or the new file.
#include <fcntl.h>
#include <signal.h>

#include <chrono>
#include <random>
#include <string>

#include "file_process_helpers.h"
#include "kovasdk/error.h"
#include "kovasdk/file.h"
#include "support/sandbox.h"

namespace {

using kova::test::fork_child;
using kova::test::read_file;
using kova::test::wait_child;
using kova::test::write_file;

constexpr int kWriters = 8;
constexpr int kRounds = 200;
constexpr uint32_t kInfoExclusive = KLIB_LOCK_KOVAINFO | KLIB_LOCK_EX | KLIB_LOCK_NB;

class FileConcurrency : public kova::test::SandboxTest {
  protected:
    void TearDown() override { ErrKLIBFileCloseLock(); }
    std::string conf_ = path("/etc/kovainfo.conf");
};

// What every complete version of the shared file looks like: header, one line per writer,
// trailer.
bool complete(const std::string &text) {
    if (text.rfind("# head\n", 0) != 0) return false;
    if (text.size() < 7 || text.compare(text.size() - 7, 7, "tail=1\n") != 0) return false;
    int lines = 0;
    for (const char c : text)
        lines += c == '\n';
    return lines == kWriters + 2;
}

TEST_F(FileConcurrency, WritersUnderTheLockLoseNoUpdate) {
    std::string initial = "# head\n";
    for (int w = 0; w < kWriters; ++w)
        initial += "writer" + std::to_string(w) + "=0\n";
    write_file(conf_, initial + "tail=1\n");
    const std::string conf = conf_;

    int stop[2];
    ASSERT_EQ(pipe(stop), 0);
    // A reader without lock: every read is a complete old or new file.
    const pid_t reader = fork_child([&] {
        close(stop[1]);
        fcntl(stop[0], F_SETFL, O_NONBLOCK);
        int reads = 0;
        for (char c; read(stop[0], &c, 1) != 0; ++reads) {
            if (!complete(read_file(conf))) return 1;
        }
        return reads > 0 ? 0 : 2;
    });
    close(stop[0]);

    pid_t writers[kWriters];
    for (int w = 0; w < kWriters; ++w) {
        writers[w] = fork_child([&conf, w] {
            const std::string key = "writer" + std::to_string(w);
            for (int i = 0; i < kRounds; ++i) {
                if (ErrKLIBFileLock(kInfoExclusive, 60) != 0) return 1;
                char buf[16];
                if (KLIBFileGetKeyValue(conf.c_str(), key.c_str(), buf, sizeof buf, 0) <= 0) {
                    return 2;
                }
                const std::string next = std::to_string(atoi(buf) + 1);
                if (KLIBFileSetKeyValue(conf.c_str(), key.c_str(), next.c_str(), nullptr) != 1) {
                    return 3;
                }
                if (ErrKLIBFileUnlock(KLIB_LOCK_KOVAINFO) != 0) return 4;
            }
            return 0;
        });
    }
    for (const pid_t pid : writers)
        EXPECT_EQ(wait_child(pid), 0);
    close(stop[1]);
    EXPECT_EQ(wait_child(reader), 0);

    const std::string final_text = read_file(conf_);
    EXPECT_TRUE(complete(final_text)) << final_text;
    for (int w = 0; w < kWriters; ++w) {
        const std::string line = "writer" + std::to_string(w) + "=" + std::to_string(kRounds);
        EXPECT_NE(final_text.find(line + "\n"), std::string::npos) << line;
    }
    EXPECT_EQ(kova::test::list_dir(path("/etc")), (std::vector<std::string>{"kovainfo.conf"}));
}

// The file with value n: a large fixed body, so that each rewrite takes a while, and one key.
std::string version(int n) {
    std::string text;
    for (int i = 0; i < 3000; ++i)
        text += "filler" + std::to_string(i) + "=\"0123456789\"\n";
    return text + "round=" + std::to_string(n) + "\n";
}

TEST_F(FileConcurrency, WriterKilledMidRewriteLeavesOldOrNew) {
    constexpr int kKills = 25;
    write_file(conf_, version(0));
    const std::string conf = conf_;
    std::mt19937 random(20240611);
    int last = 0;
    for (int kill_no = 0; kill_no < kKills; ++kill_no) {
        const pid_t writer = fork_child([&conf, last] {
            for (int n = last + 1;; ++n) {
                const std::string value = std::to_string(n);
                if (KLIBFileSetKeyValue(conf.c_str(), "round", value.c_str(), nullptr) != 1) {
                    return 1;
                }
            }
        });
        usleep(std::uniform_int_distribution<int>(1000, 30000)(random));
        kill(writer, SIGKILL);
        EXPECT_EQ(wait_child(writer), -1);
        char buf[16];
        ASSERT_GT(KLIBFileGetKeyValue(conf_.c_str(), "round", buf, sizeof buf, 0), 0);
        const int seen = atoi(buf);
        ASSERT_GE(seen, last);
        ASSERT_EQ(read_file(conf_), version(seen)) << "after kill " << kill_no;
        last = seen;
    }
    // Leftover temporary files of killed writers do not disturb the next writer.
    EXPECT_EQ(KLIBFileSetKeyValue(conf_.c_str(), "round", "-1", nullptr), 1);
    EXPECT_EQ(read_file(conf_), version(-1));
    EXPECT_GT(last, 0);
}

}  // namespace
