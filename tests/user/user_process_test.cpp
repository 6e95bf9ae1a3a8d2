// Several processes at once: readers beside a writer, writers beside each other, and writers
// killed at any instant, including between the renames that replace the four files.
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <random>
#include <set>
#include <sstream>
#include <string>
#include <vector>

#include "core/sys.h"
#include "support/target.h"
#include "user_test.h"

namespace kova::test {
namespace {

std::vector<std::string> lines_of(const std::string &text) {
    std::vector<std::string> lines;
    std::istringstream in(text);
    for (std::string line; std::getline(in, line);)
        lines.push_back(line);
    return lines;
}

int fields_of(const std::string &line) {
    return static_cast<int>(std::count(line.begin(), line.end(), ':')) + 1;
}

// The last failure, for a message: its code and where it was raised.
std::string failure() {
    char code[16];
    snprintf(code, sizeof code, "0x%04X", KLIBErrGet());
    return std::string(code) + " at " + KOVAErrorGetFile() + ":" +
           std::to_string(KOVAErrorGetLine());
}

class UserProcess : public UserTest {
  protected:
    // Every line of the file whole: it ends in a newline and each account line has its
    // fields (kovauser.conf: 3, or more where the mail holds a colon).
    ::testing::AssertionResult whole(const char *file, int fields) const {
        const std::string content = text(file);
        if (content.empty() || content.back() != '\n') {
            return ::testing::AssertionFailure() << file << " does not end in a newline";
        }
        for (const std::string &line : lines_of(content)) {
            if (line.empty() || line[0] == '#') continue;
            if (fields_of(line) != fields) {
                return ::testing::AssertionFailure() << file << ": \"" << line << "\"";
            }
        }
        return ::testing::AssertionSuccess();
    }
    ::testing::AssertionResult all_whole() const {
        for (auto [file, fields] : {std::pair{"/etc/passwd", 7},
                                    {"/etc/shadow", 9},
                                    {"/etc/kovauser.conf", 3},
                                    {"/usr/kova/etc/private/smbpasswd", 7}}) {
            auto result = whole(file, fields);
            if (!result) return result;
        }
        return ::testing::AssertionSuccess();
    }
    // The cache answers for exactly the accounts of /etc/passwd, with their ids.
    ::testing::AssertionResult cache_follows_passwd() const {
        for (const std::string &line : lines_of(text("/etc/passwd"))) {
            const std::string name = line.substr(0, line.find(':'));
            const uint32_t uid = std::stoul(line.substr(line.find(':', name.size() + 1) + 1));
            User user;
            if (KOVAUserGet(name.c_str(), &user.p) != 0) {
                return ::testing::AssertionFailure()
                       << "no " << name << ": 0x" << std::hex << KLIBErrGet();
            }
            if (user->uid != uid) {
                return ::testing::AssertionFailure() << name << " has id " << user->uid;
            }
        }
        return ::testing::AssertionSuccess();
    }
    bool in_passwd(const std::string &name) const {
        return text("/etc/passwd").find("\n" + name + ":") != std::string::npos;
    }
    // After a writer was killed: the next program's first call of the family leaves the four
    // files agreeing and no temporary file, and this process's cache follows the files as to
    // the user the writer was changing.
    ::testing::AssertionResult settled_by_the_next_call(const std::string &name) const {
        const int status = wait_child(fork_child([] {
            User admin;
            if (KOVAUserGet("admin", &admin.p) == 0) return 0;
            fprintf(stderr, "KOVAUserGet: %s\n", failure().c_str());
            return 1;
        }));
        if (status != 0) return ::testing::AssertionFailure() << "the next call failed";
        if (!files_agree()) return ::testing::AssertionFailure() << "the files disagree";
        if (!no_tmp_files()) return ::testing::AssertionFailure() << "a .tmp file is left";
        User user;
        if ((KOVAUserGet(name.c_str(), &user.p) == 0) != in_passwd(name)) {
            return ::testing::AssertionFailure() << "the cache disagrees on " << name;
        }
        return ::testing::AssertionSuccess();
    }
};

int create(const std::string &name) {
    User user(name.c_str(), "secret");
    return KOVAUserSetOne(nullptr, user.p);
}

// A reader never misses an account that exists while a writer creates and renames others.
TEST_F(UserProcess, ReadersSeeEveryAccountWhileAWriterWorks) {
    const int kUsers = kEmulated ? 40 : 200;
    const std::string done = path("/tmp/writer-done");
    const pid_t reader = fork_child([&done] {
        int reads = 0;
        while (!file_exists(done) || reads == 0) {
            for (const char *name : {"admin", "guest", "alice", "bob"}) {
                User user;
                if (KOVAUserGet(name, &user.p) != 0 || strcmp(user->szName, name) != 0) return 1;
                ++reads;
            }
        }
        return 0;
    });
    const pid_t writer = fork_child([kUsers] {
        for (int i = 0; i < kUsers; ++i) {
            if (create("user" + std::to_string(i)) != 0) return 1;
        }
        for (int i = 0; i < kUsers; i += 3) {
            User user;
            const std::string name = "user" + std::to_string(i);
            if (KOVAUserGet(name.c_str(), &user.p) != 0) return 2;
            User renamed(("renamed" + std::to_string(i)).c_str(), user->szPassword);
            renamed->uid = user->uid;
            if (KOVAUserSetOne(name.c_str(), renamed.p) != 0) return 3;
        }
        return 0;
    });
    EXPECT_EQ(wait_child(writer), 0);
    write_file(done, "");
    EXPECT_EQ(wait_child(reader), 0) << "the reader missed an account";
    EXPECT_TRUE(files_agree());
    EXPECT_TRUE(no_tmp_files());
    EXPECT_TRUE(cache_follows_passwd());
}

// A process keeps its cache open between calls: it still sees what another process changed,
// and a different appliance root is a different cache.
TEST_F(UserProcess, AKeptCacheFollowsOtherWritersAndTheRoot) {
    User user;
    ASSERT_EQ(KOVAUserGet("alice", &user.p), 0);
    ASSERT_EQ(wait_child(fork_child([] { return create("zed"); })), 0);
    ASSERT_EQ(KOVAUserGet("zed", &user.p), 0);
    EXPECT_EQ(user->uid, 1028u);
    ASSERT_EQ(wait_child(fork_child([] { return KOVAUserDelete("alice"); })), 0);
    EXPECT_EQ(KOVAUserGet("alice", &user.p), -1);
    EXPECT_EQ(KLIBErrGet(), ERR_NO_SUCH_USER);
    {
        Sandbox other;  // KOVA_ROOT points at a fresh appliance meanwhile
        EXPECT_EQ(KOVAUserGet("zed", &user.p), -1);
        ASSERT_EQ(KOVAUserGet("alice", &user.p), 0);
        EXPECT_EQ(user->uid, 1026u);
    }
    EXPECT_EQ(KOVAUserGet("zed", &user.p), 0);
    EXPECT_EQ(KOVAUserGet("alice", &user.p), -1);
}

// Writers in parallel lose nothing and never hand out one id twice.
TEST_F(UserProcess, ParallelWritersGetDistinctIds) {
    constexpr int kWriters = 4;
    const int kEach = kEmulated ? 12 : 50;
    std::vector<pid_t> writers;
    for (int w = 0; w < kWriters; ++w) {
        writers.push_back(fork_child([w, kEach] {
            for (int i = 0; i < kEach; ++i) {
                if (create("w" + std::to_string(w) + "x" + std::to_string(i)) != 0) return 1;
            }
            return 0;
        }));
    }
    for (const pid_t writer : writers)
        EXPECT_EQ(wait_child(writer), 0);

    std::set<uint32_t> ids;
    int made = 0;
    for (const std::string &line : lines_of(text("/etc/passwd"))) {
        if (line[0] != 'w') continue;
        ++made;
        ids.insert(std::stoul(line.substr(line.find(':', line.find(':') + 1) + 1)));
    }
    EXPECT_EQ(made, kWriters * kEach);
    EXPECT_EQ(ids.size(), static_cast<size_t>(kWriters * kEach));
    EXPECT_EQ(*ids.begin(), 1028u);  // after bob's 1027, none skipped
    EXPECT_EQ(*ids.rbegin(), 1027u + kWriters * kEach);
    EXPECT_TRUE(files_agree());
    EXPECT_TRUE(no_tmp_files());
    EXPECT_TRUE(cache_follows_passwd());
}

// A writer killed at a random instant, over and over: every file stays whole, and the next
// call of the family leaves the four files agreeing and the cache following them.
TEST_F(UserProcess, WritersKilledAtRandomLeaveAgreeingFiles) {
    const int kRounds = kEmulated ? 15 : 60;
    std::mt19937 random(20261125);
    for (int round = 0; round < kRounds; ++round) {
        const std::string name = "k" + std::to_string(round);
        const pid_t writer = fork_child([&name] {
            for (;;) {
                if (create(name) != 0 || KOVAUserSetPasswd(name.c_str(), "other") != 0 ||
                    KOVAUserDelete(name.c_str()) != 0) {
                    return 1;
                }
            }
        });
        usleep(std::uniform_int_distribution<int>(1000, 40000)(random));
        kill(writer, SIGKILL);
        ASSERT_EQ(wait_child(writer), -1) << "the writer failed before it was killed";
        ASSERT_TRUE(all_whole()) << "round " << round;

        ASSERT_TRUE(settled_by_the_next_call(name)) << "round " << round;
    }
    EXPECT_TRUE(cache_follows_passwd());
}

// Kills itself at its nth rename.
int g_renames_left = 0;
int rename_or_die(const char *from, const char *to) {
    if (--g_renames_left == 0) raise(SIGKILL);
    return sys::real_calls().rename(from, to);
}

// A writer killed at each rename of a change in turn: the files were all complete before the
// first, so the next call completes the change or the cache is rebuilt from what stands.
TEST_F(UserProcess, AWriterKilledAtEachRenameIsCompletedOrUndone) {
    int killed = 0;
    for (int nth = 1; nth < 30; ++nth) {
        const std::string name = "r" + std::to_string(nth);
        const pid_t writer = fork_child([&name, nth] {
            User warm;
            if (KOVAUserGet("admin", &warm.p) != 0) return 2;  // the cache built beforehand
            g_renames_left = nth;
            sys::calls().rename = rename_or_die;
            return create(name) == 0 ? 0 : 1;
        });
        const int status = wait_child(writer);
        ASSERT_NE(status, 1);
        ASSERT_NE(status, 2);
        ASSERT_TRUE(all_whole()) << "killed at rename " << nth;

        ASSERT_TRUE(settled_by_the_next_call(name)) << "killed at rename " << nth;
        if (status == 0) break;  // the change had fewer renames: all were tried
        ++killed;
    }
    // The four files and the five stores at least.
    EXPECT_GE(killed, 9);
    EXPECT_TRUE(cache_follows_passwd());
}

}  // namespace
}  // namespace kova::test
