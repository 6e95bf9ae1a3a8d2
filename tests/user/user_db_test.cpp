// The database over the skeleton's accounts: the files written, the id search, the build's
// checks, the cache following the files, failures that change nothing.
#include <crypt.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <syslog.h>
#include <unistd.h>

#include <algorithm>
#include <ctime>
#include <regex>

#include "kovasdk/bdb.h"
#include "user_test.h"

namespace kova::test {

std::string UserTest::names_in(const char *file) const {
    std::string names;
    const std::string content = text(file);
    size_t at = 0;
    while (at < content.size()) {
        const size_t end = content.find('\n', at);
        const std::string line = content.substr(at, end - at);
        at = end == std::string::npos ? content.size() : end + 1;
        if (line.empty() || line[0] == '#') continue;
        const std::string name = line.substr(0, line.find(':'));
        // The system accounts have no file-sharing or misc lines.
        if (name == "root" || name == "daemon" || name == "bin" || name == "ftp" ||
            name == "nobody") {
            continue;
        }
        names += name + ",";
    }
    return names;
}

bool UserTest::files_agree() const {
    const std::string users = names_in("/etc/passwd");
    return names_in("/etc/shadow") == users && names_in("/etc/kovauser.conf") == users &&
           names_in("/usr/kova/etc/private/smbpasswd") == users;
}

bool UserTest::no_tmp_files() const {
    for (const char *tmp : {"/etc/passwd.tmp", "/etc/shadow.tmp", "/etc/kovauser.conf.tmp",
                            "/usr/kova/etc/private/smbpasswd.tmp"}) {
        if (file_exists(path(tmp))) return false;
    }
    return true;
}

namespace {

constexpr char kPasswordLm[] = "E52CAC67419A9A224A3B108F3FA6CB6D";  // "password"
constexpr char kPasswordNt[] = "8846F7EAEE8FB117AD06BDD830B7586C";

// Replaces the parts that depend on the clock: the hash of each shadow line (checked against
// its password first), the day of the last change, the smbpasswd time.
std::string timeless(std::string text) {
    text = std::regex_replace(text, std::regex("LCT-[0-9A-F]{8}"), "LCT-*");
    const std::string today = ":" + std::to_string(time(nullptr) / 86400) + ":0:99999:";
    return std::regex_replace(text, std::regex(today), ":DAY:0:99999:");
}

bool hash_matches(const std::string &shadow, const std::string &name, const char *password) {
    const size_t at = shadow.find("\n" + name + ":");
    if (at == std::string::npos) return false;
    const size_t start = at + name.size() + 2;
    const std::string hash = shadow.substr(start, shadow.find(':', start) - start);
    crypt_data data{};
    const char *again = crypt_r(password, hash.c_str(), &data);
    return hash.rfind("$1$", 0) == 0 && again != nullptr && hash == again;
}

TEST_F(UserTest, FilesAfterCreatesRenamesPasswordsAndDeletes) {
    User carol("carol", "password", "Sales: EMEA", 0, "carol@example.com", 7);
    ASSERT_EQ(KOVAUserSetOne(nullptr, carol.p), 0);
    EXPECT_EQ(carol->uid, 1028u);  // written back
    User dave("dave", "", "", 21915);
    ASSERT_EQ(KOVAUserSetOne(nullptr, dave.p), 0);
    User carole;
    ASSERT_EQ(KOVAUserGet("CAROL", &carole.p), 0);
    User renamed;
    ASSERT_EQ(KOVAUserAlloc(&renamed.p, "Carole", carole->szPassword, carole->uid, carole->gid,
                            carole->szDescription, carole->szHomeDir, carole->szShell,
                            carole->expireDay, carole->szMail, carole->privilege),
              0);
    ASSERT_EQ(KOVAUserSetOne("carol", renamed.p), 0);
    ASSERT_EQ(KOVAUserSetPasswd("Dave", "password"), 0);
    ASSERT_EQ(KOVAUserDelete("BOB"), 0);

    EXPECT_EQ(text("/etc/passwd"),
              "root:x:0:0:root:/root:/bin/sh\n"
              "daemon:x:1:1:daemon:/usr/sbin:/bin/false\n"
              "bin:x:2:2:bin:/bin:/bin/false\n"
              "ftp:x:21:21:FTP service:/var/services/ftp:/bin/false\n"
              "admin:x:1024:100:System default administrator:/var/services/homes/admin:/bin/sh\n"
              "guest:x:1025:100:Guest account:/var/services/homes/guest:/bin/csh\n"
              "alice:x:1026:100:Alice Martin;, accounts:/var/services/homes/alice:/bin/csh\n"
              "Carole:x:1028:100:Sales;, EMEA:/var/services/homes/carol:/bin/csh\n"
              "dave:x:1029:100::/var/services/homes/dave:/bin/csh\n"
              "nobody:x:65534:65534:nobody:/nonexistent:/bin/false\n");
    const std::string shadow = text("/etc/shadow");
    EXPECT_TRUE(hash_matches(shadow, "Carole", "password"));
    EXPECT_TRUE(hash_matches(shadow, "dave", "password"));
    EXPECT_TRUE(hash_matches(shadow, "alice", "alice123"));
    const std::string day = std::to_string(time(nullptr) / 86400);
    EXPECT_NE(shadow.find("\ndave:$1$"), std::string::npos);
    EXPECT_NE(shadow.find(":" + day + ":0:99999:7::21915:\n"), std::string::npos);  // dave
    EXPECT_EQ(std::regex_replace(timeless(shadow), std::regex("\\$1\\$[^:]*"), "HASH"),
              "root:*:20400:0:99999:7:::\n"
              "daemon:*:20400:0:99999:7:::\n"
              "bin:*:20400:0:99999:7:::\n"
              "ftp:*:20400:0:99999:7:::\n"
              "admin:HASH:20400:0:99999:7:::\n"
              "guest:HASH:20400:0:99999:7:::\n"
              "alice:HASH:20400:0:99999:7:::\n"
              "Carole:HASH:DAY:0:99999:7:::\n"
              "dave:HASH:DAY:0:99999:7::21915:\n"
              "nobody:*:20400:0:99999:7:::\n");
    EXPECT_EQ(timeless(text("/usr/kova/etc/private/smbpasswd")),
              "admin:1024:F0D412BD764FFE81AAD3B435B51404EE:209C6174DA490CAEB422F3FA5A7AE634:"
              "[U          ]:LCT-*:\n"
              "guest:1025:AAD3B435B51404EEAAD3B435B51404EE:31D6CFE0D16AE931B73C59D7E0C089C0:"
              "[U          ]:LCT-*:\n"
              "alice:1026:F40A37B0B93F06361AA818381E4E281B:BBB5BD3497351B117E75A848D2B00109:"
              "[U          ]:LCT-*:\n"
              "Carole:1028:" +
                  std::string(kPasswordLm) + ":" + kPasswordNt +
                  ":[U          ]:LCT-*:\n"
                  "dave:1029:" +
                  std::string(kPasswordLm) + ":" + kPasswordNt + ":[U          ]:LCT-*:\n");
    EXPECT_EQ(text("/etc/kovauser.conf"),
              "# record user misc, format \"user_name:user_privilege:user_mail\"\n"
              "#$_@UID__INDEX@_$1029$\n"
              "admin:31:admin@kovastation.local\n"
              "guest:0:\n"
              "alice:7:alice@example.com\n"
              "Carole:7:carol@example.com\n"
              "dave:0:\n");
    EXPECT_EQ(text("/usr/kova/etc/ftpchroot"), "guest\nalice\ndave\nCarole\n");
    EXPECT_EQ(text("/usr/kova/etc/mailgroup"),
              "alice:alice@example.com\nCarole:carol@example.com\n");
    EXPECT_TRUE(file_exists(path("/var/services/homes/dave")));
    EXPECT_FALSE(file_exists(path("/var/services/homes/bob")));
    struct stat st {};
    ASSERT_EQ(stat(path("/usr/kova/etc/private/smbpasswd").c_str(), &st), 0);
    EXPECT_EQ(st.st_mode & 0777, 0600u);
    EXPECT_TRUE(no_tmp_files());
}

// The open database, closed at the end of the scope.
struct Db {
    PKOVAUSERDB db = KOVAUserDBOpen();
    Db() = default;
    ~Db() {
        if (db != nullptr) KOVAUserDBClose(db);
    }
    Db(const Db &) = delete;
    Db &operator=(const Db &) = delete;
    int set_current(int32_t uid) const {
        return KOVABDbSet(db->pPWDUid, KOVA_USER_KEY_CURRENT_UID, KOVA_USER_KEY_CURRENT_UID_LEN,
                          &uid, sizeof uid);
    }
    int take(int uid) const {
        char key[16];
        snprintf(key, sizeof key, "%06d", uid);
        return KOVABDbSet(db->pPWDUid, key, 7, "X", 2);
    }
};

TEST_F(UserTest, FreeIdSearch) {
    const Db d;
    ASSERT_NE(d.db, nullptr);
    EXPECT_EQ(KOVAUserDBGetFreeUid(d.db), 1028);  // the marker of kovauser.conf + 1
    ASSERT_EQ(d.set_current(3071), 0);
    EXPECT_EQ(KOVAUserDBGetFreeUid(d.db), 3072);
    ASSERT_EQ(d.take(3072), 0);
    EXPECT_EQ(KOVAUserDBGetFreeUid(d.db), 1028);  // wrapped to 1024, past the taken ones
    ASSERT_EQ(d.set_current(3072), 0);            // starts at 1024
    EXPECT_EQ(KOVAUserDBGetFreeUid(d.db), 1028);
    ASSERT_EQ(d.set_current(5), 0);
    EXPECT_EQ(KOVAUserDBGetFreeUid(d.db), 1028);
    for (int uid = 1024; uid <= 3072; ++uid)
        ASSERT_EQ(d.take(uid), 0);
    EXPECT_EQ(KOVAUserDBGetFreeUid(d.db), -1);
    EXPECT_TRUE(raised(ERR_TOO_MANY_USERS));
    // Without the record: from the highest id stored.
    ASSERT_EQ(
        KOVABDbDelete(d.db->pPWDUid, KOVA_USER_KEY_CURRENT_UID, KOVA_USER_KEY_CURRENT_UID_LEN), 0);
    ASSERT_EQ(KOVABDbDelete(d.db->pPWDUid, "001500", 7), 0);
    EXPECT_EQ(KOVAUserDBGetFreeUid(d.db), 1500);  // 65534 + 1 is out of range: from 1024
}

// The marker outside 1024..3072 is ignored: the highest id stored stands instead.
TEST_F(UserTest, BuildChecksIdsAndMarker) {
    write_file(path("/etc/kovauser.conf"), "#$_@UID__INDEX@_$99$\nalice:7:\n");
    {
        const Db d;
        ASSERT_NE(d.db, nullptr);
        int32_t *current = nullptr;
        int32_t size = 0;
        ASSERT_EQ(
            KOVABDbGet(d.db->pPWDUid, KOVA_USER_KEY_CURRENT_UID, KOVA_USER_KEY_CURRENT_UID_LEN,
                       reinterpret_cast<void **>(&current), &size),
            0);
        EXPECT_EQ(*current, 65534);
        free(current);
    }
    const std::string passwd = text("/etc/passwd");
    write_file(path("/etc/passwd"), passwd + "odd:x:0:0::/:/bin/sh\n");  // "0" is id 0
    PKOVAUSER user = nullptr;
    ASSERT_EQ(KOVAUserGetByUID(0, &user), 0);
    EXPECT_STREQ(user->szName, "root");
    write_file(path("/etc/passwd"), passwd + "odd:x:abc:0::/:/bin/sh\n");
    PKOVAUSERDB db = nullptr;
    const LogCapture log;
    EXPECT_EQ(KOVAUserDBOpenFile(&db, path("/tmp/fresh").c_str()), -1);
    EXPECT_TRUE(raised(ERR_FORMAT_ERROR));
    EXPECT_TRUE(std::any_of(log.lines().begin(), log.lines().end(), [](const LogLine &line) {
        return line.priority == LOG_ERR &&
               line.text.find(" UserDBPasswdBuild() failed! kovaerr=0x4000") != std::string::npos;
    }));
    EXPECT_EQ(KOVAUserGet("alice", &user), -1);  // the cache cannot be rebuilt either
    KOVAUserFree(user);
}

TEST_F(UserTest, PrivilegesLimitsAndCounts) {
    EXPECT_EQ(KOVAUserPrivilegeGet("ADMIN"), 31);
    EXPECT_EQ(KOVAUserPrivilegeGet("Guest"), 0);
    EXPECT_EQ(KOVAUserPrivilegeGet("DOM\\someone"), 3);
    EXPECT_EQ(KOVAUserPrivilegeGet("alice"), 7);
    EXPECT_EQ(KOVAUserPrivilegeGet("nobody-here"), 0);
    EXPECT_EQ(KOVAUserPrivilegeGet(nullptr), -1);
    EXPECT_TRUE(raised(ERR_BAD_PARAMETERS));

    EXPECT_EQ(KOVAUserTotalNum(KOVA_USER_MASK_LOCAL), 9);
    EXPECT_EQ(KOVAUserTotalNum(KOVA_USER_MASK_DOMAIN), 0);
    EXPECT_EQ(KOVAUserTotalNum(4), -1);
    EXPECT_EQ(KOVAConfGetUserLimit(), 2048 - 9);
    const std::string defaults = path("/etc.defaults/kovainfo.conf");
    ASSERT_EQ(KLIBFileSetKeyValue(defaults.c_str(), "maxaccounts", "", KLIB_FILE_FORMAT_QUOTED), 1);
    EXPECT_EQ(KOVAConfGetUserLimit(), 0);  // no limit

    PKLIBSZLIST names = PslKLIBSzListAlloc(0);
    EXPECT_EQ(KOVAUserEnumByPrefix(&names, KOVA_USER_MASK_LOCAL, "A"), 2);
    EXPECT_STREQ(SzKLIBSzListGet(names, 0), "admin");
    EXPECT_STREQ(SzKLIBSzListGet(names, 1), "alice");
    EXPECT_EQ(KOVAUserEnum(&names, KOVA_USER_MASK_LOCAL), 9);
    KLIBSzListFree(names);

    EXPECT_EQ(KOVAUserCheckExpired("bob"), 0);  // day 21550 is to come
    EXPECT_EQ(KOVAUserCheckExpired("alice"), 0);
    EXPECT_EQ(KOVAUserCheckExpired("nobody-here"), -1);
}

// Several users in one call: one id each, and the per-user lists follow all of them.
TEST_F(UserTest, OneCallForSeveralUsers) {
    User erin("erin", "x", "", 0, "erin@example.com");
    User frank("Frank", "x");
    User alice, alicia;
    ASSERT_EQ(KOVAUserGet("alice", &alice.p), 0);
    ASSERT_EQ(KOVAUserAlloc(&alicia.p, "alicia", alice->szPassword, alice->uid, alice->gid,
                            alice->szDescription, "/var/services/homes/alicia", alice->szShell, 0,
                            "alicia@example.com", alice->privilege),
              0);
    const char *olds[] = {nullptr, "ALICE", nullptr};
    PKOVAUSER users[] = {erin.p, alicia.p, frank.p};
    ASSERT_EQ(KOVAUserSet(olds, users, 3), 0);
    EXPECT_EQ(erin->uid, 1028u);
    EXPECT_EQ(frank->uid, 1029u);
    EXPECT_EQ(text("/usr/kova/etc/mailgroup"),
              "erin:erin@example.com\nalicia:alicia@example.com\n");
    EXPECT_EQ(text("/usr/kova/etc/ftpchroot"), "guest\nbob\nerin\nalicia\nFrank\n");
    EXPECT_TRUE(file_exists(path("/var/services/homes/alicia")));
    EXPECT_FALSE(file_exists(path("/var/services/homes/alice")));
    EXPECT_TRUE(file_exists(path("/var/services/homes/Frank")));
    EXPECT_TRUE(files_agree());
}

// Refusals that leave every file as it was.
TEST_F(UserTest, BadChangesChangeNothing) {
    const std::string before = text("/etc/passwd") + text("/etc/shadow") +
                               text("/etc/kovauser.conf") + text("/usr/kova/etc/private/smbpasswd");
    User bad("-bad", "x");
    EXPECT_EQ(KOVAUserSetOne(nullptr, bad.p), -1);
    EXPECT_TRUE(raised(ERR_INVALID_USERNAME));
    User alice("ALICE", "x");
    EXPECT_EQ(KOVAUserSetOne(nullptr, alice.p), -1);
    EXPECT_TRUE(raised(ERR_USER_EXISTS));
    EXPECT_EQ(KOVAUserSetOne("bob", alice.p), -1);  // renamed onto an existing name
    EXPECT_TRUE(raised(ERR_USER_EXISTS));
    User zed("zed", "x");
    EXPECT_EQ(KOVAUserSetOne("nobody-here", zed.p), -1);
    EXPECT_TRUE(raised(ERR_NO_SUCH_USER));
    User zed2("Zed", "x");
    const char *olds[] = {nullptr, nullptr};
    PKOVAUSER users[] = {zed.p, zed2.p};
    EXPECT_EQ(KOVAUserSet(olds, users, 2), -1);  // the same name twice in one call
    EXPECT_TRUE(raised(ERR_USER_EXISTS));
    EXPECT_EQ(KOVAUserDelete("nobody-here"), -1);
    EXPECT_TRUE(raised(ERR_NO_SUCH_USER));
    EXPECT_EQ(KOVAUserSetPasswd("nobody-here", "x"), -1);
    EXPECT_EQ(text("/etc/passwd") + text("/etc/shadow") + text("/etc/kovauser.conf") +
                  text("/usr/kova/etc/private/smbpasswd"),
              before);
    EXPECT_TRUE(no_tmp_files());
}

// The cache follows the files: an edit made beside the library within the same second, a store
// cut below its minimum size, a store another process replaced.
TEST_F(UserTest, CacheFollowsTheFiles) {
    PKOVAUSER user = nullptr;
    ASSERT_EQ(KOVAUserGet("alice", &user), 0);
    for (const char *file : {"/etc/passwd", "/etc/shadow"}) {
        const std::string line = std::string(file) == "/etc/passwd"
                                     ? "erin:x:1500:100::/var/services/homes/erin:/bin/csh\n"
                                     : "erin:*:20400:0:99999:7:::\n";
        write_file(path(file), text(file) + line);
    }
    ASSERT_EQ(KOVAUserGet("Erin", &user), 0);
    EXPECT_EQ(user->uid, 1500u);

    // A damaged store is rebuilt by the next open (a process's kept handle keeps reading the
    // set it holds until a rebuild replaces it).
    ASSERT_EQ(truncate(path("/tmp/.db.user.misc.0850").c_str(), 100), 0);
    PKOVAUSERDB reopened = KOVAUserDBOpen();
    ASSERT_NE(reopened, nullptr);
    ASSERT_EQ(KOVAUserDBGet(reopened, "ALICE", &user), 0);
    KOVAUserDBClose(reopened);
    EXPECT_EQ(user->privilege, 7);
    ASSERT_EQ(KOVAUserGet("alice", &user), 0);
    struct stat st {};
    ASSERT_EQ(stat(path("/tmp/.db.user.misc.0850").c_str(), &st), 0);
    EXPECT_GE(st.st_size, 8192);

    // A handle held across another process's rebuild reopens at its check.
    PKOVAUSERDB held = KOVAUserDBOpen();
    ASSERT_NE(held, nullptr);
    ASSERT_EQ(KOVAUserDBRebuild(), 0);
    EXPECT_EQ(KOVAUserDBCheckAndRebuild(&held), 1);
    EXPECT_EQ(KOVAUserDBCheckAndRebuild(&held), 0);
    EXPECT_EQ(KOVAUserDBGet(held, "ERIN", &user), 0);
    KOVAUserDBClose(held);

    // A builder killed while the library created a store leaves a fresh file at the store's
    // creation name; the next builder, holding the lock, is not held up by it.
    write_file(path("/tmp/__db..db.user.tmp.name.0850"), "");
    ASSERT_EQ(unlink(path("/tmp/.db.user.name.0850").c_str()), 0);
    ASSERT_EQ(KOVAUserGet("alice", &user), 0);
    EXPECT_FALSE(file_exists(path("/tmp/__db..db.user.tmp.name.0850")));
    KOVAUserFree(user);
}

// Every allocation of a change fails in turn: a clean -1 with nothing changed, or (where the
// failure fell on a lookup whose failure only costs a rebuild) the change done whole.
TEST_F(UserTest, AllocationFailuresChangeNothing) {
    const auto all_files = [this] {
        return text("/etc/passwd") + text("/etc/shadow") + text("/etc/kovauser.conf") +
               text("/usr/kova/etc/private/smbpasswd");
    };
    User carol("carol", "password", "d", 0, "c@example.com");
    int failed = 0;
    for (long nth = 1;; ++nth) {
        const std::string before = all_files();
        const long start = allocation_count();
        int rc = 0;
        {
            const AllocationFailure failure(nth);
            rc = KOVAUserSetOne(nullptr, carol.p);
        }
        const bool reached = allocation_count() - start >= nth;
        ASSERT_TRUE(no_tmp_files()) << "allocation " << nth;
        if (rc != 0) {
            ++failed;
            ASSERT_EQ(all_files(), before) << "allocation " << nth;
            continue;
        }
        ASSERT_TRUE(files_agree()) << "allocation " << nth;
        ASSERT_EQ(KOVAUserDelete("carol"), 0);
        if (!reached) break;  // no allocation failed: every one has been tried
    }
    EXPECT_GT(failed, 10);
}

}  // namespace
}  // namespace kova::test
