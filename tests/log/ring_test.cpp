// The log file's bytes: the record layout, appends, the wrap, the freeing rules, reading back
// and the self-repair, shrinking, and the configuration file.
#include <sys/file.h>
#include <sys/stat.h>
#include <syslog.h>

#include <algorithm>
#include <ctime>
#include <map>

#include "kovasdk/error.h"
#include "kovasdk/file.h"

#include "core/sys.h"
#include "log/log_support.h"
#include "support/sys_fault.h"

namespace kova::test {
namespace {

using RingTest = LogTest;

constexpr uint32_t kShare = 0x11100001;  // "Share @1 created by @2" in the test catalogue

// Appends through the named-file entry point; arg1 carries a sequence number.
int append(const std::string &file, int n, size_t pad = 0) {
    const std::string arg = std::string(pad, 'x') + std::to_string(n);
    return KOVALogSet1a(file.c_str(), 1, kShare, arg.c_str(), "", "", "");
}

void write_test_catalogue(const SandboxTest &, const std::string &root) {
    write_file(root + "/usr/kova/kovasdk/texts/tst/events",
               "[11000000]\n11000000=Other\n11000001=Info\n11000002=Warn\n11000003=Err\n"
               "[11100000]\n11100001=Share @1 created by @2\n11100002=\n");
}

TEST_F(RingTest, FreshFileHoldsOneRecordOfTheDefinedLayout) {
    const time_t before = time(nullptr);
    ASSERT_EQ(KOVALogSet1(KOVA_LOG_CLASS_SYS, 1, 0x1180050A, "", "", "", ""), 0);
    const std::string bytes = read_file(path("/var/log/kovasys.log"));
    ASSERT_EQ(bytes.size(), 50u);
    EXPECT_EQ(bytes.substr(0, 8), std::string("KOVA\0\0\0\0", 8));
    EXPECT_EQ(get32(bytes, 8), 16u);
    EXPECT_EQ(get32(bytes, 12), 50u);
    // 24 fixed bytes, "p", "admin", and the four empty arguments stored as single blanks.
    EXPECT_EQ(get16(bytes, 16), 34);
    EXPECT_EQ(get16(bytes, 18), 1);
    EXPECT_GE(get32(bytes, 20), static_cast<uint32_t>(before));
    EXPECT_EQ(get16(bytes, 24), 1);
    EXPECT_EQ(get16(bytes, 26), 5);
    EXPECT_EQ(get32(bytes, 28), 0x1180050Au);
    for (int i = 0; i < 4; ++i)
        EXPECT_EQ(get16(bytes, 32 + 2 * i), 1);
    EXPECT_EQ(bytes.substr(40), "padmin    ");
    struct stat st {};
    ASSERT_EQ(stat(path("/var/log/kovasys.log").c_str(), &st), 0);
    EXPECT_EQ(st.st_mode & 0777, 0600u);
}

TEST_F(RingTest, NullArgumentsAreStoredEmptyAndEmptyOnesAsABlank) {
    ASSERT_EQ(KOVALogSet1(KOVA_LOG_CLASS_SYS, 2, kShare, "music", nullptr, "", nullptr), 0);
    const LogImage log = image(path("/var/log/kovasys.log"));
    ASSERT_EQ(log.records.size(), 1u);
    EXPECT_EQ(log.records[0].args[0], "music");
    EXPECT_EQ(log.records[0].args[1], "");
    EXPECT_EQ(log.records[0].args[2], " ");
    EXPECT_EQ(log.records[0].args[3], "");
    // The named-file form stores what it is given.
    ASSERT_EQ(KOVALogSet1a(log_path().c_str(), 1, kShare, "", nullptr, "", ""), 0);
    EXPECT_EQ(image(log_path()).records[0].args[0], "");
}

// Records of 100 bytes in a ring of 65536: the 656th would end past 65534, so it goes to the
// record area after a zero marker at the old tail, and the two oldest records make room.
TEST_F(RingTest, WrapsAtTheEndAndReadsOldestToNewest) {
    write_test_catalogue(*this, root());
    glogsizeMax = 65536;
    const std::string file = log_path();
    const size_t pad = 100 - 24 - 1 - 5 - 6;  // arg1 = pad + a 6-digit number
    for (int i = 100000; i < 100656; ++i)
        ASSERT_EQ(append(file, i, pad), 0) << i;
    const std::string bytes = read_file(file);
    const LogImage log = parse_log(bytes);
    EXPECT_EQ(log.head, 216u);
    EXPECT_EQ(log.tail, 116u);
    EXPECT_EQ(get16(bytes, 65516), 0);
    ASSERT_TRUE(log.whole);
    ASSERT_EQ(log.records.size(), 654u);
    EXPECT_EQ(log.records.front().args[0].substr(pad), "100002");
    EXPECT_EQ(log.records.back().args[0].substr(pad), "100655");
    EXPECT_EQ(log.records.back().offset, 16u);

    const std::string text = render(file, "tst");
    std::vector<std::string> lines;
    for (size_t start = 0, end; (end = text.find('\n', start)) != std::string::npos;
         start = end + 1)
        lines.push_back(text.substr(start, end - start));
    ASSERT_EQ(lines.size(), 654u);
    const std::string pad_text(pad, 'x');
    EXPECT_NE(lines.front().find("\tp\tadmin\tShare " + pad_text + "100002 created by @2"),
              std::string::npos)
        << lines.front();
    EXPECT_EQ(lines.front().substr(0, 7), "1\tInfo\t");
    EXPECT_NE(lines.back().find(pad_text + "100655 created"), std::string::npos);
}

TEST_F(RingTest, WrappedRingFreesUpToTheMarkerThenTurnsBackUnwrapped) {
    glogsizeMax = 4096;
    const std::string file = log_path();
    int next = 0;
    // Fill until wrapped, then keep writing until the head has passed the marker.
    bool was_wrapped = false, unwrapped_again = false;
    for (; next < 400 && !unwrapped_again; ++next) {
        ASSERT_EQ(append(file, next, next % 97), 0) << next;
        const LogImage log = image(file);
        ASSERT_TRUE(log.whole) << next;
        ASSERT_NE(log.head, log.tail);
        ASSERT_LE(log.tail, 4096u - 2);
        EXPECT_EQ(log.records.back().args[0], std::string(next % 97, 'x') + std::to_string(next));
        // The survivors are the newest events, without a gap.
        for (size_t i = 1; i < log.records.size(); ++i) {
            EXPECT_EQ(std::stoi(log.records[i].args[0].substr(
                          log.records[i].args[0].find_first_not_of('x'))),
                      std::stoi(log.records[i - 1].args[0].substr(
                          log.records[i - 1].args[0].find_first_not_of('x'))) +
                          1);
        }
        if (log.head > log.tail) was_wrapped = true;
        if (was_wrapped && log.head <= log.tail) unwrapped_again = true;
    }
    EXPECT_TRUE(unwrapped_again);
}

TEST_F(RingTest, ARecordThatCannotFitFailsWithoutDamagingTheRing) {
    glogsizeMax = 1024;
    const std::string file = log_path();
    ASSERT_EQ(append(file, 1), 0);
    const std::string before = read_file(file);
    LogCapture log;
    const std::string big(2000, 'y');
    EXPECT_EQ(KOVALogSet1a(file.c_str(), 1, kShare, big.c_str(), "", "", ""), -1);
    EXPECT_TRUE(log.contains(LOG_ERR, "sdk/kovalog1.c : lline 349"));
    EXPECT_TRUE(raised(ERR_BAD_PARAMETERS));
    EXPECT_EQ(read_file(file), before);
    EXPECT_EQ(append(file, 2), 0);
    EXPECT_EQ(image(file).records.back().args[0], "2");
}

TEST_F(RingTest, DamagedRecordStopsTheReaderAndTheTailMovesThere) {
    write_test_catalogue(*this, root());
    const std::string file = log_path();
    for (int i = 0; i < 5; ++i)
        ASSERT_EQ(append(file, i), 0);
    std::string bytes = read_file(file);
    const LogImage before = parse_log(bytes);
    const uint32_t third = before.records[2].offset;
    bytes[third] = 1;  // a length of 1
    bytes[third + 1] = 0;
    write_file(file, bytes);
    LogCapture log;
    const std::string text = render(file, "tst");
    EXPECT_EQ(std::count(text.begin(), text.end(), '\n'), 2);
    EXPECT_TRUE(log.contains(LOG_ERR, "Log format error line3"));
    EXPECT_EQ(image(file).tail, third);
    // Appends go on from there.
    ASSERT_EQ(append(file, 9), 0);
    const LogImage after = image(file);
    ASSERT_EQ(after.records.size(), 3u);
    EXPECT_EQ(after.records[2].args[0], "9");
}

TEST_F(RingTest, BadMagicOrEndsReinitialiseOnTheNextAppend) {
    const std::string file = log_path();
    ASSERT_EQ(append(file, 1), 0);
    std::string bytes = read_file(file);
    bytes[0] = 'X';
    write_file(file, bytes);
    EXPECT_EQ(render(file), "");
    ASSERT_EQ(append(file, 2), 0);
    LogImage log = image(file);
    ASSERT_EQ(log.records.size(), 1u);
    EXPECT_EQ(log.records[0].args[0], "2");
    // A tail pointing into the header counts as unreadable: both ends go back to 16.
    bytes = read_file(file);
    memset(&bytes[12], 0, 4);
    write_file(file, bytes);
    ASSERT_EQ(append(file, 3), 0);
    log = image(file);
    EXPECT_EQ(log.head, 16u);
    ASSERT_EQ(log.records.size(), 1u);
    EXPECT_EQ(log.records[0].args[0], "3");
}

TEST_F(RingTest, NonWrappingAppendSyncsOnce) {
    const std::string file = log_path();
    ASSERT_EQ(append(file, 1), 0);
    SysFault<&sys::Calls::fsync> count(1 << 30, 0);
    ASSERT_EQ(append(file, 2), 0);
    EXPECT_EQ(count.calls(), 1);
}

// Opens and locks are retried once a second, ten times in all.
TEST_F(RingTest, OpenAndLockAreRetriedTenTimes) {
    const FakeSleep fake;
    int &sleeps = FakeSleep::count;
    LogCapture log;
    const std::string missing_dir = path("/no/such/dir/x.log");
    EXPECT_EQ(append(missing_dir, 1), -1);
    EXPECT_TRUE(raised(ERR_OPEN_FAILED));
    EXPECT_EQ(sleeps, 9);
    EXPECT_TRUE(log.contains(LOG_ERR, "logfile " + missing_dir + " open error while writing!"));

    const std::string file = log_path();
    ASSERT_EQ(append(file, 1), 0);
    const int holder = open(file.c_str(), O_RDONLY);
    ASSERT_EQ(flock(holder, LOCK_EX), 0);
    sleeps = 0;
    EXPECT_EQ(append(file, 2), -1);
    EXPECT_TRUE(raised(ERR_LOCK_FAILED));
    EXPECT_EQ(sleeps, 9);
    const std::string out = path("/tmp/out.txt");
    sleeps = 0;
    EXPECT_EQ(KOVALogGet1a(file.c_str(), out.c_str(), nullptr), -1);
    EXPECT_TRUE(log.contains(LOG_ERR, "log file lock failed"));
    close(holder);
    EXPECT_EQ(append(file, 2), 0);
}

TEST_F(RingTest, ShrinkDropsTheOldestAndKeepsTheDefinedRecordLimits) {
    glogsizeMax = 65536;
    const std::string file = log_path();
    for (int i = 0; i < 20; ++i)
        ASSERT_EQ(append(file, i, i == 12 ? 300 : 40), 0);
    const LogImage before = image(file);
    // Drop at least the first three records' bytes: the copy starts with record 3 and stops
    // at the long record 12 (a ring that has not wrapped).
    const uint32_t excess = before.records[3].offset - 16;
    ASSERT_EQ(KOVALogChangeSize_a(excess, file.c_str()), 0);
    LogImage after = image(file);
    ASSERT_TRUE(after.whole);
    EXPECT_EQ(after.head, 16u);
    ASSERT_EQ(after.records.size(), 9u);
    EXPECT_EQ(after.records.front().args[0], std::string(40, 'x') + "3");
    EXPECT_EQ(after.records.back().args[0], std::string(40, 'x') + "11");
    EXPECT_EQ(read_file(file).size(), after.tail);
    EXPECT_EQ(new_entries("/var/log"), std::vector<std::string>{"test.log"});
    struct stat st {};
    ASSERT_EQ(stat(file.c_str(), &st), 0);
    EXPECT_EQ(st.st_mode & 0777, 0600u);

    // In a wrapped ring long records are left out and the copy goes on.
    glogsizeMax = 2048;
    const std::string wrapped = log_path("/var/log/wrapped.log");
    for (int i = 0; i < 60; ++i)
        ASSERT_EQ(append(wrapped, i, i % 10 == 5 ? 260 : 20), 0);
    const LogImage w = image(wrapped);
    ASSERT_GT(w.head, w.tail);
    ASSERT_EQ(KOVALogChangeSize_a(1, wrapped.c_str()), 0);
    after = image(wrapped);
    ASSERT_TRUE(after.whole);
    size_t expected = 0;
    for (size_t i = 1; i < w.records.size(); ++i)
        expected += w.records[i].length < 256;
    EXPECT_EQ(after.records.size(), expected);
    EXPECT_EQ(after.records.back().args[0], w.records.back().args[0]);
}

// A write that fails leaves the ring as it was: the record is not made live, a shrink keeps the
// old file and leaves no temporary file.
TEST_F(RingTest, FailedWritesLeaveTheRingAsItWas) {
    const std::string file = log_path();
    for (int i = 0; i < 20; ++i)
        ASSERT_EQ(append(file, i, 40), 0);
    const std::string before = read_file(file);
    LogCapture log;
    {
        SysFault<&sys::Calls::pwrite> full(1, ENOSPC);
        EXPECT_EQ(append(file, 99), -1);
    }
    EXPECT_TRUE(raised(ERR_WRITE_FAILED));
    EXPECT_TRUE(log.contains(LOG_ERR, "sdk/kovalog1.c : line 371"));
    EXPECT_TRUE(log.mentions(LOG_ERR, "KOVALogWriteByte(): write() error!, input count is ["));
    EXPECT_EQ(parse_log(read_file(file)).records.size(), 20u);
    EXPECT_EQ(parse_log(read_file(file)).tail, parse_log(before).tail);
    {
        SysFault<&sys::Calls::write> full(1, ENOSPC, true);
        EXPECT_EQ(KOVALogChangeSize_a(500, file.c_str()), -1);
    }
    EXPECT_TRUE(log.contains(LOG_ERR, "sdk/kovalog1.c : line 533"));
    EXPECT_EQ(parse_log(read_file(file)).records.size(), 20u);
    EXPECT_EQ(new_entries("/var/log"), std::vector<std::string>{"test.log"});
}

TEST_F(RingTest, ConfigurationFileIsWrittenWholeInTheDefinedForm) {
    ASSERT_EQ(KOVASetLogConf(), 0);
    std::string expected;
    for (const char *name : {"sys", "man", "conn", "bkp", "copy", "netbkp", "sur"}) {
        static const std::map<std::string, std::string> files = {
            {"sys", "kovasys"},    {"man", "kovaman1"},  {"conn", "kovaconn"},
            {"bkp", "kovabackup"}, {"copy", "kovacopy"}, {"netbkp", "kovanetbkp"},
            {"sur", "kovasur"}};
        expected += std::string(name) + "logfile\t=\t\"/var/log/" + files.at(name) + ".log\"\n" +
                    name + "logfilesize_MAX\t=\t\"65536\"\n";
    }
    EXPECT_EQ(read_file(path("/etc/kovalog.conf")), expected);
}

TEST_F(RingTest, WriterCreatesAMissingConfigurationWithItsBuiltInSize) {
    unlink(path("/etc/kovalog.conf").c_str());
    ASSERT_EQ(KOVALogSet1(KOVA_LOG_CLASS_MAN, 1, kShare, "a", "", "", ""), 0);
    EXPECT_EQ(glogsizeMax, 131072);
    EXPECT_TRUE(file_exists(path("/etc/kovalog.conf")));
    // Class 2 writes into the system log ...
    EXPECT_EQ(image(path("/var/log/kovasys.log")).records.size(), 1u);
    EXPECT_FALSE(file_exists(path("/var/log/kovaman1.log")));
    // ... and the configured size holds from then on; other classes say which file they use.
    LogCapture log;
    ASSERT_EQ(KOVALogSet1(KOVA_LOG_CLASS_CONN, 1, kShare, "a", "", "", ""), 0);
    EXPECT_EQ(glogsizeMax, 65536);
    EXPECT_TRUE(log.contains(LOG_INFO, "KOVA : log file " + path("/etc/kovalog.conf") + " opened"));
    EXPECT_EQ(image(path("/var/log/kovaconn.log")).records.size(), 1u);
    // Reading class 2 reads its own file, which nobody wrote.
    EXPECT_EQ(KOVALogGet1(KOVA_LOG_CLASS_MAN, path("/tmp/o").c_str(), nullptr), -1);
    EXPECT_TRUE(
        log.contains(LOG_ERR, "Kovalith log file " + path("/var/log/kovaman1.log") + " not exist"));
}

TEST_F(RingTest, ClassesWithoutAFileFailAndTouchNothing) {
    unlink(path("/etc/kovalog.conf").c_str());
    LogCapture log;
    EXPECT_EQ(KOVALogSet1(KOVA_LOG_CLASS_NONE, 1, kShare, "", "", "", ""), -1);
    EXPECT_TRUE(log.lines().empty());
    EXPECT_FALSE(file_exists(path("/etc/kovalog.conf")));
    EXPECT_EQ(new_entries("/var/log"), std::vector<std::string>{});
    for (int bad : {0, 9, -1}) {
        EXPECT_EQ(KOVALogSet1(bad, 1, kShare, "", "", "", ""), -1);
        EXPECT_TRUE(raised(ERR_BAD_PARAMETERS));
    }
    EXPECT_TRUE(log.contains(LOG_ERR, "logclass error!"));
    EXPECT_FALSE(file_exists(path("/etc/kovalog.conf")));
}

TEST_F(RingTest, SetSizeTakesFiveClassesStoresTheSizeAndShrinks) {
    for (int refused : {4, 7, 8, 0, 9}) {
        EXPECT_EQ(KOVALogSetSize(4096, refused), -1) << refused;
        EXPECT_TRUE(raised(ERR_BAD_PARAMETERS));
    }
    const std::string sys = path("/var/log/kovasys.log");
    glogsizeMax = 65536;
    for (int i = 0; i < 200; ++i)
        ASSERT_EQ(append(sys, i, 40), 0);
    ASSERT_GT(read_file(sys).size(), 4096u);
    ASSERT_EQ(KOVALogSetSize(4096, KOVA_LOG_CLASS_SYS), 0);
    EXPECT_NE(read_file(path("/etc/kovalog.conf")).find("syslogfilesize_MAX"), std::string::npos);
    char value[16];
    ASSERT_GT(KLIBFileGetKeyValue(path("/etc/kovalog.conf").c_str(), "syslogfilesize_MAX", value,
                                  sizeof value, 0),
              0);
    EXPECT_STREQ(value, "4096");
    const LogImage log = image(sys);
    EXPECT_LE(read_file(sys).size(), 4096u);
    EXPECT_EQ(log.records.back().args[0], std::string(40, 'x') + "199");

    // A missing configuration is created first.
    unlink(path("/etc/kovalog.conf").c_str());
    LogCapture capture;
    ASSERT_EQ(KOVALogSetSize(8192, KOVA_LOG_CLASS_COPY), 0);
    EXPECT_TRUE(capture.contains(LOG_INFO, "logconf file not exist! created one!"));
    ASSERT_GT(KLIBFileGetKeyValue(path("/etc/kovalog.conf").c_str(), "copylogfilesize_MAX", value,
                                  sizeof value, 0),
              0);
    EXPECT_STREQ(value, "8192");
}

}  // namespace
}  // namespace kova::test
