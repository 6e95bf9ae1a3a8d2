// The rewrite mechanism itself, for what its users will lean on beyond the settings files: a
// defined temporary name, several files replaced together, a file system without nameless
// files, and a new file that must not replace one that appeared meanwhile.
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <string>

#include "core/rewrite.h"
#include "support/sandbox.h"
#include "support/sys_fault.h"

namespace kova::test {
namespace {

using Names = std::vector<std::string>;

class RewriteTest : public SandboxTest {
  protected:
    void SetUp() override {
        write_file(a_, "a\n");
        write_file(b_, "b\n");
    }
    // Copies the file, appending suffix to every line.
    static bool copy_with(Rewrite &rewrite, const char *suffix) {
        if (rewrite.open() != Rewrite::Opened::kOk) return false;
        return rewrite.each_line([&](LineReader &line) {
            return rewrite.print(__LINE__, "%.*s%s\n", static_cast<int>(line.size() - 1),
                                 line.data(), suffix);
        });
    }
    Names etc() const { return new_entries("/etc"); }

    const std::string a_ = path("/etc/a.conf"), b_ = path("/etc/b.conf");
    const Names kBoth{"a.conf", "b.conf"};
};

TEST_F(RewriteTest, DefinedTemporaryNameReplacesAStaleOneAndLeavesNothing) {
    const std::string tmp = a_ + ".tmp";
    write_file(tmp, "left by a writer that was killed\n");
    Rewrite rewrite(a_.c_str(), {}, tmp.c_str());
    ASSERT_TRUE(copy_with(rewrite, "1"));
    ASSERT_TRUE(rewrite.commit());
    EXPECT_EQ(read_file(a_), "a1\n");
    EXPECT_EQ(etc(), kBoth);
}

TEST_F(RewriteTest, SeveralFilesAreAllPreparedBeforeTheFirstRename) {
    {
        Rewrite a(a_.c_str(), {}), b(b_.c_str(), {.sync = 77});
        ASSERT_TRUE(copy_with(a, "1") && copy_with(b, "1"));
        SysFault<&sys::Calls::fsync> f(2, EIO);  // b's sync
        EXPECT_FALSE(Rewrite::commit_all({&a, &b}));
        EXPECT_TRUE(raised(ERR_WRITE_FAILED, 77));
    }
    EXPECT_EQ(read_file(a_), "a\n");
    EXPECT_EQ(read_file(b_), "b\n");
    EXPECT_EQ(etc(), kBoth);
    Rewrite a(a_.c_str(), {}), b(b_.c_str(), {});
    ASSERT_TRUE(copy_with(a, "2") && copy_with(b, "2"));
    EXPECT_TRUE(Rewrite::commit_all({&a, &b}));
    EXPECT_EQ(read_file(a_) + read_file(b_), "a2\nb2\n");
    EXPECT_EQ(etc(), kBoth);
}

// The file system refuses nameless files: the temporary file is named from the start and
// still removed on failure.
int open_without_tmpfile(const char *path, int flags, mode_t mode) {
    if ((flags & O_TMPFILE) == O_TMPFILE) {
        errno = EOPNOTSUPP;
        return -1;
    }
    return sys::real_calls().open(path, flags, mode);
}

TEST_F(RewriteTest, WithoutNamelessFilesATemporaryNameIsUsedAndCleanedUp) {
    sys::calls().open = open_without_tmpfile;
    {
        Rewrite rewrite(a_.c_str(), {});
        ASSERT_TRUE(copy_with(rewrite, "1"));
        EXPECT_EQ(etc().size(), 3u);  // a.conf.XXXXXX beside it while it is written
        SysFault<&sys::Calls::rename> f(1, EXDEV);
        EXPECT_FALSE(rewrite.commit());
    }
    EXPECT_EQ(etc(), kBoth);
    Rewrite rewrite(a_.c_str(), {});
    EXPECT_TRUE(copy_with(rewrite, "2") && rewrite.commit());
    sys::calls().open = sys::real_calls().open;
    EXPECT_EQ(read_file(a_), "a2\n");
    EXPECT_EQ(etc(), kBoth);
}

TEST_F(RewriteTest, ANewFileNeverReplacesOneThatAppearedMeanwhile) {
    const std::string c = path("/etc/c.conf");
    Rewrite rewrite(c.c_str(), {});
    ASSERT_EQ(rewrite.open(), Rewrite::Opened::kMissing);
    const auto write = [](FILE *out) { return fputs("mine\n", out) >= 0; };
    write_file(c, "theirs\n");
    EXPECT_FALSE(rewrite.create({.close = 88}, 0644, write));
    EXPECT_TRUE(raised(ERR_WRITE_FAILED, 88));
    EXPECT_EQ(read_file(c), "theirs\n");
    ASSERT_EQ(unlink(c.c_str()), 0);
    Rewrite again(c.c_str(), {});
    ASSERT_EQ(again.open(), Rewrite::Opened::kMissing);
    EXPECT_TRUE(again.create({}, 0640, write));
    struct stat st {};
    ASSERT_EQ(stat(c.c_str(), &st), 0);
    EXPECT_EQ(st.st_mode & 07777, 0640u);
    EXPECT_EQ(read_file(c), "mine\n");
}

}  // namespace
}  // namespace kova::test
