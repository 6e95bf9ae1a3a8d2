// Import: the driver's cases (masks, headers, unknown and cut blocks, a running import, the
// marker, the services around it) and the sections' own checks.
#include <syslog.h>

#include "kovasdk/user.h"
#include "sysbkp/sysbkp_fixture.h"

namespace kova::test {
namespace {

constexpr char kStopped[] =
    "S70download.sh stop\nS60photo.sh stop\nS50ftp.sh stop\nS42nfs.sh stop\nS41afp.sh stop\n"
    "S40smb.sh stop\nS30mysql.sh stop\n";
constexpr char kStarted[] =
    "S30mysql.sh start\nS40smb.sh start\nS41afp.sh start\nS42nfs.sh start\nS50ftp.sh start\n"
    "S60photo.sh start\nS70download.sh start\n";

class SysbkpImportTest : public SysbkpTest {
  protected:
    int import(const std::string &bytes, uint32_t mask = KOVA_SYSBKP_ALL, int option = 1) {
        write_file(backup(), bytes);
        return KOVASysbkpImport(backup().c_str(), mask, option);
    }
    std::vector<std::string> states;
    static void record(void *context, uint32_t, const char *desc, int state, int) {
        static const char *const kNames[] = {"restored", "skipped", "failed"};
        static_cast<SysbkpImportTest *>(context)->states.push_back(std::string(desc) + " " +
                                                                   kNames[state]);
    }
};

TEST_F(SysbkpImportTest, MaskZeroSkipsEveryBlockAroundStoppedServices) {
    ASSERT_EQ(KOVASysbkpExport(backup().c_str(), KOVA_SYSBKP_ALL), 0);
    ASSERT_EQ(KOVASysbkpImportReport(backup().c_str(), 0, 1, record, this), 0);
    EXPECT_EQ(states.size(), 21u);
    for (const std::string &state : states)
        EXPECT_NE(state.find(" skipped"), std::string::npos);
    EXPECT_EQ(services(), std::string(kStopped) + kStarted);  // the web manager keeps running
    EXPECT_TRUE(marker_gone());
}

TEST_F(SysbkpImportTest, MaskOfAllSkipsTheMySQLSwitch) {
    const std::string mysql =
        block(KOVA_SYSBKP_MYSQL, long_item(1) + string_item("runmysql") + string_item("yes"));
    ASSERT_EQ(import(file_header(KOVA_SYSBKP_ALL) + mysql), 0);
    EXPECT_EQ(setting("runmysql"), "no");
    ASSERT_EQ(import(file_header(KOVA_SYSBKP_ALL) + mysql, KOVA_SYSBKP_ALL | KOVA_SYSBKP_MYSQL), 0);
    EXPECT_EQ(setting("runmysql"), "yes");
}

TEST_F(SysbkpImportTest, HeaderAloneSucceedsAndRestoresNothing) {
    const std::string before = read_file(path("/etc/kovainfo.conf"));
    EXPECT_EQ(import(file_header(KOVA_SYSBKP_ALL)), 0);
    EXPECT_EQ(read_file(path("/etc/kovainfo.conf")), before);
    EXPECT_TRUE(marker_gone());
    // Trailing bytes too few for a block header end the file as well.
    EXPECT_EQ(import(file_header(KOVA_SYSBKP_ALL) + "\0\0\0"), 0);
}

TEST_F(SysbkpImportTest, UnknownBlockStopsTheImport) {
    LogCapture log;
    const std::string mtu =
        block(KOVA_SYSBKP_MTU, long_item(1) + string_item("eth0_mtu") + string_item("9000"));
    EXPECT_EQ(import(file_header(0) + mtu + block(4, "") + block(KOVA_SYSBKP_DCACHE, "")), -1);
    EXPECT_TRUE(log.mentions(LOG_ERR, "unknown command [4]"));
    EXPECT_EQ(setting("eth0_mtu"), "9000");  // restored before the unknown block: stays
    EXPECT_EQ(services(), std::string(kStopped) + kStarted);
    EXPECT_TRUE(marker_gone());
}

TEST_F(SysbkpImportTest, BadMagicOrCategoryRefusedWhole) {
    LogCapture log;
    EXPECT_EQ(import("KOVB" + word(1) + word(0)), -1);
    EXPECT_TRUE(log.mentions(LOG_ERR, "wrong magic [KOVB]"));
    EXPECT_EQ(services(), "");  // not stopped for a bad magic
    EXPECT_EQ(import("KO"), -1);
    EXPECT_TRUE(log.mentions(LOG_ERR, "fail to read magic 2"));
    EXPECT_EQ(import("KOVA" + word(2) + word(0)), -1);
    EXPECT_TRUE(log.mentions(LOG_ERR, "wrong category [2]"));
    EXPECT_EQ(services(), std::string(kStopped) + kStarted);
    EXPECT_EQ(KOVASysbkpImport(path("/missing").c_str(), KOVA_SYSBKP_ALL, 1), -1);
    EXPECT_EQ(KOVASysbkpImport(nullptr, KOVA_SYSBKP_ALL, 1), -1);
    EXPECT_TRUE(marker_gone());
}

TEST_F(SysbkpImportTest, TruncatedBodyFailsWithTheReadMessages) {
    LogCapture log;
    const std::string big = block(KOVA_SYSBKP_MTU, std::string(3000, 'x'));
    EXPECT_EQ(import(file_header(0) + big.substr(0, 12 + 1500)), -1);
    EXPECT_TRUE(log.mentions(LOG_ERR, "read fdin failed 1"));
    EXPECT_EQ(import(file_header(0) + big.substr(0, 12 + 2100)), -1);
    EXPECT_TRUE(log.mentions(LOG_ERR, "read fdin failed 2"));
    EXPECT_EQ(import(file_header(0) + big.substr(0, 100), 0), -1);  // skipped, still cut
    EXPECT_TRUE(log.mentions(LOG_ERR, "fail to skip"));
    EXPECT_TRUE(marker_gone());
    EXPECT_EQ(services(),
              std::string(kStopped) + kStarted + kStopped + kStarted + kStopped + kStarted);
}

TEST_F(SysbkpImportTest, RunningImportIsRefusedAndItsMarkerRemoved) {
    LogCapture log;
    write_file(path(KOVA_SYSBKP_IMPORT_MARKER), "");
    EXPECT_EQ(import(file_header(0)), -1);
    EXPECT_TRUE(raised(ERR_FILE_EXISTS));
    EXPECT_TRUE(log.mentions(LOG_ERR, "Another system configuration import task is running."));
    EXPECT_TRUE(marker_gone());
    EXPECT_EQ(services(), "");
}

TEST_F(SysbkpImportTest, FailingSectionClearsItsBitAndTheRestGoesOn) {
    LogCapture log;
    const std::string bad_key =
        block(KOVA_SYSBKP_MTU, long_item(1) + string_item("hostname") + string_item("evil"));
    const std::string quote =
        block(KOVA_SYSBKP_WEB, long_item(1) + string_item("runweb") + string_item("a\"b"));
    const std::string cache =
        block(KOVA_SYSBKP_DCACHE, long_item(1) + string_item("diskcache") + string_item("off"));
    ASSERT_EQ(
        KOVASysbkpImportReport(
            (write_file(backup(), file_header(0) + bad_key + quote + cache), backup().c_str()),
            KOVA_SYSBKP_ALL, 1, record, this),
        -1);
    EXPECT_EQ(states, (std::vector<std::string>{"MTU_desc failed", "runweb_desc failed",
                                                "dcache_desc restored"}));
    EXPECT_TRUE(log.mentions(LOG_ERR, "Failed to restore MTU_desc"));
    EXPECT_EQ(setting("hostname"), "kovastation");
    EXPECT_EQ(setting("runweb"), "yes");
    EXPECT_EQ(setting("diskcache"), "off");
}

TEST_F(SysbkpImportTest, HostnameOnlyWithOptionAndIntoTheApplianceFiles) {
    const std::string file = file_header(2) + block(2, string_item("nas-two"));
    EXPECT_EQ(import(file, KOVA_SYSBKP_ALL, 0), 0);
    EXPECT_EQ(setting("hostname"), "kovastation");
    EXPECT_EQ(import(file, KOVA_SYSBKP_ALL, 1), 0);
    EXPECT_EQ(setting("hostname"), "nas-two");
    EXPECT_EQ(read_file(path("/etc/hostname")), "nas-two\n");
    EXPECT_EQ(import(file_header(2) + block(2, string_item("bad name!"))), -1);
    EXPECT_EQ(setting("hostname"), "nas-two");
    EXPECT_EQ(KOVALnxSetHostname("-edge"), -1);
    EXPECT_TRUE(raised(ERR_INVALID_SERVERNAME));
}

TEST_F(SysbkpImportTest, TimeAndMailGoToTheSettingsOnly) {
    const std::string time =
        block(KOVA_SYSBKP_TIME, string_item("1999/12/31 23:59:59") + long_item(0) +
                                    string_item("weekly") + string_item("ntp.one") +
                                    string_item("ntp.two") + string_item("Tokyo") + long_item(0));
    const std::string mail =
        block(KOVA_SYSBKP_MAIL, string_item("mx.example.net") + string_item("a@example.net") +
                                    string_item("b@example.net") + long_item(1));
    ASSERT_EQ(import(file_header(0x11) + time + mail), 0);
    EXPECT_EQ(setting("ntp_enable"), "no");
    EXPECT_EQ(setting("ntp_period"), "weekly");
    EXPECT_EQ(setting("ntpserver2"), "ntp.two");
    EXPECT_EQ(setting("timezone"), "Tokyo");
    EXPECT_EQ(setting("daylight"), "no");
    PKOVAMAIL got = nullptr;
    ASSERT_EQ(KOVAMailGet(&got), 0);
    EXPECT_STREQ(got->szSmtp, "mx.example.net");
    EXPECT_STREQ(got->szMail2, "b@example.net");
    EXPECT_EQ(got->blTest, 1);
    KOVAMailFree(got);
    // An item of the wrong kind, or one too many, is a damaged body.
    EXPECT_EQ(import(file_header(0x10) + block(KOVA_SYSBKP_MAIL, long_item(1))), -1);
    EXPECT_EQ(import(file_header(0x10) +
                     block(KOVA_SYSBKP_MAIL, string_item("s") + string_item("x") +
                                                 string_item("y") + long_item(0) + long_item(0))),
              -1);
    EXPECT_EQ(setting("mail_smtp"), "mx.example.net");
}

TEST_F(SysbkpImportTest, DamagedAccountSectionsRestoreNothing) {
    PKOVAUSER user = nullptr;
    ASSERT_EQ(
        KOVAUserAlloc(&user, "carol", "secret", 0, 100, "Carol", nullptr, nullptr, 0, nullptr, 0),
        0);
    ASSERT_EQ(KOVAUserSetOne(nullptr, user), 0);
    KOVAUserFree(user);
    user = nullptr;
    ASSERT_EQ(KOVASysbkpExport(backup().c_str(), KOVA_SYSBKP_USER | KOVA_SYSBKP_SHARE), 0);
    const std::string good = read_file(backup());
    ASSERT_EQ(KOVAUserGet("carol", &user), 0);
    const std::string hash = user->szPassword;
    ASSERT_EQ(KOVAUserDelete("carol"), 0);
    const std::string passwd = read_file(path("/etc/passwd"));
    const std::string smb = read_file(path("/usr/kova/etc/smb.conf"));
    const std::vector<Block> blocks = blocks_of(good);
    ASSERT_EQ(blocks.size(), 2u);
    // Users: the last user's NT hash cut off, the count kept: nothing restored.
    std::string users = blocks[0].body.substr(0, blocks[0].body.size() - 20);
    EXPECT_EQ(import(file_header(0) + block(KOVA_SYSBKP_USER, users)), -1);
    // A name the family refuses, in the middle of the body.
    std::string renamed = blocks[0].body;
    const size_t at = renamed.find(std::string("carol") + '\0');
    ASSERT_NE(at, std::string::npos);
    renamed.replace(at, 5, "-arol");
    EXPECT_EQ(import(file_header(0) + block(KOVA_SYSBKP_USER, renamed)), -1);
    // Shares: one path that climbs out of its volume.
    std::string shares = blocks[1].body;
    const size_t path_at = shares.find("/volume1/sales");
    ASSERT_NE(path_at, std::string::npos);
    shares.replace(path_at, 14, "/volume1/../..");
    EXPECT_EQ(import(file_header(0) + block(KOVA_SYSBKP_SHARE, shares)), -1);
    EXPECT_EQ(read_file(path("/etc/passwd")), passwd);
    EXPECT_EQ(read_file(path("/usr/kova/etc/smb.conf")), smb);
    // The intact file brings carol back with her password hash.
    EXPECT_EQ(import(good), 0);
    ASSERT_EQ(KOVAUserGet("carol", &user), 0);
    EXPECT_EQ(user->szPassword, hash);
    KOVAUserFree(user);
}

TEST_F(SysbkpImportTest, EventsOfSuccessAndOfFailingSections) {
    using Events = std::vector<std::pair<int, uint32_t>>;
    ASSERT_EQ(import(file_header(0)), 0);
    ASSERT_EQ(import(file_header(0), KOVA_SYSBKP_ALL, 0), 0);
    EXPECT_EQ(events(), (Events{{1, 0x12100043}, {1, 0x12100042}}));
    const std::string damaged = block(KOVA_SYSBKP_MTU, long_item(7));
    EXPECT_EQ(import(file_header(0) + damaged + block(KOVA_SYSBKP_USER, long_item(2))), -1);
    EXPECT_EQ(events(), (Events{{1, 0x12100043},
                                {1, 0x12100042},
                                {3, 0x12100104},
                                {3, 0x12100012}}));  // no success event
    write_file(path("/etc/kovainfo.conf"), "language=\"enu\"\n");
    EXPECT_EQ(KOVASysbkpExport(backup().c_str(), KOVA_SYSBKP_HOSTNAME), -1);
    EXPECT_EQ(events().back(), (std::pair<int, uint32_t>{3, 0x12100003}));
}

TEST_F(SysbkpImportTest, ServiceControl) {
    EXPECT_EQ(KOVANetService(KOVA_SERVICE_SMB | KOVA_SERVICE_WEB, KOVA_SERVICE_START), 0);
    EXPECT_EQ(services(), "S20web.sh start\nS40smb.sh start\n");
    EXPECT_EQ(KOVANetService(KOVA_SERVICE_SMB, 7), -1);
    EXPECT_TRUE(raised(ERR_BAD_PARAMETERS));
    write_file(path("/usr/kova/etc/rc.d/S40smb.sh"), "#!/bin/sh\nexit 3\n");
    EXPECT_EQ(KOVANetService(KOVA_SERVICE_SMB | KOVA_SERVICE_NFS, KOVA_SERVICE_STOP), -1);
    EXPECT_NE(services().find("S42nfs.sh stop"), std::string::npos);  // the others still run
}

}  // namespace
}  // namespace kova::test
