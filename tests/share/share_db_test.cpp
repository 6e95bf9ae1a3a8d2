// The share cache over the skeleton's smb.conf: the file written back, changes, the default
// access read from the file, reads, refusals, hand edits and a writer killed at its rename.
#include <signal.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <syslog.h>
#include <unistd.h>

#include <string>

#include "core/sys.h"
#include "kovasdk/error.h"
#include "kovasdk/file.h"
#include "kovasdk/hash.h"
#include "kovasdk/share.h"
#include "support/name_list.h"
#include "support/sandbox.h"

namespace kova::test {
namespace {

struct Share {
    PKOVASHARE p = nullptr;
    ~Share() { KOVAShareFree(p); }
    PKOVASHARE operator->() const { return p; }
};

KOVASHARE make(const char *name, const char *path, const char *deny, const char *rw, const char *ro,
               int32_t type) {
    KOVASHARE share{};
    share.szName = const_cast<char *>(name);
    share.szComment = const_cast<char *>("");
    share.szPath = const_cast<char *>(path);
    share.szDenyList = const_cast<char *>(deny);
    share.szRWList = const_cast<char *>(rw);
    share.szROList = const_cast<char *>(ro);
    share.fType = type;
    share.browseable = 1;
    return share;
}

class ShareDb : public SandboxTest {
  protected:
    void TearDown() override { ErrKLIBFileCloseLock(); }
    std::string conf() const { return read_file(path("/usr/kova/etc/smb.conf")); }
    // The section of the file that starts with header, up to the next section.
    std::string section(const std::string &header) const {
        const std::string text = conf();
        const size_t at = text.find(header + "\n");
        if (at == std::string::npos) return "";
        const size_t end = text.find("\n[", at);
        return text.substr(at, end == std::string::npos ? std::string::npos : end + 1 - at);
    }
    const std::string skeleton_ = read_file(KOVA_SKELETON_DIR "/usr/kova/etc/smb.conf");
};

TEST_F(ShareDb, TheFileComesBackAsItWasWritten) {
    PKOVASHAREDB db = KOVAShareDBOpen();
    ASSERT_NE(db, nullptr);
    ASSERT_EQ(KOVAShareDBDump(db), 0);
    KOVAShareDBClose(db);
    EXPECT_EQ(conf(), skeleton_);
    EXPECT_FALSE(file_exists(path("/usr/kova/etc/smb.conf.tmp")));
}

TEST_F(ShareDb, ChangesAreWrittenInTheDefinedForm) {
    KOVASHARE media =
        make("media", "/volume1/media", "", "alice,zed,@sales", "bob,ALICE", KOVA_SHARE_READ_ONLY);
    media.szComment = const_cast<char *>("Films and music");
    media.ftpWriteOnly = 1;
    ASSERT_EQ(KOVAShareSet(nullptr, &media), 0);
    EXPECT_EQ(section("[media]"),
              "[media]\n"
              "\tinvalid users=nobody,nobody\n"
              "\tvalid users=nobody,bob,ALICE,zed,@sales,nobody\n"
              "\tcomment=\"Films and music\"\n"
              "\tpath=/volume1/media\n"
              "\tguest ok=yes\n"
              "\tbrowseable=yes\n"
              "\tftp write only=yes\n"
              "\tread list=nobody,bob,ALICE,nobody\n"
              "\twrite list=nobody,alice,zed,@sales,nobody\n"
              "\twriteable=no\n");
    // The record stands as it was given; read back from the file (the cache rebuilt after an
    // edit), the lists hold only what exists, as it is named.
    Share read;
    ASSERT_EQ(KOVAShareGet("MEDIA", &read.p), 0);
    EXPECT_STREQ(read->szRWList, "alice,zed,@sales");
    write_file(path("/usr/kova/etc/smb.conf"), conf());
    ASSERT_EQ(KOVAShareGet("MEDIA", &read.p), 0);
    EXPECT_STREQ(read->szRWList, "alice,@sales");
    EXPECT_STREQ(read->szROList, "bob,alice");
    EXPECT_EQ(read->ftpWriteOnly, 1);

    KOVASHARE renamed = make("Public Files", "/volume1/public", "", "", "", KOVA_SHARE_NO_ACCESS);
    ASSERT_EQ(KOVAShareSet("public", &renamed), 0);
    ASSERT_EQ(KOVAShareDelete("SALES"), 0);
    NameList names;
    EXPECT_EQ(KOVAShareEnum(&names.p), 3);
    EXPECT_EQ(names.joined(), "homes,media,Public Files");
    EXPECT_EQ(section("[Public Files]"),
              "[Public Files]\n"
              "\tinvalid users=nobody,nobody\n"
              "\tvalid users=nobody,nobody\n"
              "\tcomment=\"\"\n"
              "\tpath=/volume1/public\n"
              "\tguest ok=no\n"
              "\tbrowseable=yes\n"
              "\tftp write only=no\n"
              "\tread list=nobody,nobody\n"
              "\twrite list=nobody,nobody\n"
              "\twriteable=no\n");
    EXPECT_EQ(conf().substr(0, 100), skeleton_.substr(0, 100));  // the reserved sections stay
    EXPECT_FALSE(file_exists(path("/usr/kova/etc/smb.conf.tmp")));
}

// The default access from the lists' "@users" (deny, then read-write, then read-only) or from
// the two keys; an undefined pair is logged and read as read-only. Reserved sections in any
// case stay sections.
TEST_F(ShareDb, DefaultAccessAndReservedSectionsFromTheFile) {
    write_file(path("/usr/kova/etc/smb.conf"),
               "[GLOBAL]\n workgroup = OFFICE\n"
               "[both]\n path=/v/both\n read list=@users\n write list=@users\n"
               "[denied]\n path=/v/denied\n invalid users=@users\n write list=@users\n"
               "[odd]\n path=/v/odd\n guest ok=no\n writeable=yes\n"
               "[Printers]\n printable = yes\n"
               "[empty]\n");
    LogCapture log;
    Share share;
    ASSERT_EQ(KOVAShareGet("both", &share.p), 0);
    EXPECT_EQ(share->fType, KOVA_SHARE_READ_WRITE);
    ASSERT_EQ(KOVAShareGet("denied", &share.p), 0);
    EXPECT_EQ(share->fType, KOVA_SHARE_NO_ACCESS);
    ASSERT_EQ(KOVAShareGet("odd", &share.p), 0);
    EXPECT_EQ(share->fType, KOVA_SHARE_READ_ONLY);
    bool logged = false;
    for (const LogLine &line : log.lines())
        logged |=
            line.text.find("unknown error!! guest ok = no, writeable = yes") != std::string::npos;
    EXPECT_TRUE(logged);
    EXPECT_EQ(KOVAShareGet("empty", &share.p), -1);
    EXPECT_EQ(KOVAShareGet("global", &share.p), -1);
    EXPECT_EQ(KLIBErrGet(), ERR_NO_SUCH_SHARE);

    KOVASHARE extra = make("extra", "/v/extra", "", "", "", KOVA_SHARE_READ_WRITE);
    ASSERT_EQ(KOVAShareSet(nullptr, &extra), 0);
    EXPECT_EQ(conf().substr(0, 44), "[global]\n\tworkgroup=OFFICE\n[printers]\n\tprint");
}

TEST_F(ShareDb, RefusalsChangeNothing) {
    KOVASHARE share = make("Sales", "/volume1/other", "", "", "", KOVA_SHARE_READ_ONLY);
    EXPECT_EQ(KOVAShareSet(nullptr, &share), -1);
    EXPECT_EQ(KLIBErrGet(), ERR_SHARE_EXISTS);
    share = make("-bad", "/volume1/x", "", "", "", 1);
    EXPECT_EQ(KOVAShareSet(nullptr, &share), -1);
    EXPECT_EQ(KLIBErrGet(), ERR_INVALID_SHARENAME);
    share = make("relative", "volume1/x", "", "", "", 1);
    EXPECT_EQ(KOVAShareSet(nullptr, &share), -1);
    EXPECT_EQ(KLIBErrGet(), ERR_SHARE_PATH_NOT_ABSOLUTE);
    share = make("ghost", "/volume1/x", "", "", "", 1);
    EXPECT_EQ(KOVAShareSet("nothere", &share), -1);
    EXPECT_EQ(KLIBErrGet(), ERR_NO_SUCH_SHARE);
    EXPECT_EQ(KOVAShareDelete("nothere"), -1);
    EXPECT_EQ(KLIBErrGet(), ERR_NO_SUCH_SHARE);
    EXPECT_EQ(conf(), skeleton_);
}

TEST_F(ShareDb, HandEditsAreSeen) {
    NameList before;
    EXPECT_EQ(KOVAShareEnumByPrefix(&before.p, "S"), 1);
    write_file(path("/usr/kova/etc/smb.conf"),
               conf() + "[scans]\n\tpath=/volume1/scans\n\tguest ok=yes\n\twriteable=no\n");
    NameList after;
    EXPECT_EQ(KOVAShareEnumByPrefix(&after.p, "s"), 2);
    EXPECT_EQ(after.joined(), "sales,scans");
}

// Users and groups renamed or removed through their own operations reach every share list.
// (The share cache exists, as on a running appliance: a cache first built after the user was
// renamed would already have left the old name out of the lists.)
TEST_F(ShareDb, ListsFollowUsersAndGroups) {
    Share warm;
    ASSERT_EQ(KOVAShareGet("sales", &warm.p), 0);
    PKOVAUSER alice = nullptr, alicia = nullptr;
    ASSERT_EQ(KOVAUserGet("alice", &alice), 0);
    ASSERT_EQ(KOVAUserAlloc(&alicia, "alicia", alice->szPassword, alice->uid, alice->gid,
                            alice->szDescription, "/var/services/homes/alicia", alice->szShell, 0,
                            alice->szMail, alice->privilege),
              0);
    ASSERT_EQ(KOVAUserSetOne("alice", alicia), 0);
    KOVAUserFree(alice);
    KOVAUserFree(alicia);
    Share share;
    ASSERT_EQ(KOVAShareGet("sales", &share.p), 0);
    EXPECT_STREQ(share->szRWList, "@sales,alicia");
    ASSERT_EQ(KOVAShareGet("homes", &share.p), 0);
    EXPECT_STREQ(share->szRWList, "alicia,bob");

    ASSERT_EQ(KOVAUserDelete("bob"), 0);
    ASSERT_EQ(KOVAShareGet("sales", &share.p), 0);
    EXPECT_STREQ(share->szROList, "");

    PKOVAGROUP group = nullptr;
    ASSERT_EQ(KOVAGroupAlloc(&group, "vertrieb", 0, "alicia"), 0);
    ASSERT_EQ(KOVAGroupSet("sales", group), 0);
    KOVAGroupFree(group);
    ASSERT_EQ(KOVAShareGet("sales", &share.p), 0);
    EXPECT_STREQ(share->szRWList, "@vertrieb,alicia");
    ASSERT_EQ(KOVAGroupDelete("vertrieb"), 0);
    ASSERT_EQ(KOVAShareGet("sales", &share.p), 0);
    EXPECT_STREQ(share->szRWList, "alicia");
    EXPECT_EQ(section("[sales]"),
              "[sales]\n"
              "\tinvalid users=nobody,guest,nobody\n"
              "\tvalid users=nobody,alicia,nobody\n"
              "\tcomment=\"Sales: offers and contracts\"\n"
              "\tpath=/volume1/sales\n"
              "\tguest ok=no\n"
              "\tbrowseable=yes\n"
              "\tftp write only=no\n"
              "\tread list=nobody,nobody\n"
              "\twrite list=nobody,alicia,nobody\n"
              "\twriteable=no\n");
}

TEST_F(ShareDb, ReservedSectionsAndWalks) {
    PKLIBSZHASH global = PshKLIBSzHashAlloc(0);
    ASSERT_EQ(KOVAShareRSectionGet("Global", &global), 0);
    EXPECT_STREQ(SzKLIBSzHashGetValue(global, "workgroup"), "WORKGROUP");
    EXPECT_STREQ(SzKLIBSzHashGetValue(global, "map to guest"), "Bad User");
    ASSERT_GE(KLIBSzHashSetValue(&global, "workgroup", "OFFICE"), 0);
    ASSERT_EQ(KOVAShareRSectionSet("global", global), 0);
    KLIBSzHashFree(global);
    EXPECT_NE(section("[global]").find("\tworkgroup=OFFICE\n"), std::string::npos);
    PKLIBSZHASH sales = PshKLIBSzHashAlloc(0);
    EXPECT_EQ(KOVAShareRSectionGet("sales", &sales), -1);  // a share, not a reserved section
    EXPECT_EQ(KLIBErrGet(), ERR_BAD_PARAMETERS);
    EXPECT_EQ(KOVAShareRSectionSet("sales", sales), -1);
    KLIBSzHashFree(sales);
    ASSERT_EQ(KOVAShareRSectionRemove("PRINTERS"), 0);
    EXPECT_EQ(section("[printers]"), "");
    EXPECT_EQ(KOVAShareRSectionRemove("printers"), -1);
    EXPECT_EQ(KLIBErrGet(), ERR_SECTION_NOT_FOUND);

    NameList matched, under, denied;
    EXPECT_EQ(KOVAShareEnumByRegex(&matched.p, "^(homes|sal)"), 2);
    EXPECT_EQ(matched.joined(), "homes,sales");
    EXPECT_EQ(KOVAShareEnumByRegex(&matched.p, "(unclosed"), -1);
    KOVASHARE deep = make("deep", "/volume10/x", "", "", "", 1);
    ASSERT_EQ(KOVAShareSet(nullptr, &deep), 0);
    EXPECT_EQ(KOVAShareEnumByMntPath(&under.p, "/volume1/"), 3);  // not /volume10
    EXPECT_EQ(under.joined(), "homes,public,sales");
    PKOVASHAREDB db = KOVAShareDBOpen();
    ASSERT_NE(db, nullptr);
    EXPECT_EQ(KOVAShareDBEnumTypeMatched(db, KOVA_SHARE_NO_ACCESS, &denied.p), 2);
    EXPECT_EQ(denied.joined(), "homes,sales");
    KOVAShareDBClose(db);
}

// A reader enumerating shares while another process adds and renames 100 shares never fails
// and never misses a share that stays.
TEST_F(ShareDb, ReadersSeeEveryShareWhileAWriterWorks) {
    const std::string done = path("/tmp/writer-done");
    const pid_t reader = fork();
    if (reader == 0) {
        alarm(120);
        int reads = 0;
        while (!file_exists(done) || reads == 0) {
            NameList names;
            if (KOVAShareEnum(&names.p) < 3) _exit(1);
            const std::string all = "," + names.joined() + ",";
            for (const char *share : {",homes,", ",public,", ",sales,"})
                if (all.find(share) == std::string::npos) _exit(2);
            ++reads;
        }
        _exit(0);
    }
    const pid_t writer = fork();
    if (writer == 0) {
        alarm(120);
        for (int i = 0; i < 100; ++i) {
            const std::string name = "s" + std::to_string(i);
            KOVASHARE share = make(name.c_str(), "/volume1/s", "", "", "", 1);
            if (KOVAShareSet(nullptr, &share) != 0) _exit(1);
            if (i % 2 == 0) {
                const std::string renamed = "r" + std::to_string(i);
                share.szName = const_cast<char *>(renamed.c_str());
                if (KOVAShareSet(name.c_str(), &share) != 0) _exit(2);
            }
        }
        _exit(0);
    }
    int status = 0;
    ASSERT_EQ(waitpid(writer, &status, 0), writer);
    EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0);
    write_file(done, "");
    ASSERT_EQ(waitpid(reader, &status, 0), reader);
    EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0) << "reader status " << status;
    NameList names;
    EXPECT_EQ(KOVAShareEnum(&names.p), 103);
}

