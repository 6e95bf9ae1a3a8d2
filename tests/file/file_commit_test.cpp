// The temporary-file commit: owners and modes survive, refused targets, a full disk, running out
// of memory (file_fault_test.cpp fails every step). Every failure leaves the old file byte for byte
// and no temporary file behind.
#include <sys/mount.h>
#include <sys/stat.h>
#include <unistd.h>

#include <string>

#include "file_test.h"
#include "kovasdk/file.h"

namespace kova::test {
namespace {

using Names = std::vector<std::string>;

using FileCommit = FileTest;

TEST_F(FileCommit, OwnerGroupAndModeSurvive) {
    const uid_t uid = geteuid() == 0 ? 1234 : geteuid();
    const gid_t gid = geteuid() == 0 ? 5678 : getegid();
    for (const mode_t mode : {0600, 0640, 0644, 0444}) {
        write_file(conf_, "a=1\nb=2\n");
        ASSERT_EQ(chmod(conf_, mode), 0);
        ASSERT_EQ(chown(conf_, uid, gid), 0);
        ASSERT_EQ(KLIBFileSetKeyValue(conf_, "a", "3", nullptr), 1);
        ASSERT_EQ(KLIBFileRemoveKey(conf_, "b"), 1);
        ASSERT_EQ(KLIBFileAddLine(conf_, "a", "c=1", KLIB_FILE_ADD_AFTER), 1);
        ASSERT_EQ(ErrKLIBFileRemoveSection(conf_, "none"), 0);
        struct stat st {};
        ASSERT_EQ(stat(conf_, &st), 0);
        EXPECT_EQ(st.st_mode & 07777, mode);
        EXPECT_EQ(std::make_pair(st.st_uid, st.st_gid), std::make_pair(uid, gid));
        EXPECT_EQ(read_file(conf_), "a=3\nc=1\n");
    }
}

TEST_F(FileCommit, DirectoryInPlaceOfTheFileIsRefused) {
    ASSERT_EQ(mkdir(conf_, 0755), 0);
    EXPECT_EQ(KLIBFileSetKeyValue(conf_, "a", "1", nullptr), -1);
    EXPECT_TRUE(raised(ERR_OPEN_FAILED, 99));
    EXPECT_EQ(KLIBFileSetKeys(conf_, Hash{{"a", "1"}}, nullptr, nullptr), -1);
    EXPECT_TRUE(raised(ERR_OPEN_FAILED, 192));
    EXPECT_EQ(ErrKLIBFileRemoveSection(conf_, "s"), -1);
    EXPECT_TRUE(raised(ERR_OPEN_FAILED, 79));
    EXPECT_EQ(KLIBFileAddLine(conf_, nullptr, "x", 0), -1);
    EXPECT_EQ(KLIBFileRemoveKey(conf_, "a"), -1);
    EXPECT_EQ(new_entries("/etc"), (Names{"test.conf"}));
}

// A small tmpfs under the sandbox, filled up so that a rewrite runs out of room, then made
// read-only so that no temporary file can be made at all.
TEST_F(FileCommit, FullDiskLeavesTheOldFile) {
    if (geteuid() != 0) GTEST_SKIP() << "mounting a small tmpfs needs root";
    const std::string mnt = path("/mnt");
    ASSERT_EQ(mkdir(mnt.c_str(), 0755), 0);
    if (mount("tmpfs", mnt.c_str(), "tmpfs", 0, "size=64k") != 0) {
        GTEST_SKIP() << "cannot mount a tmpfs here: " << strerror(errno);
    }
    const std::string conf = mnt + "/full.conf";
    const char *full = conf.c_str();
    std::string old;
    for (int i = 0; i < 200; ++i)
        old += "key" + std::to_string(i) + "=\"value\"\n";
    write_file(conf, old);
    // Fill what is left, then give back just under what a rewrite would need.
    write_file(mnt + "/filler", std::string(128 * 1024, 'x'));
    const long filler = static_cast<long>(read_file(mnt + "/filler").size());
    ASSERT_EQ(truncate((mnt + "/filler").c_str(), filler - 4096), 0);

    const std::string big(16 * 1024, 'v');
    EXPECT_EQ(KLIBFileSetKeyValue(full, "key1", big.c_str(), nullptr), -1);
    EXPECT_EQ(KLIBErrGet(), ERR_WRITE_FAILED);
    EXPECT_EQ(KLIBFileSetKeys(full, Hash{{"key2", big.c_str()}}, nullptr, nullptr), -1);
    EXPECT_EQ(KLIBFileAddLine(full, "key3", big.c_str(), 0), -1);
    EXPECT_EQ(KLIBFileSetLine(full, "key4", big.c_str(), 0), -1);
    // A new file that cannot be completed does not stay behind either.
    EXPECT_EQ(KLIBFileSetKeyValue((mnt + "/new.conf").c_str(), "k", big.c_str(), nullptr), -1);
    EXPECT_EQ(read_file(conf), old);
    EXPECT_EQ(list_dir(mnt), (Names{"filler", "full.conf"}));

    ASSERT_EQ(mount("tmpfs", mnt.c_str(), "tmpfs", MS_REMOUNT | MS_RDONLY, nullptr), 0);
    EXPECT_EQ(KLIBFileSetKeyValue(full, "key1", "1", nullptr), -1);
    EXPECT_TRUE(raised(ERR_OPEN_FAILED, 105));
    EXPECT_EQ(read_file(conf), old);
    EXPECT_EQ(umount(mnt.c_str()), 0);
}

}  // namespace
}  // namespace kova::test
