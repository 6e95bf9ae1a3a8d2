// The temporary-file commit: owners and modes survive, refused targets, a full disk, running out
// of memory. Every failure leaves the old file byte for byte and no temporary file behind.
#include <sys/mount.h>
#include <sys/stat.h>
#include <unistd.h>

#include <string>

#include "kovasdk/error.h"
#include "kovasdk/file.h"
#include "kovasdk/hash.h"
#include "support/sandbox.h"

namespace {

using kova::test::list_dir;
using kova::test::read_file;
using kova::test::write_file;

class FileCommit : public kova::test::SandboxTest {
  protected:
    std::string conf_ = path("/etc/test.conf");
};

TEST_F(FileCommit, OwnerGroupAndModeSurvive) {
    for (const mode_t mode : {0600, 0640, 0644, 0444}) {
        write_file(conf_, "a=1\nb=2\n");
        ASSERT_EQ(chmod(conf_.c_str(), mode), 0);
        const bool root = geteuid() == 0;
        if (root) {
            ASSERT_EQ(chown(conf_.c_str(), 1234, 5678), 0);
        }
        ASSERT_EQ(KLIBFileSetKeyValue(conf_.c_str(), "a", "3", nullptr), 1);
        ASSERT_EQ(KLIBFileRemoveKey(conf_.c_str(), "b"), 1);
        ASSERT_EQ(KLIBFileAddLine(conf_.c_str(), "a", "c=1", KLIB_FILE_ADD_AFTER), 1);
        ASSERT_EQ(ErrKLIBFileRemoveSection(conf_.c_str(), "none"), 0);
        struct stat st {};
        ASSERT_EQ(stat(conf_.c_str(), &st), 0);
        EXPECT_EQ(st.st_mode & 07777, mode);
        if (root) {
            EXPECT_EQ(st.st_uid, 1234u);
            EXPECT_EQ(st.st_gid, 5678u);
        }
        EXPECT_EQ(read_file(conf_), "a=3\nc=1\n");
    }
}

TEST_F(FileCommit, DirectoryInPlaceOfTheFileIsRefused) {
    ASSERT_EQ(mkdir(conf_.c_str(), 0755), 0);
    EXPECT_EQ(KLIBFileSetKeyValue(conf_.c_str(), "a", "1", nullptr), -1);
    EXPECT_EQ(KLIBErrGet(), ERR_OPEN_FAILED);
    EXPECT_EQ(KOVAErrorGetLine(), 99);
    PKLIBSZHASH set = PshKLIBSzHashAlloc(0);
    ASSERT_GE(KLIBSzHashSetValue(&set, "a", "1"), 0);
    EXPECT_EQ(KLIBFileSetKeys(conf_.c_str(), set, nullptr, nullptr), -1);
    EXPECT_EQ(KOVAErrorGetLine(), 192);
    KLIBSzHashFree(set);
    EXPECT_EQ(ErrKLIBFileRemoveSection(conf_.c_str(), "s"), -1);
    EXPECT_EQ(KOVAErrorGetLine(), 79);
    EXPECT_EQ(KLIBFileAddLine(conf_.c_str(), nullptr, "x", 0), -1);
    EXPECT_EQ(KLIBFileRemoveKey(conf_.c_str(), "a"), -1);
    EXPECT_EQ(list_dir(path("/etc")), (std::vector<std::string>{"kovainfo.conf", "test.conf"}));
}

TEST_F(FileCommit, UnwritableDirectoryLeavesTheFile) {
    if (geteuid() == 0) GTEST_SKIP() << "root writes into read-only directories";
    write_file(conf_, "a=1\n");
    ASSERT_EQ(chmod(path("/etc").c_str(), 0555), 0);
    EXPECT_EQ(KLIBFileSetKeyValue(conf_.c_str(), "a", "2", nullptr), -1);
    EXPECT_EQ(KOVAErrorGetLine(), 105);
    chmod(path("/etc").c_str(), 0755);
    EXPECT_EQ(read_file(conf_), "a=1\n");
}

// A small tmpfs under the sandbox, filled up so that a rewrite runs out of room.
TEST_F(FileCommit, FullDiskLeavesTheOldFile) {
    if (geteuid() != 0) GTEST_SKIP() << "mounting a small tmpfs needs root";
    const std::string mnt = path("/mnt");
    ASSERT_EQ(mkdir(mnt.c_str(), 0755), 0);
    if (mount("tmpfs", mnt.c_str(), "tmpfs", 0, "size=64k") != 0) {
        GTEST_SKIP() << "cannot mount a tmpfs here: " << strerror(errno);
    }
    const std::string conf = mnt + "/full.conf";
    std::string old;
    for (int i = 0; i < 200; ++i)
        old += "key" + std::to_string(i) + "=\"value\"\n";
    write_file(conf, old);
    // Fill what is left, then give back just under what a rewrite would need.
    write_file(mnt + "/filler", std::string(128 * 1024, 'x'));
    const long filler = static_cast<long>(read_file(mnt + "/filler").size());
    ASSERT_EQ(truncate((mnt + "/filler").c_str(), filler - 4096), 0);

    const std::string big(16 * 1024, 'v');
    EXPECT_EQ(KLIBFileSetKeyValue(conf.c_str(), "key1", big.c_str(), nullptr), -1);
    EXPECT_EQ(KLIBErrGet(), ERR_WRITE_FAILED);
    EXPECT_EQ(read_file(conf), old);
    EXPECT_EQ(list_dir(mnt), (std::vector<std::string>{"filler", "full.conf"}));

    PKLIBSZHASH set = PshKLIBSzHashAlloc(0);
    ASSERT_GE(KLIBSzHashSetValue(&set, "key2", big.c_str()), 0);
    EXPECT_EQ(KLIBFileSetKeys(conf.c_str(), set, nullptr, nullptr), -1);
    KLIBSzHashFree(set);
    EXPECT_EQ(KLIBFileAddLine(conf.c_str(), "key3", big.c_str(), 0), -1);
    EXPECT_EQ(KLIBFileSetLine(conf.c_str(), "key4", big.c_str(), 0), -1);
    EXPECT_EQ(read_file(conf), old);
    EXPECT_EQ(list_dir(mnt), (std::vector<std::string>{"filler", "full.conf"}));

    // A new file that cannot be completed does not stay behind either.
    EXPECT_EQ(KLIBFileSetKeyValue((mnt + "/new.conf").c_str(), "k", big.c_str(), nullptr), -1);
    EXPECT_EQ(list_dir(mnt), (std::vector<std::string>{"filler", "full.conf"}));
    EXPECT_EQ(umount(mnt.c_str()), 0);
}

TEST_F(FileCommit, AllocationFailuresFailCleanly) {
    const std::string content = "a=1\n" + std::string(5000, '#') + "\nb=2\n";
    int failures = 0;
    for (long nth = 1; nth < 100; ++nth) {
        write_file(conf_, content);
        int rc = 0;
        {
            kova::test::AllocationFailure guard(nth);
            rc = KLIBFileSetKeyValue(conf_.c_str(), "b", "3", nullptr);
        }
        if (rc == 1) break;
        ++failures;
        EXPECT_EQ(rc, -1);
        EXPECT_EQ(KLIBErrGet(), ERR_OUT_OF_MEMORY);
        EXPECT_EQ(read_file(conf_), content);
        EXPECT_EQ(list_dir(path("/etc")), (std::vector<std::string>{"kovainfo.conf", "test.conf"}));
    }
    EXPECT_GT(failures, 0);
    EXPECT_EQ(read_file(conf_), "a=1\n" + std::string(5000, '#') + "\nb=3\n");
}

}  // namespace