// A share's folder and the settings that name it follow the share.
TEST_F(ShareDb, FoldersAndSettingsFollowTheShare) {
    const std::string info = path("/etc/kovainfo.conf");
    write_file(info, read_file(info) + "usbcopyfolder=\"sales\"\nftpanonymousroot=\"public\"\n");
    write_file(path("/etc/kovalocalbkp.conf"), "dest_share=\"sales\"\n");
    write_file(path("/etc/exports"),
               "/volume1/sales\t*(rw,sync)\n/volume1/salesarchive *(ro)\n/volume1/public *(ro)\n");
    write_file(path("/volume1/sales/offer.txt"), "10% off\n");

    KOVASHARE media = make("media", "/volume1/media", "", "", "", 1);
    ASSERT_EQ(KOVAShareSet(nullptr, &media), 0);
    struct stat st {};
    ASSERT_EQ(stat(path("/volume1/media").c_str(), &st), 0);
    EXPECT_EQ(st.st_mode & 07777, 0777u);

    Share sales;
    ASSERT_EQ(KOVAShareGet("sales", &sales.p), 0);
    KOVASHARE moved = *sales.p;
    moved.szName = const_cast<char *>("vertrieb");
    moved.szPath = const_cast<char *>("/volume2/vertrieb");
    ASSERT_EQ(KOVAShareSet("sales", &moved), 0);
    EXPECT_EQ(read_file(path("/volume2/vertrieb/offer.txt")), "10% off\n");
    EXPECT_FALSE(file_exists(path("/volume1/sales")));
    char value[32];
    ASSERT_GT(KLIBFileGetKeyValue(info.c_str(), "usbcopyfolder", value, sizeof value, 0), 0);
    EXPECT_STREQ(value, "vertrieb");
    EXPECT_EQ(read_file(path("/etc/kovalocalbkp.conf")), "dest_share=\"vertrieb\"\n");
    EXPECT_EQ(
        read_file(path("/etc/exports")),
        "/volume2/vertrieb\t*(rw,sync)\n/volume1/salesarchive *(ro)\n/volume1/public *(ro)\n");

    write_file(path("/volume1/public/readme"), "hello\n");
    ASSERT_EQ(KOVAShareDelete("public"), 0);
    EXPECT_FALSE(file_exists(path("/volume1/public")));
    EXPECT_TRUE(file_exists(path("/volume1/@tmp")));  // where it went, to be removed
    EXPECT_NE(read_file(info).find("\nftpanonymousroot=\"\"\n"), std::string::npos);
    EXPECT_EQ(read_file(path("/etc/exports")),
              "/volume2/vertrieb\t*(rw,sync)\n/volume1/salesarchive *(ro)\n");
}

