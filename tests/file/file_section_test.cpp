// Sectioned files: headers, reading sections and pairs, adding, replacing and removing.
#include <string>

#include "file_test.h"
#include "kovasdk/file.h"

namespace kova::test {
namespace {

using FileSection = FileTest;

std::string value(const Hash &hash, const char *key) {
    const char *v = SzKLIBSzHashGetValue(hash, key);
    return v != nullptr ? v : "<absent>";
}

TEST_F(FileSection, HeaderRecognition) {
    EXPECT_EQ(KLIBIFileIsSection("[global] \t\n", 11), 1);
    EXPECT_EQ(KLIBIFileMatchSection("[global] \t\n", 11, "global"), 1);
    EXPECT_EQ(KLIBIFileIsSection("[global] x\n", 11), 0);
    EXPECT_EQ(KLIBIFileMatchSection("[global] x\n", 11, "global"), 0);
    EXPECT_EQ(KLIBIFileMatchSection("[Global]\n", 9, "global"), 0);
    EXPECT_EQ(KLIBIFileMatchSection("[ global ]\n", 11, "global"), 0);  // compared as written
    EXPECT_EQ(KLIBIFileMatchSection("[globalx]\n", 10, "global"), 0);
    EXPECT_EQ(KLIBIFileIsSection(" [global]\n", 10), 0);
    EXPECT_EQ(KLIBIFileMatchSection(nullptr, 0, "global"), -1);
    EXPECT_TRUE(raised(ERR_BAD_PARAMETERS, 33));
}

TEST_F(FileSection, GetSectionAndPairs) {
    write_file(conf_,
               "[global]\nworkgroup = HOME\nkey = \"a b\" \n#a=1\nnot a pair\nworkgroup=LAN\n"
               "[share]\npath=/v1\n[global]\nlate=1\n");
    Hash global, pairs;
    EXPECT_EQ(KLIBFileGetSection(conf_, "global", &global.h), 3);
    EXPECT_EQ(value(global, "workgroup"), "LAN");  // later equal keys overwrite
    EXPECT_EQ(value(global, "key"), "a b");
    EXPECT_EQ(value(global, "#a"), "1");           // comment lines are not special here (kept)
    EXPECT_EQ(value(global, "late"), "<absent>");  // only the first section of a name
    KLIBErrSetEx(ERR_SUCCESS, "test", 0);
    EXPECT_EQ(KLIBFileGetSection(conf_, "none", &pairs.h), 0);
    EXPECT_EQ(KLIBErrGet(), ERR_SUCCESS);
    EXPECT_EQ(KLIBFileGetSection(none_, "x", &pairs.h), -1);
    EXPECT_TRUE(raised(ERR_OPEN_FAILED, 62));

    EXPECT_EQ(KLIBFileGetPair(conf_, &pairs.h), 4);  // workgroup, key, path, late
    EXPECT_EQ(value(pairs, "#a"), "<absent>");
    PKLIBSZLIST names = nullptr;
    EXPECT_EQ(KLIBFileEnumSection(conf_, &names), 3);
    ASSERT_NE(names, nullptr);
    EXPECT_STREQ(SzKLIBSzListGet(names, 1), "share");
    KLIBSzListFree(names);
}

TEST_F(FileSection, AddSection) {
    write_file(conf_, "[global]\na=1");
    EXPECT_EQ(ErrKLIBFileAddSection(conf_, "global", Hash{{"x", "1"}}, nullptr), 0);
    EXPECT_EQ(ErrKLIBFileAddSection(conf_, "new", Hash{{"x", "1"}}, "%s = %s\n"), 1);
    EXPECT_EQ(ErrKLIBFileAddSection(conf_, "bad", Hash{{"x", "1"}}, "%s\n"), -1);
    EXPECT_EQ(read_file(conf_), "[global]\na=1\n[new]\nx = 1\n");
    write_file(conf_, "");
    EXPECT_EQ(ErrKLIBFileAddSection(conf_, "s", Hash{}, nullptr), 1);
    EXPECT_EQ(read_file(conf_), "\n[s]\n");
    EXPECT_EQ(ErrKLIBFileAddSection(none_, "s", Hash{}, nullptr), -1);
    EXPECT_TRUE(raised(ERR_OPEN_FAILED, 54));
}

TEST_F(FileSection, SetAndRemoveSection) {
    write_file(conf_, "[a]\nx=1\n;keep\n[b]\ny=2\n#note\n[a]\nz=3\n");
    EXPECT_EQ(ErrKLIBFileSetSection(conf_, "a", nullptr, Hash{{"k", "v"}}, nullptr), 1);
    EXPECT_EQ(read_file(conf_), "[a]\nk=v\n;keep\n[b]\ny=2\n#note\n[a]\nk=v\n");
    EXPECT_EQ(ErrKLIBFileSetSection(conf_, "b", "c", Hash{{"y", "3"}}, nullptr), 1);
    EXPECT_EQ(ErrKLIBFileRemoveSection(conf_, "c"), 1);
    EXPECT_EQ(read_file(conf_), "[a]\nk=v\n;keep\n#note\n[a]\nk=v\n");
    EXPECT_EQ(ErrKLIBFileRemoveSection(conf_, "zz"), 0);
    EXPECT_TRUE(raised(ERR_KEY_NOT_FOUND, 154));
    EXPECT_EQ(ErrKLIBFileSetSection(conf_, "a", nullptr, nullptr, nullptr), -1);
    EXPECT_TRUE(raised(ERR_BAD_PARAMETERS, 42));
    EXPECT_EQ(new_entries("/etc"), (std::vector<std::string>{"test.conf"}));
}

TEST_F(FileSection, KeyOfSectionMergeAndSetPair) {
    write_file(conf_, "[global]\na=1\n");
    EXPECT_EQ(ErrSetSecKeyVal(conf_, "global", "b", "2", nullptr), 1);
    EXPECT_EQ(ErrSetSecKeyVal(conf_, "homes", "browseable", "no", nullptr), 1);
    EXPECT_EQ(read_file(conf_), "[global]\na=1\nb=2\n[homes]\nbrowseable=no\n");  // slot order

    const std::string flat = path("/etc/flat.conf");
    write_file(flat, "a=1\nb=2\n");
    EXPECT_EQ(KLIBFileMergePairs(flat.c_str(), Hash{{"b", "3"}, {"c", "4"}}, nullptr), 0);
    EXPECT_EQ(read_file(flat), "a=1\nb=3\nc=4\n");
    EXPECT_EQ(KLIBFileMergePairs(flat.c_str(), Hash{}, nullptr), -1);
    EXPECT_EQ(KLIBErrGet(), ERR_OP_FAILURE);
    EXPECT_EQ(ErrKLIBFileSetPair(flat.c_str(), Hash{{"only", "1"}}, nullptr), 0);
    EXPECT_EQ(read_file(flat), "only=1\n");
}

}  // namespace
}  // namespace kova::test
