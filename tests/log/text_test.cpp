// Texts: catalogue look-ups and placeholders, type texts, the record's user, the reader's line
// form, and the list of current connections.
#include <sys/stat.h>
#include <syslog.h>

#include <algorithm>
#include <cstdlib>

#include "kovasdk/error.h"
#include "log/log_support.h"

namespace kova::test {
namespace {

class TextTest : public LogTest {
  protected:
    void SetUp() override {
        LogTest::SetUp();
        write_file(path("/usr/kova/kovasdk/texts/tst/events"),
                   "[11000000]\n11000000=Other\n11000001=Info\n11000002=Warn\n11000003=Err\n"
                   "[11100000]\n11100001=Share @1 created by @2\n11100002=\n"
                   "11100003=@2 @1 @4 @3 @1\n");
    }
    std::string text(uint32_t key, const char *a1, const char *a2, const char *a3 = "",
                     const char *a4 = "") {
        char *t = KOVALogConvertEventKey(key, "tst", a1, a2, a3, a4);
        std::string s = t != nullptr ? t : "(null)";
        free(t);
        return s;
    }
    void TearDown() override {
        KLIBSzHashFree(gpshEvent);
        gpshEvent = nullptr;
        LogTest::TearDown();
    }
};

TEST_F(TextTest, PlaceholdersTakeTheArgumentsThatAreNotEmpty) {
    EXPECT_EQ(text(0x11100001, "music", ""), "Share music created by @2");
    EXPECT_EQ(text(0x11100001, "music", " "), "Share music created by  ");
    EXPECT_EQ(text(0x11100001, nullptr, nullptr), "Share @1 created by @2");
    // Every placeholder, in one pass: an argument's own "@2" is not filled in again.
    EXPECT_EQ(text(0x11100003, "@2", "b", "c", "d"), "b @2 d c @2");
}

TEST_F(TextTest, MissingTextsAreLoggedOnceAndGiveNull) {
    LogCapture log;
    const std::string catalogue = path("/usr/kova/kovasdk/texts/tst/events");
    EXPECT_EQ(text(0x11100002, "a", "b"), "(null)");  // an empty text
    EXPECT_EQ(text(0x11100009, "a", "b"), "(null)");
    EXPECT_TRUE(log.contains(LOG_ERR, "event 11100009 not found in 11100000"));
    EXPECT_EQ(text(0x22200001, "a", "b"), "(null)");
    EXPECT_TRUE(log.contains(LOG_ERR, "section 22200000 not found in " + catalogue));
    // The miss is remembered: the catalogue is not read for it again.
    write_file(catalogue, "[11100000]\n11100009=now here\n");
    EXPECT_EQ(text(0x11100009, "a", "b"), "(null)");
    KLIBSzHashFree(gpshEvent);
    gpshEvent = nullptr;
    EXPECT_EQ(text(0x11100009, "a", "b"), "now here");
}

TEST_F(TextTest, TypeTextsComeFromTheirOwnSection) {
    EXPECT_STREQ(KOVALogConvertType(1, "tst"), "Info");
    EXPECT_STREQ(KOVALogConvertType(3, "tst"), "Err");
    EXPECT_STREQ(KOVALogConvertType(7, "tst"), "Other");
    EXPECT_STREQ(KOVALogConvertType(0, "tst"), "Other");
    EXPECT_STREQ(KOVALogConvertType(1, "xx"), "Unknown");
    EXPECT_STREQ(KOVALogConvertType(2, nullptr), "Warning");  // the appliance's English texts
}

TEST_F(TextTest, TimesAreLocalInTheDefinedForm) {
    setenv("TZ", "UTC", 1);
    tzset();
    EXPECT_STREQ(KOVALogConvertTime1(86400 * 365 + 3661), "1971/01/01 01:01:01");
    char out[KOVA_LOG_TIME_MAX];
    ASSERT_EQ(KOVALogICovertTimeFmt("1000000000", out), 0);
    EXPECT_STREQ(out, "2001/09/09 01:46:40");
    EXPECT_EQ(KOVALogICovertTimeFmt("soon", out), -1);
    unsetenv("TZ");
    tzset();
}

TEST_F(TextTest, RecordsNameTheUserRootAsAdmin) {
    setenv("USERNAME", "carol", 1);
    EXPECT_STREQ(KOVALogObtainUser(), "carol");
    setenv("USERNAME", "root", 1);
    EXPECT_STREQ(KOVALogObtainUser(), "admin");
    unsetenv("USERNAME");
    // Without the variable: the effective user's name in the appliance's accounts.
    if (geteuid() == 0) {
        EXPECT_STREQ(KOVALogObtainUser(), "admin");
    }
}

TEST_F(TextTest, ReaderLineFormAndRecordsWithoutTextAreLeftOut) {
    setenv("TZ", "UTC", 1);
    tzset();
    const std::string file = log_path();
    ASSERT_EQ(KOVALogSet1a(file.c_str(), 0x0103, 0x11100001, "music", "", "", ""), 0);
    ASSERT_EQ(KOVALogSet1a(file.c_str(), 2, 0x11100009, "x", "", "", ""), 0);
    LogCapture log;
    const std::string out = render(file, "tst");
    unsetenv("TZ");
    tzset();
    // The type as stored, its text from the low byte.
    ASSERT_EQ(out.substr(0, 9), "259\tErr\t2");
    EXPECT_EQ(out.substr(27), "\tp\tadmin\tShare music created by @2\n");
    EXPECT_TRUE(log.contains(LOG_ERR,
                             "Can not get the log szEvent id = 11100009, szLang = tst, szArg1 = "
                             "[x], szArg2 = [], szArg3 = [], szArg4 = [], szSource = p"));
    EXPECT_EQ(gpshEvent, nullptr);  // freed after each read
}

TEST_F(TextTest, SpreadPassesOverShortRecordsQuietly) {
    char *record = nullptr;
    const int length = KOVALogInitEventBuffer(&record, 1, 0x11100001, "music", "", "", "");
    ASSERT_EQ(length, 24 + 1 + 5 + 5);
    FILE *out = tmpfile();
    for (int cut = 0; cut < length - 2; ++cut)
        EXPECT_EQ(KOVALogEventSpread(out, record + 2, "tst", cut), 0) << cut;
    EXPECT_EQ(ftell(out), 0);
    EXPECT_EQ(KOVALogEventSpread(out, record + 2, "tst", length - 2), 0);
    EXPECT_GT(ftell(out), 0);
    fclose(out);
    free(record);
}

// The three sources in one list: the SMB report's lines, and the Apple and FTP lists cleaned
// of connections whose process is gone.
TEST_F(TextTest, ConnectionsFromTheThreeSources) {
    setenv("TZ", "UTC", 1);
    tzset();
    write_file(path("/usr/kova/bin/smbstatus"),
               "#!/bin/sh\necho 'Samba version 4'\necho 'Service\tpid\tmachine'\necho '-----'\n"
               "printf '1000000000\\tbob\\t10.0.0.5\\tmusic\\textra\\n'\n"
               "printf '1000000000\\tshort\\n'\n");
    chmod(path("/usr/kova/bin/smbstatus").c_str(), 0755);
    write_file(path("/bin/ps"),
               "#!/bin/sh\necho '  PID TTY STAT TIME COMMAND'\n"
               "echo '  300 ?   S    0:00 afpd -d'\necho '  400 ?   S    0:00 ftpd'\n");
    chmod(path("/bin/ps").c_str(), 0755);
    mkdir(path("/tmp/apple").c_str(), 0755);
    write_file(path("/tmp/apple/AT_LOG"),
               "300\tcarol\t10.0.0.6\tphotos/\tx\n999\tgone\t10.0.0.7\tdocs/\tx\n");
    mkdir(path("/var/tmp").c_str(), 0755);
    write_file(path("/var/tmp/ftp_cur_con.log"),
               "400\tdave\t10.0.0.8\tpub\t5th\n400\terin\t10.0.0.9\tpub\n");

    PKOVALOGCONN conns = nullptr;
    const int count = KOVALogGet(KOVA_LOG_CLASS_MAN, 1, &conns, nullptr);
    ASSERT_EQ(count, 4);
    EXPECT_STREQ(conns[0].szTime, "2001/09/09 01:46:40");
    EXPECT_STREQ(conns[0].szField3, "10.0.0.5");
    EXPECT_STREQ(conns[0].szField2, "bob");
    EXPECT_STREQ(conns[0].szInfo, "music");
    EXPECT_EQ(conns[0].iType, 4);
    EXPECT_STREQ(conns[1].szField2, "carol");
    EXPECT_STREQ(conns[1].szInfo, "photos");  // without its last character
    EXPECT_EQ(conns[1].iType, 5);
    EXPECT_STREQ(conns[2].szInfo, "pub");
    EXPECT_EQ(conns[2].iType, 7);
    EXPECT_STREQ(conns[3].szInfo, "@FTP Service");
    free(conns);
    // The Apple list lost the line of the process that is gone; the report file is removed.
    EXPECT_EQ(read_file(path("/tmp/apple/AT_LOG")), "300\tcarol\t10.0.0.6\tphotos/\tx\n");
    EXPECT_FALSE(file_exists(path("/tmp/smbstatus.tmp")));

    const std::string out = path("/tmp/conns.txt");
    EXPECT_EQ(KOVALogGet(KOVA_LOG_CLASS_MAN, 1, nullptr, out.c_str()), 4);
    const std::string lines = read_file(out);
    EXPECT_EQ(lines.substr(0, lines.find('\n') + 1), "2001/09/09 01:46:40\t10.0.0.5\tbob\tmusic\n");
    EXPECT_EQ(std::count(lines.begin(), lines.end(), '\n'), 4);
    unsetenv("TZ");
    tzset();

    EXPECT_EQ(KOVALogGet(1, 1, &conns, nullptr), -1);
    EXPECT_TRUE(raised(ERR_BAD_PARAMETERS));
    EXPECT_EQ(KOVALogGet(2, 0, &conns, nullptr), -1);
}

}  // namespace
}  // namespace kova::test