TEST_F(ShareDb, RecycleFoldersAreEmptied) {
    write_file(path("/volume1/public/#recycle/old/report.txt"), "x\n");
    write_file(path("/volume1/sales/#recycle/offer.txt"), "y\n");
    write_file(path("/volume1/sales/kept.txt"), "z\n");
    ASSERT_EQ(KOVAShareRecycleClean(), 0);
    for (int i = 0; i < 200 && file_exists(path("/volume1/sales/#recycle/offer.txt")); ++i)
        usleep(10000);
    for (int i = 0; i < 200 && file_exists(path("/tmp/cleanrecycle.pid")); ++i)
        usleep(10000);
    EXPECT_TRUE(new_entries("/volume1/public/#recycle").empty());
    EXPECT_TRUE(new_entries("/volume1/sales/#recycle").empty());
    EXPECT_TRUE(file_exists(path("/volume1/sales/kept.txt")));
    EXPECT_FALSE(file_exists(path("/tmp/cleanrecycle.pid")));
}

// Every allocation of a share change failing in turn: a clean -1 with smb.conf as it was, or
// the change done whole.
TEST_F(ShareDb, AllocationFailuresChangeNothing) {
    Share warm;
    ASSERT_EQ(KOVAShareGet("sales", &warm.p), 0);
    int failed = 0;
    for (long nth = 1;; ++nth) {
        const std::string before = conf();
        const long start = allocation_count();
        KOVASHARE media = make("media", "/volume1/media", "guest", "alice,@sales", "bob", 2);
        int rc = 0;
        {
            const AllocationFailure failure(nth);
            rc = KOVAShareSet(nullptr, &media);
        }
        const bool reached = allocation_count() - start >= nth;
        ASSERT_FALSE(file_exists(path("/usr/kova/etc/smb.conf.tmp"))) << "allocation " << nth;
        if (rc != 0) {
            ++failed;
            ASSERT_EQ(conf(), before) << "allocation " << nth;
            continue;
        }
        ASSERT_NE(section("[media]"), "");
        ASSERT_EQ(KOVAShareDelete("media"), 0);
        if (!reached) break;  // no allocation failed: every one has been tried
    }
    EXPECT_GT(failed, 10);
}

