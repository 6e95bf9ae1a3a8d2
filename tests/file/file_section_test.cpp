// Sectioned files: headers, reading sections and pairs, adding, replacing and removing.
#include <string>

#include "kovasdk/error.h"
#include "kovasdk/file.h"
#include "kovasdk/hash.h"
#include "support/sandbox.h"

namespace {

using kova::test::read_file;
using kova::test::write_file;

class FileSection : public kova::test::SandboxTest {
  protected:
    void TearDown() override { KLIBSzHashFree(hash_); }

    PKLIBSZHASH make(std::initializer_list<std::pair<const char *, const char *>> pairs) {
        KLIBSzHashFree(hash_);
        hash_ = PshKLIBSzHashAlloc(0);
        for (const auto &[k, v] : pairs)
            EXPECT_GE(KLIBSzHashSetValue(&hash_, k, v), 0);
        return hash_;
    }
    std::string value(const char *key) {
        const char *v = SzKLIBSzHashGetValue(hash_, key);
        return v != nullptr ? v : "<absent>";
    }

    std::string conf_ = path("/etc/smb.conf");
    PKLIBSZHASH hash_ = nullptr;
};

TEST_F(FileSection, HeaderRecognition) {
    const std::string global = "[global] \t\n";
    EXPECT_EQ(KLIBIFileIsSection(global.c_str(), static_cast<int>(global.size())), 1);
    EXPECT_EQ(KLIBIFileMatchSection(global.c_str(), static_cast<int>(global.size()), "global"), 1);
    EXPECT_EQ(KLIBIFileIsSection("[global] x\n", 11), 0);
    EXPECT_EQ(KLIBIFileMatchSection("[global] x\n", 11, "global"), 0);
    EXPECT_EQ(KLIBIFileMatchSection("[Global]\n", 9, "global"), 0);
    EXPECT_EQ(KLIBIFileMatchSection("[ global ]\n", 11, "global"), 0);  // compared as written
    EXPECT_EQ(KLIBIFileMatchSection("[globalx]\n", 10, "global"), 0);
    EXPECT_EQ(KLIBIFileIsSection(" [global]\n", 10), 0);
    EXPECT_EQ(KLIBIFileMatchSection(nullptr, 0, "global"), -1);
    EXPECT_EQ(KOVAErrorGetLine(), 33);
}

TEST_F(FileSection, GetSectionAndPairs) {
    write_file(conf_,
               "[global]\nworkgroup = HOME\nkey = \"a b\" \n#a=1\nnot a pair\nworkgroup=LAN\n"
               "[share]\npath=/v1\n[global]\nlate=1\n");
    EXPECT_EQ(KLIBFileGetSection(conf_.c_str(), "global", &hash_), 3);
    EXPECT_EQ(value("workgroup"), "LAN");  // later equal keys overwrite
    EXPECT_EQ(value("key"), "a b");
    EXPECT_EQ(value("#a"), "1");           // comment lines are not special here (kept)
    EXPECT_EQ(value("late"), "<absent>");  // only the first section of a name
    KLIBSzHashFree(hash_);
    hash_ = PshKLIBSzHashAlloc(0);
    KLIBErrSetEx(ERR_SUCCESS, "test", 0);
    EXPECT_EQ(KLIBFileGetSection(conf_.c_str(), "none", &hash_), 0);
    EXPECT_EQ(KLIBErrGet(), ERR_SUCCESS);
    EXPECT_EQ(KLIBFileGetSection(path("/etc/none").c_str(), "x", &hash_), -1);
    EXPECT_EQ(KOVAErrorGetLine(), 62);

    EXPECT_EQ(KLIBFileGetPair(conf_.c_str(), &hash_), 4);  // workgroup, key, path, late
    EXPECT_EQ(value("#a"), "<absent>");

    PKLIBSZLIST names = nullptr;
    EXPECT_EQ(KLIBFileEnumSection(conf_.c_str(), &names), 3);
    ASSERT_NE(names, nullptr);
    EXPECT_STREQ(SzKLIBSzListGet(names, 1), "share");
    KLIBSzListFree(names);
}

TEST_F(FileSection, AddSection) {
    write_file(conf_, "[global]\na=1");
    EXPECT_EQ(ErrKLIBFileAddSection(conf_.c_str(), "global", make({{"x", "1"}}), nullptr), 0);
    EXPECT_EQ(ErrKLIBFileAddSection(conf_.c_str(), "new", make({{"x", "1"}}), "%s = %s\n"), 1);
    EXPECT_EQ(read_file(conf_), "[global]\na=1\n[new]\nx = 1\n");
    EXPECT_EQ(ErrKLIBFileAddSection(conf_.c_str(), "bad", hash_, "%s\n"), -1);
    EXPECT_EQ(read_file(conf_), "[global]\na=1\n[new]\nx = 1\n");
    write_file(conf_, "");
    EXPECT_EQ(ErrKLIBFileAddSection(conf_.c_str(), "s", make({}), nullptr), 1);
    EXPECT_EQ(read_file(conf_), "\n[s]\n");
    EXPECT_EQ(ErrKLIBFileAddSection(path("/etc/none").c_str(), "s", hash_, nullptr), -1);
    EXPECT_EQ(KOVAErrorGetLine(), 54);
}

TEST_F(FileSection, SetAndRemoveSection) {
    write_file(conf_, "[a]\nx=1\n;keep\n[b]\ny=2\n#note\n[a]\nz=3\n");
    EXPECT_EQ(ErrKLIBFileSetSection(conf_.c_str(), "a", nullptr, make({{"k", "v"}}), nullptr), 1);
    EXPECT_EQ(read_file(conf_), "[a]\nk=v\n;keep\n[b]\ny=2\n#note\n[a]\nk=v\n");
    EXPECT_EQ(ErrKLIBFileSetSection(conf_.c_str(), "b", "c", make({{"y", "3"}}), nullptr), 1);
    EXPECT_EQ(ErrKLIBFileRemoveSection(conf_.c_str(), "c"), 1);
    EXPECT_EQ(read_file(conf_), "[a]\nk=v\n;keep\n#note\n[a]\nk=v\n");
    EXPECT_EQ(ErrKLIBFileRemoveSection(conf_.c_str(), "zz"), 0);
    EXPECT_EQ(KLIBErrGet(), ERR_KEY_NOT_FOUND);
    EXPECT_EQ(KOVAErrorGetLine(), 154);
    EXPECT_EQ(ErrKLIBFileSetSection(conf_.c_str(), "a", nullptr, nullptr, nullptr), -1);
    EXPECT_EQ(KOVAErrorGetLine(), 42);
    EXPECT_EQ(kova::test::list_dir(path("/etc")),
              (std::vector<std::string>{"kovainfo.conf", "smb.conf"}));
}

TEST_F(FileSection, KeyOfSectionMergeAndSetPair) {
    write_file(conf_, "[global]\na=1\n");
    EXPECT_EQ(ErrSetSecKeyVal(conf_.c_str(), "global", "b", "2", nullptr), 1);
    EXPECT_EQ(ErrSetSecKeyVal(conf_.c_str(), "homes", "browseable", "no", nullptr), 1);
    EXPECT_EQ(KLIBFileGetSection(conf_.c_str(), "global", &hash_), 2);
    EXPECT_EQ(value("b"), "2");
    EXPECT_EQ(read_file(conf_).substr(read_file(conf_).find("[homes]")),
              "[homes]\nbrowseable=no\n");

    const std::string flat = path("/etc/flat.conf");
    write_file(flat, "a=1\nb=2\n");
    EXPECT_EQ(KLIBFileMergePairs(flat.c_str(), make({{"b", "3"}, {"c", "4"}}), nullptr), 0);
    EXPECT_EQ(read_file(flat), "a=1\nb=3\nc=4\n");
    EXPECT_EQ(KLIBFileMergePairs(flat.c_str(), make({}), nullptr), -1);
    EXPECT_EQ(KLIBErrGet(), ERR_OP_FAILURE);
    EXPECT_EQ(ErrKLIBFileSetPair(flat.c_str(), make({{"only", "1"}}), nullptr), 0);
    EXPECT_EQ(read_file(flat), "only=1\n");
}

}  // namespace
