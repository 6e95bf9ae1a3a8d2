// The line syntax and the key and line operations, against small files in the sandbox.
#include <sys/stat.h>

#include <algorithm>
#include <string>

#include "file_test.h"
#include "kovasdk/file.h"

namespace kova::test {
namespace {

class FileSyntax : public FileTest {
  protected:
    // The value of key, or "<absent>" / "<error>".
    std::string get(const char *key, int flags = 0) {
        char buf[256];
        const int rc = KLIBFileGetKeyValue(conf_, key, buf, sizeof buf, flags);
        if (rc <= 0) return rc == 0 ? "<absent>" : "<error>";
        EXPECT_EQ(static_cast<size_t>(rc), strlen(buf) + 1);
        return buf;
    }
};

TEST_F(FileSyntax, LineSyntaxTable) {
    const struct {
        const char *content, *key, *value;  // "<absent>" when the key must not be found
        int flags = 0;
    } cases[] = {
        {"a=\"1\"\n#a=2\n", "a", "1"},
        {"#a=2\n", "a", "<absent>"},
        {";a=2\n", "a", "<absent>"},
        {" #a=2\n", "#a", "2"},  // a comment only in column 0
        {"a=\n", "a", "<absent>"},
        {"a\n", "a", "<absent>"},
        {"a=\"\"\n", "a", ""},
        {"a= \n", "a", ""},
        {"key=\"a b\"\n", "key", "a b"},
        {"key = a b \n", "key", "a b"},
        {"\tkey\t=\t\"x\"\t\n", "key", "x"},
        {"a= \t\"x\"\r\n", "a", "x"},
        {"a=1", "a", "1"},  // no final line feed
        {"a=x=y\n", "a", "x=y"},
        {"=a=1\n", "a", "1"},
        {"\"a\"=1\n", "a", "1"},
        {"a=\" b \"\n", "a", " b "},  // one pair of quotes, then no second trim
        {"a=\"\"\"\n", "a", "\""},
        {"a=b\"\n", "a", "b\""},
        {"a=\"1\n", "a", "\"1"},  // a lone quote stays
        {"a=\"\n", "a", "\""},
        {"A=1\n", "a", "<absent>"},
        {"ab=1\n", "a", "<absent>"},
        {"a=1\na=2\n", "a", "1"},
        {"a=1\na=2\n", "a", "2", KLIB_FILE_MATCH_LAST},
        {"\n\n\na=3\n", "a", "3"},
    };
    for (const auto &c : cases) {
        write_file(conf_, c.content);
        EXPECT_EQ(get(c.key, c.flags), c.value) << "file: " << c.content;
    }
}

TEST_F(FileSyntax, GetKeyValueBuffersAndErrors) {
    write_file(conf_, "b=hello\n");
    EXPECT_EQ(KLIBFileGetKeyValue(conf_, "b", nullptr, 0, 0), 6);
    char small[3] = "xy";
    EXPECT_EQ(KLIBFileGetKeyValue(conf_, "b", small, sizeof small, 0), -1);
    EXPECT_TRUE(raised(ERR_NOT_ENOUGH_MEMORY, 88));
    EXPECT_STREQ(small, "xy");  // never a truncated copy
    EXPECT_EQ(KLIBFileGetKeyValue(conf_, "zz", small, sizeof small, 0), 0);
    EXPECT_TRUE(raised(ERR_KEY_NOT_FOUND, 108));
    EXPECT_EQ(KLIBFileGetKeyValue(conf_, "b", nullptr, 4, 0), -1);
    EXPECT_TRUE(raised(ERR_BAD_PARAMETERS, 52));
    EXPECT_EQ(KLIBFileGetKeyValue(none_, "b", small, 3, 0), -1);
    EXPECT_TRUE(raised(ERR_OPEN_FAILED, 56));
}

TEST_F(FileSyntax, VeryLongLines) {
    const std::string big(70000, 'v');
    const std::string old = "pad=" + std::string(100000, 'p') + "\nbig=\"" + big + "\"\n";
    write_file(conf_, old);
    const int needed = KLIBFileGetKeyValue(conf_, "big", nullptr, 0, 0);
    ASSERT_EQ(needed, 70001);
    std::string buf(needed, '\0');
    EXPECT_EQ(KLIBFileGetKeyValue(conf_, "big", buf.data(), needed, 0), needed);
    EXPECT_EQ(buf.c_str(), big);
    EXPECT_EQ(KLIBFileSetKeyValue(conf_, "tail", "1", nullptr), 1);
    EXPECT_EQ(read_file(conf_), old + "tail=1\n");
}

TEST_F(FileSyntax, SetKeyValueRewrites) {
    write_file(conf_, "# head\na=1\n a =1\nb=2\na=3\n");
    EXPECT_EQ(KLIBFileSetKeyValue(conf_, "a", "9", nullptr), 1);
    EXPECT_EQ(read_file(conf_), "# head\na=9\nb=2\n");  // later lines of the key dropped
    write_file(conf_, " a =1\n");
    EXPECT_EQ(KLIBFileSetKeyValue(conf_, "a", "5", nullptr), 1);
    EXPECT_EQ(read_file(conf_), " a =5\n");  // raw key kept
    write_file(conf_, "x=1");
    EXPECT_EQ(KLIBFileSetKeyValue(conf_, "y", "2", KLIB_FILE_FORMAT_QUOTED), 1);
    EXPECT_EQ(read_file(conf_), "x=1y=\"2\"\n");  // appended right after the last byte (kept)
    EXPECT_EQ(KLIBFileSetKeyValue(none_, "k", "v", nullptr), 1);
    EXPECT_EQ(read_file(none_), "k=v\n");
    EXPECT_EQ(KLIBFileSetKeyValue(nullptr, "k", "v", nullptr), -1);
    EXPECT_TRUE(raised(ERR_BAD_PARAMETERS, 61));
}

TEST_F(FileSyntax, SetKeysRemoveKeyAndAppend) {
    write_file(conf_, "a=1\n  b = 2\n# b=3\n\nc=4\na=5\nd=6");
    {
        Hash set{{"a", "7"}, {"b", "8"}, {"new", "9"}}, remove{{"c", ""}};
        EXPECT_EQ(KLIBFileSetKeys(conf_, set, remove, nullptr), 4);
        EXPECT_EQ(read_file(conf_), "a=7\nb=8\n# b=3\n\na=5\nd=6new=9\n");
        // Keys found in the file leave the caller's hashes; appended ones stay.
        EXPECT_EQ(KLIBSzHashPairNum(set), 1);
        EXPECT_STREQ(SzKLIBSzHashGetValue(set, "new"), "9");
        EXPECT_EQ(KLIBSzHashPairNum(remove), 0);
    }
    EXPECT_EQ(KLIBFileRemoveKey(conf_, "a"), 2);
    EXPECT_EQ(KLIBFileRemoveKey(conf_, "a"), 0);
    EXPECT_TRUE(raised(ERR_KEY_NOT_FOUND, 96));
    EXPECT_EQ(new_entries("/etc"), (std::vector<std::string>{"test.conf"}));
    EXPECT_EQ(KLIBFileRemoveKey(none_, "a"), -1);

    EXPECT_EQ(KLIBFileAppendKey(conf_, "b", "x", nullptr), 1);
    EXPECT_EQ(KLIBFileComment(conf_, "b"), 2);
    EXPECT_EQ(read_file(conf_), "#b=8\n# b=3\n\nd=6new=9\n#b=x\n");
    EXPECT_EQ(BlKOVAFileCheckKeyValue(conf_, "d", "6new=9"), 1);
    EXPECT_EQ(BlKOVAFileCheckKeyValue(conf_, "d", "6"), 0);

    // A new file gets 0644 whatever the umask.
    const mode_t old_mask = umask(077);
    EXPECT_EQ(KLIBFileSetKeys(none_, Hash{{"k", "v"}}, nullptr, KLIB_FILE_FORMAT_QUOTED), 1);
    umask(old_mask);
    EXPECT_EQ(read_file(none_), "k=\"v\"\n");
    struct stat st {};
    ASSERT_EQ(stat(none_, &st), 0);
    EXPECT_EQ(st.st_mode & 07777, 0644u);
}

TEST_F(FileSyntax, LineMatchFlags) {
    constexpr int kPrefix = KLIB_FILE_MATCH_PREFIX, kSuffix = KLIB_FILE_MATCH_SUFFIX;
    EXPECT_EQ(KLIBILineMatch("hostname=box\n", "name", 0), 1);
    EXPECT_EQ(KLIBILineMatch("hostname=box\n", "host", kPrefix), 1);
    EXPECT_EQ(KLIBILineMatch("hostname=box\n", "name", kPrefix), 0);
    EXPECT_EQ(KLIBILineMatch("hostname=box\n", "box", kSuffix), 1);
    EXPECT_EQ(KLIBILineMatch("hostname=box", "box", kSuffix), 1);
    EXPECT_EQ(KLIBILineMatch("hostname=box\n", "box\n", kSuffix), 0);
    EXPECT_EQ(KLIBILineMatch("hostname=box\n", "host", kPrefix | kSuffix), 0);
    EXPECT_EQ(KLIBILineMatch("Größe=1\n", "GRÖSSE", KLIB_FILE_MATCH_NOCASE), 1);
    EXPECT_EQ(KLIBILineMatch("Größe=1\n", "GRÖSSE", 0), 0);
    EXPECT_EQ(KLIBILineMatch("bad=\xff\n", "BAD", KLIB_FILE_MATCH_NOCASE), 0);
    EXPECT_EQ(KLIBILineMatch("#host\n", "host", 0), 0);
    EXPECT_EQ(KLIBILineMatch(nullptr, "host", 0), -1);
}

TEST_F(FileSyntax, GetSetAddLine) {
    write_file(conf_, "one\ntwo\n#two\nthree two\n");
    char buf[64];
    EXPECT_EQ(KLIBFileGetLine(conf_, "two", buf, sizeof buf, 0), 4);
    EXPECT_STREQ(buf, "two");
    EXPECT_EQ(KLIBFileGetLine(conf_, "two", buf, sizeof buf, KLIB_FILE_MATCH_LAST), 10);
    EXPECT_STREQ(buf, "three two");
    EXPECT_EQ(KLIBFileGetLine(conf_, "three", buf, 5, 0), -1);
    EXPECT_TRUE(raised(ERR_NOT_ENOUGH_MEMORY, 77));
    EXPECT_EQ(KLIBFileGetLine(conf_, "four", buf, sizeof buf, 0), 0);
    EXPECT_TRUE(raised(ERR_KEY_NOT_FOUND, 94));
    EXPECT_EQ(KLIBFileMatchLineNo(conf_, "two", KLIB_FILE_MATCH_LAST), 4);

    EXPECT_EQ(KLIBFileSetLine(conf_, "two", "2", KLIB_FILE_MATCH_PREFIX), 1);
    EXPECT_EQ(KLIBFileSetLine(conf_, "one", nullptr, 0), 1);
    EXPECT_EQ(read_file(conf_), "2\n#two\nthree two\n");
    EXPECT_EQ(KLIBFileSetLine(conf_, "zzz", "x", 0), 0);
    EXPECT_TRUE(raised(ERR_KEY_NOT_FOUND, 111));

    EXPECT_EQ(KLIBFileAddLine(conf_, nullptr, "first", 0), 1);
    EXPECT_EQ(KLIBFileAddLine(conf_, nullptr, "last", KLIB_FILE_ADD_AFTER), 1);
    EXPECT_EQ(KLIBFileAddLine(conf_, "three", "before3", 0), 1);
    EXPECT_EQ(KLIBFileAddLine(conf_, "last", "end", KLIB_FILE_ADD_AFTER), 1);
    EXPECT_EQ(read_file(conf_), "first\n2\n#two\nbefore3\nthree two\nlast\nend\n");
    EXPECT_EQ(KLIBFileAddLine(conf_, "zzz", "x", 0), 0);
    EXPECT_TRUE(raised(ERR_KEY_NOT_FOUND, 138));

    write_file(conf_, "a=1");  // a last line without its line feed stays a line of its own
    EXPECT_EQ(KLIBFileAddLine(conf_, nullptr, "b=2", KLIB_FILE_ADD_AFTER), 1);
    EXPECT_EQ(KLIBFileAddLine(conf_, "b=", "c=3", KLIB_FILE_ADD_AFTER), 1);
    EXPECT_EQ(read_file(conf_), "a=1\nb=2\nc=3\n");

    // Missing files are created with the line, or empty.
    EXPECT_EQ(KLIBFileAddLine(none_, "x", "new", 0), 1);
    EXPECT_EQ(read_file(none_), "new\n");
    EXPECT_EQ(KLIBFileSetLine(path("/etc/other.conf").c_str(), "x", nullptr, 0), 1);
    EXPECT_EQ(read_file(path("/etc/other.conf")), "");
}

TEST_F(FileSyntax, LinesByKeyCommentsAndReplace) {
    write_file(conf_, "a=1\nb = 2\n#b=3\nb=4\n");
    char buf[32];
    EXPECT_EQ(KLIBFileGetLineByKey(conf_, "b", buf, sizeof buf), 6);
    EXPECT_STREQ(buf, "b = 2");
    EXPECT_EQ(KLIBFileSetLineByKey(conf_, "b", "b=5"), 1);
    EXPECT_EQ(KLIBFileAddLineByKey(conf_, "a", "z=0", KLIB_FILE_ADD_AFTER), 1);
    EXPECT_EQ(KLIBFileAddLineByKey(conf_, "a", "y=0", 0), 1);
    EXPECT_EQ(read_file(conf_), "y=0\na=1\nz=0\nb=5\n#b=3\nb=4\n");
    EXPECT_EQ(KLIBFileSetLineByKey(conf_, "q", "x"), 0);
    EXPECT_EQ(KLIBErrGet(), ERR_KEY_NOT_FOUND);

    EXPECT_EQ(KOVAFileLineComment(conf_, "b=", KLIB_FILE_MATCH_PREFIX, 1), 2);
    EXPECT_EQ(KOVAFileLineComment(conf_, "b=3", 0, 0), 1);
    EXPECT_EQ(read_file(conf_), "y=0\na=1\nz=0\n#b=5\nb=3\n#b=4\n");
    EXPECT_EQ(KLIBFileReplaceSubStr(conf_, "=", ":="), 4);
    EXPECT_EQ(read_file(conf_), "y:=0\na:=1\nz:=0\n#b=5\nb:=3\n#b=4\n");

    PKLIBSZLIST lines = nullptr;
    EXPECT_EQ(KLIBFileReadLines(conf_, &lines), 6);
    ASSERT_NE(lines, nullptr);
    EXPECT_STREQ(SzKLIBSzListGet(lines, 3), "#b=5");
    KLIBSzListFree(lines);
    PKLIBSZLIST names = nullptr;
    const std::vector<std::string> etc = list_dir(path("/etc"));
    ASSERT_EQ(KLIBFileEnumDir(path("/etc").c_str(), &names), static_cast<int>(etc.size()));
    ASSERT_NE(names, nullptr);
    std::vector<std::string> enumerated;
    for (int i = 0; i < static_cast<int>(etc.size()); ++i)
        enumerated.emplace_back(SzKLIBSzListGet(names, i));
    std::sort(enumerated.begin(), enumerated.end());
    EXPECT_EQ(enumerated, etc);
    KLIBSzListFree(names);
}

}  // namespace
}  // namespace kova::test
