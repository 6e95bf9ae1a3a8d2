// The line syntax and the key and line operations, against small files in the sandbox.
#include <string>

#include "kovasdk/error.h"
#include "kovasdk/file.h"
#include "kovasdk/hash.h"
#include "kovasdk/kstring.h"
#include "support/sandbox.h"

namespace {

using kova::test::read_file;
using kova::test::write_file;

class FileSyntax : public kova::test::SandboxTest {
  protected:
    std::string conf_ = path("/etc/test.conf");

    // The value of key, or "<absent>" / "<error>".
    std::string get(const std::string &key, int flags = 0) {
        char buf[256];
        const int rc = KLIBFileGetKeyValue(conf_.c_str(), key.c_str(), buf, sizeof buf, flags);
        if (rc == 0) return "<absent>";
        if (rc < 0) return "<error>";
        EXPECT_EQ(static_cast<size_t>(rc), strlen(buf) + 1);
        return buf;
    }
};

struct SyntaxCase {
    const char *content;
    const char *key;
    const char *value;  // "<absent>" when the key must not be found
};

TEST_F(FileSyntax, LineSyntaxTable) {
    const SyntaxCase cases[] = {
        {"a=\"1\"\n#a=2\n", "a", "1"},
        {"#a=2\n", "a", "<absent>"},
        {";a=2\n", "a", "<absent>"},
        {" #a=2\n", "#a", "2"},  // a comment only in column 0
        {"a=\n", "a", "<absent>"},
        {"a=\"\"\n", "a", ""},
        {"a= \n", "a", ""},
        {"key=\"a b\"\n", "key", "a b"},
        {"key = a b \n", "key", "a b"},
        {"\tkey\t=\t\"x\"\t\n", "key", "x"},
        {"a=1\r\n", "a", "1"},
        {"a=1", "a", "1"},  // no final line feed
        {"a=x=y\n", "a", "x=y"},
        {"=a=1\n", "a", "1"},
        {"\"a\"=1\n", "a", "1"},
        {"a=\"1\n", "a", "\"1"},  // a lone quote stays
        {"a=\"\n", "a", "\""},
        {"A=1\n", "a", "<absent>"},
        {"ab=1\n", "a", "<absent>"},
        {"a\n", "a", "<absent>"},
        {"a=1\na=2\n", "a", "1"},
        {"\n\n\na=3\n", "a", "3"},
    };
    for (const auto &c : cases) {
        write_file(conf_, c.content);
        EXPECT_EQ(get(c.key), c.value) << "file: " << c.content;
    }
}

TEST_F(FileSyntax, GetKeyValueBuffersAndFlags) {
    write_file(conf_, "a=1\nb=hello\na=2\n");
    EXPECT_EQ(get("a", KLIB_FILE_MATCH_LAST), "2");
    EXPECT_EQ(KLIBFileGetKeyValue(conf_.c_str(), "b", nullptr, 0, 0), 6);
    char small[3] = "xy";
    EXPECT_EQ(KLIBFileGetKeyValue(conf_.c_str(), "b", small, sizeof small, 0), -1);
    EXPECT_EQ(KLIBErrGet(), ERR_NOT_ENOUGH_MEMORY);
    EXPECT_EQ(KOVAErrorGetLine(), 88);
    EXPECT_STREQ(small, "xy");  // never a truncated copy
    EXPECT_EQ(KLIBFileGetKeyValue(conf_.c_str(), "zz", small, sizeof small, 0), 0);
    EXPECT_EQ(KLIBErrGet(), ERR_KEY_NOT_FOUND);
    EXPECT_EQ(KOVAErrorGetLine(), 108);
    EXPECT_EQ(KLIBFileGetKeyValue(conf_.c_str(), "b", nullptr, 4, 0), -1);
    EXPECT_EQ(KOVAErrorGetLine(), 52);
    EXPECT_EQ(KLIBFileGetKeyValue(path("/etc/none").c_str(), "b", small, 3, 0), -1);
    EXPECT_EQ(KLIBErrGet(), ERR_OPEN_FAILED);
}

TEST_F(FileSyntax, VeryLongLines) {
    const std::string big(70000, 'v');
    write_file(conf_, "pad=" + std::string(100000, 'p') + "\nbig=\"" + big + "\"\n");
    const int needed = KLIBFileGetKeyValue(conf_.c_str(), "big", nullptr, 0, 0);
    ASSERT_EQ(needed, 70001);
    std::string buf(needed, '\0');
    EXPECT_EQ(KLIBFileGetKeyValue(conf_.c_str(), "big", buf.data(), needed, 0), needed);
    EXPECT_EQ(buf.c_str(), big);
    EXPECT_EQ(KLIBFileSetKeyValue(conf_.c_str(), "tail", "1", nullptr), 1);
    EXPECT_EQ(read_file(conf_),
              "pad=" + std::string(100000, 'p') + "\nbig=\"" + big + "\"\ntail=1\n");
}

TEST_F(FileSyntax, SetKeyValueRewrites) {
    write_file(conf_, "# head\na=1\n a =1\nb=2\na=3\n");
    EXPECT_EQ(KLIBFileSetKeyValue(conf_.c_str(), "a", "9", nullptr), 1);
    EXPECT_EQ(read_file(conf_), "# head\na=9\nb=2\n");  // later lines of the key dropped

    write_file(conf_, " a =1\n");
    EXPECT_EQ(KLIBFileSetKeyValue(conf_.c_str(), "a", "5", nullptr), 1);
    EXPECT_EQ(read_file(conf_), " a =5\n");  // raw key kept

    write_file(conf_, "x=1");
    EXPECT_EQ(KLIBFileSetKeyValue(conf_.c_str(), "y", "2", KLIB_FILE_FORMAT_QUOTED), 1);
    EXPECT_EQ(read_file(conf_), "x=1y=\"2\"\n");  // appended right after the last byte (kept)

    const std::string fresh = path("/etc/fresh.conf");
    EXPECT_EQ(KLIBFileSetKeyValue(fresh.c_str(), "k", "v", nullptr), 1);
    EXPECT_EQ(read_file(fresh), "k=v\n");
    EXPECT_EQ(KLIBFileSetKeyValue(nullptr, "k", "v", nullptr), -1);
    EXPECT_EQ(KOVAErrorGetLine(), 61);
    EXPECT_EQ(kova::test::list_dir(path("/etc")),
              (std::vector<std::string>{"fresh.conf", "kovainfo.conf", "test.conf"}));
}

TEST_F(FileSyntax, SetKeysRemoveKeyAndAppend) {
    write_file(conf_, "a=1\n  b = 2\n# b=3\n\nc=4\na=5\nd=6");
    PKLIBSZHASH set = PshKLIBSzHashAlloc(0);
    PKLIBSZHASH remove = PshKLIBSzHashAlloc(0);
    ASSERT_GE(KLIBSzHashSetValue(&set, "a", "7"), 0);
    ASSERT_GE(KLIBSzHashSetValue(&set, "b", "8"), 0);
    ASSERT_GE(KLIBSzHashSetValue(&set, "new", "9"), 0);
    ASSERT_GE(KLIBSzHashSetValue(&remove, "c", ""), 0);
    EXPECT_EQ(KLIBFileSetKeys(conf_.c_str(), set, remove, nullptr), 4);
    EXPECT_EQ(read_file(conf_), "a=7\nb=8\n# b=3\n\na=5\nd=6new=9\n");
    // Keys found in the file leave the caller's hashes; appended ones stay.
    EXPECT_EQ(KLIBSzHashPairNum(set), 1);
    EXPECT_STREQ(SzKLIBSzHashGetValue(set, "new"), "9");
    EXPECT_EQ(KLIBSzHashPairNum(remove), 0);
    KLIBSzHashFree(set);
    KLIBSzHashFree(remove);

    EXPECT_EQ(KLIBFileRemoveKey(conf_.c_str(), "a"), 2);
    EXPECT_EQ(KLIBFileRemoveKey(conf_.c_str(), "a"), 0);
    EXPECT_EQ(KLIBErrGet(), ERR_KEY_NOT_FOUND);
    EXPECT_EQ(KOVAErrorGetLine(), 96);
    EXPECT_EQ(KLIBFileRemoveKey(path("/etc/none").c_str(), "a"), -1);

    EXPECT_EQ(KLIBFileAppendKey(conf_.c_str(), "b", "x", nullptr), 1);
    EXPECT_EQ(KLIBFileComment(conf_.c_str(), "b"), 2);
    EXPECT_EQ(read_file(conf_), "#b=8\n# b=3\n\nd=6new=9\n#b=x\n");
    EXPECT_EQ(BlKOVAFileCheckKeyValue(conf_.c_str(), "d", "6new=9"), 1);
    EXPECT_EQ(BlKOVAFileCheckKeyValue(conf_.c_str(), "d", "6"), 0);

    const std::string fresh = path("/etc/fresh.conf");
    set = PshKLIBSzHashAlloc(0);
    ASSERT_GE(KLIBSzHashSetValue(&set, "k", "v"), 0);
    const mode_t old_mask = umask(077);
    EXPECT_EQ(KLIBFileSetKeys(fresh.c_str(), set, nullptr, KLIB_FILE_FORMAT_QUOTED), 1);
    umask(old_mask);
    KLIBSzHashFree(set);
    EXPECT_EQ(read_file(fresh), "k=\"v\"\n");
    struct stat st {};
    ASSERT_EQ(stat(fresh.c_str(), &st), 0);
    EXPECT_EQ(st.st_mode & 07777, 0644u);
}

TEST_F(FileSyntax, LineMatchFlags) {
    EXPECT_EQ(KLIBILineMatch("hostname=box\n", "name", 0), 1);
    EXPECT_EQ(KLIBILineMatch("hostname=box\n", "host", KLIB_FILE_MATCH_PREFIX), 1);
    EXPECT_EQ(KLIBILineMatch("hostname=box\n", "name", KLIB_FILE_MATCH_PREFIX), 0);
    EXPECT_EQ(KLIBILineMatch("hostname=box\n", "box", KLIB_FILE_MATCH_SUFFIX), 1);
    EXPECT_EQ(KLIBILineMatch("hostname=box", "box", KLIB_FILE_MATCH_SUFFIX), 1);
    EXPECT_EQ(KLIBILineMatch("hostname=box\n", "box\n", KLIB_FILE_MATCH_SUFFIX), 0);
    EXPECT_EQ(
        KLIBILineMatch("hostname=box\n", "host", KLIB_FILE_MATCH_PREFIX | KLIB_FILE_MATCH_SUFFIX),
        0);
    EXPECT_EQ(KLIBILineMatch("Größe=1\n", "GRÖSSE", KLIB_FILE_MATCH_NOCASE), 1);
    EXPECT_EQ(KLIBILineMatch("Größe=1\n", "GRÖSSE", 0), 0);
    EXPECT_EQ(KLIBILineMatch("bad=\xff\n", "BAD", KLIB_FILE_MATCH_NOCASE), 0);
    EXPECT_EQ(KLIBILineMatch("#host\n", "host", 0), 0);
    EXPECT_EQ(KLIBILineMatch(nullptr, "host", 0), -1);
}

TEST_F(FileSyntax, GetSetAddLine) {
    write_file(conf_, "one\ntwo\n#two\nthree two\n");
    char buf[64];
    EXPECT_EQ(KLIBFileGetLine(conf_.c_str(), "two", buf, sizeof buf, 0), 4);
    EXPECT_STREQ(buf, "two");
    EXPECT_EQ(KLIBFileGetLine(conf_.c_str(), "two", buf, sizeof buf, KLIB_FILE_MATCH_LAST), 10);
    EXPECT_STREQ(buf, "three two");
    EXPECT_EQ(KLIBFileGetLine(conf_.c_str(), "three", buf, 5, 0), -1);
    EXPECT_EQ(KOVAErrorGetLine(), 77);
    EXPECT_EQ(KLIBFileGetLine(conf_.c_str(), "four", buf, sizeof buf, 0), 0);
    EXPECT_EQ(KOVAErrorGetLine(), 94);
    EXPECT_EQ(KLIBFileMatchLineNo(conf_.c_str(), "two", KLIB_FILE_MATCH_LAST), 4);

    EXPECT_EQ(KLIBFileSetLine(conf_.c_str(), "two", "2", KLIB_FILE_MATCH_PREFIX), 1);
    EXPECT_EQ(read_file(conf_), "one\n2\n#two\nthree two\n");
    EXPECT_EQ(KLIBFileSetLine(conf_.c_str(), "one", nullptr, 0), 1);
    EXPECT_EQ(read_file(conf_), "2\n#two\nthree two\n");
    EXPECT_EQ(KLIBFileSetLine(conf_.c_str(), "zzz", "x", 0), 0);
    EXPECT_EQ(KOVAErrorGetLine(), 111);

    EXPECT_EQ(KLIBFileAddLine(conf_.c_str(), nullptr, "first", 0), 1);
    EXPECT_EQ(KLIBFileAddLine(conf_.c_str(), nullptr, "last", KLIB_FILE_ADD_AFTER), 1);
    EXPECT_EQ(KLIBFileAddLine(conf_.c_str(), "three", "before3", 0), 1);
    EXPECT_EQ(KLIBFileAddLine(conf_.c_str(), "last", "end", KLIB_FILE_ADD_AFTER), 1);
    EXPECT_EQ(read_file(conf_), "first\n2\n#two\nbefore3\nthree two\nlast\nend\n");
    EXPECT_EQ(KLIBFileAddLine(conf_.c_str(), "zzz", "x", 0), 0);
    EXPECT_EQ(KOVAErrorGetLine(), 138);

    write_file(conf_, "a=1");  // a last line without its line feed stays a line of its own
    EXPECT_EQ(KLIBFileAddLine(conf_.c_str(), nullptr, "b=2", KLIB_FILE_ADD_AFTER), 1);
    EXPECT_EQ(KLIBFileAddLine(conf_.c_str(), "b=", "c=3", KLIB_FILE_ADD_AFTER), 1);
    EXPECT_EQ(read_file(conf_), "a=1\nb=2\nc=3\n");

    const std::string fresh = path("/etc/fresh.conf");
    EXPECT_EQ(KLIBFileAddLine(fresh.c_str(), "x", "new", 0), 1);
    EXPECT_EQ(read_file(fresh), "new\n");
    EXPECT_EQ(KLIBFileSetLine(path("/etc/other.conf").c_str(), "x", nullptr, 0), 1);
    EXPECT_EQ(read_file(path("/etc/other.conf")), "");
}

TEST_F(FileSyntax, LinesByKeyCommentsAndReplace) {
    write_file(conf_, "a=1\nb = 2\n#b=3\nb=4\n");
    char buf[32];
    EXPECT_EQ(KLIBFileGetLineByKey(conf_.c_str(), "b", buf, sizeof buf), 6);
    EXPECT_STREQ(buf, "b = 2");
    EXPECT_EQ(KLIBFileSetLineByKey(conf_.c_str(), "b", "b=5"), 1);
    EXPECT_EQ(KLIBFileAddLineByKey(conf_.c_str(), "a", "z=0", KLIB_FILE_ADD_AFTER), 1);
    EXPECT_EQ(KLIBFileAddLineByKey(conf_.c_str(), "a", "y=0", 0), 1);
    EXPECT_EQ(read_file(conf_), "y=0\na=1\nz=0\nb=5\n#b=3\nb=4\n");
    EXPECT_EQ(KLIBFileSetLineByKey(conf_.c_str(), "q", "x"), 0);
    EXPECT_EQ(KLIBErrGet(), ERR_KEY_NOT_FOUND);

    EXPECT_EQ(KOVAFileLineComment(conf_.c_str(), "b=", KLIB_FILE_MATCH_PREFIX, 1), 2);
    EXPECT_EQ(KOVAFileLineComment(conf_.c_str(), "b=3", 0, 0), 1);
    EXPECT_EQ(read_file(conf_), "y=0\na=1\nz=0\n#b=5\nb=3\n#b=4\n");
    EXPECT_EQ(KLIBFileReplaceSubStr(conf_.c_str(), "=", ":="), 4);
    EXPECT_EQ(read_file(conf_), "y:=0\na:=1\nz:=0\n#b=5\nb:=3\n#b=4\n");

    PKLIBSZLIST lines = nullptr;
    EXPECT_EQ(KLIBFileReadLines(conf_.c_str(), &lines), 6);
    ASSERT_NE(lines, nullptr);
    EXPECT_STREQ(SzKLIBSzListGet(lines, 3), "#b=5");
    KLIBSzListFree(lines);
    PKLIBSZLIST names = nullptr;
    EXPECT_EQ(KLIBFileEnumDir(path("/etc").c_str(), &names), 2);
    ASSERT_NE(names, nullptr);
    EXPECT_STREQ(SzKLIBSzListGet(names, 0), "kovainfo.conf");
    KLIBSzListFree(names);
}

// The family's trimming is the string utilities' trimming.
TEST_F(FileSyntax, TrimAgreesWithStringUtilities) {
    const char *samples[] = {" a ",          "\"a\"", "\" a \"", "\"", "\"\"",
                             " \t\"x\"\r\n", "a\"",   "\"\"\"",  ""};
    for (const char *s : samples) {
        write_file(conf_, std::string("k=") + s + "\n");
        char trimmed[32];
        ASSERT_GE(KLIBStrTrimSpace(const_cast<char *>(s), trimmed), 0);
        const std::string got = get("k");
        EXPECT_EQ(got == "<absent>" ? "" : got, trimmed) << "value [" << s << "]";
    }
}

}  // namespace