int g_renames_left = 0;
int rename_or_die(const char *from, const char *to) {
    if (--g_renames_left == 0) raise(SIGKILL);
    return sys::real_calls().rename(from, to);
}

// A writer killed at each rename of a change in turn: smb.conf is the old file or the new one,
// whole, and the next program reads the share or not accordingly.
TEST_F(ShareDb, AWriterKilledAtARenameLeavesTheOldOrTheNewFile) {
    const std::string old_conf = conf();
    int killed = 0;
    for (int nth = 1; nth < 10; ++nth) {
        const std::string name = "k" + std::to_string(nth);
        const pid_t writer = fork();
        if (writer == 0) {
            alarm(60);
            Share warm;
            if (KOVAShareGet("public", &warm.p) != 0) _exit(2);
            g_renames_left = nth;
            sys::calls().rename = rename_or_die;
            KOVASHARE share = make(name.c_str(), "/volume1/k", "", "", "", 1);
            _exit(KOVAShareSet(nullptr, &share) == 0 ? 0 : 1);
        }
        int status = 0;
        ASSERT_EQ(waitpid(writer, &status, 0), writer);
        const bool done = WIFEXITED(status) && WEXITSTATUS(status) == 0;
        ASSERT_TRUE(done || WIFSIGNALED(status)) << "at rename " << nth;
        const std::string now = conf();
        const bool added = now.find("[" + name + "]\n") != std::string::npos;
        EXPECT_TRUE(now == old_conf || (added && now.size() > old_conf.size())) << nth;
        const pid_t next = fork();
        if (next == 0) {
            Share share;
            const int found = KOVAShareGet(name.c_str(), &share.p) == 0;
            _exit(found == added && !file_exists(path("/usr/kova/etc/smb.conf.tmp")) ? 0 : 1);
        }
        ASSERT_EQ(waitpid(next, &status, 0), next);
        EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0) << "at rename " << nth;
        if (done) break;
        ++killed;
    }
    EXPECT_GE(killed, 2);  // the file and the store
}

}  // namespace
}  // namespace kova::test
