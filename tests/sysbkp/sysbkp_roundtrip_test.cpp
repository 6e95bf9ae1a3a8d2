// A whole appliance through a backup file: 1,000 users, 100 groups and 200 shares exported from
// one sandbox appliance and imported into a fresh one give the same accounts (compared by name:
// ids are the new appliance's own), the same password hashes, share sections and settings.
#include <cstdio>
#include <cstring>
#include <map>
#include <memory>
#include <set>

#include "kovasdk/group.h"
#include "kovasdk/list.h"
#include "kovasdk/share.h"
#include "kovasdk/user.h"
#include "sysbkp/sysbkp_fixture.h"

namespace kova::test {
namespace {

// The appliance's full size natively; a tenth of it under an emulator (the cross targets run
// under qemu-user, where a thousand password hashes each way take minutes).
#if defined(KOVA_TARGET_EMULATED) && KOVA_TARGET_EMULATED
constexpr int kScale = 10;
#else
constexpr int kScale = 1;
#endif
constexpr int kUsers = 1000 / kScale;
constexpr int kGroups = 100 / kScale;
constexpr int kShares = 200 / kScale;

std::vector<std::string> names(int (*enumerate)(PKLIBSZLIST *)) {
    PKLIBSZLIST list = PslKLIBSzListAlloc(0);
    const int n = enumerate(&list);
    std::vector<std::string> out;
    for (int i = 0; i < n; ++i)
        out.emplace_back(SzKLIBSzListGet(list, i));
    KLIBSzListFree(list);
    return out;
}

int local_users(PKLIBSZLIST *list) {
    return KOVAUserEnum(list, KOVA_USER_MASK_LOCAL);
}

// Lines of an account file by their first field, with the fields that change on every write
// (the day or time of the last change, and the user id in smbpasswd) blanked.
std::map<std::string, std::string> lines_by_name(const std::string &text, std::set<int> blank) {
    std::map<std::string, std::string> out;
    size_t at = 0;
    while (at < text.size()) {
        size_t end = text.find('\n', at);
        if (end == std::string::npos) end = text.size();
        const std::string line = text.substr(at, end - at);
        at = end + 1;
        if (line.empty() || line[0] == '#') continue;
        std::string kept;
        int field = 0;
        size_t from = 0;
        for (size_t colon;; from = colon + 1, ++field) {
            colon = line.find(':', from);
            const std::string value = line.substr(from, colon - from);
            kept += (field > 0 ? ":" : "") + (blank.count(field) != 0 ? "" : value);
            if (colon == std::string::npos) break;
        }
        out[line.substr(0, line.find(':'))] = kept;
    }
    return out;
}

// The smb.conf sections by name, each as its sorted lines: the file's order of sections is the
// cache's key order, and a reserved section's lines come back in its hash's order.
std::map<std::string, std::multiset<std::string>> share_sections(const std::string &text) {
    std::map<std::string, std::multiset<std::string>> out;
    std::string name;
    size_t at = 0;
    while (at < text.size()) {
        size_t end = text.find('\n', at);
        if (end == std::string::npos) end = text.size();
        const std::string line = text.substr(at, end - at);
        at = end + 1;
        if (!line.empty() && line[0] == '[') {
            name = line;
        } else {
            out[name].insert(line);
        }
    }
    return out;
}

struct Snapshot {
    std::map<std::string, std::string> users;   // name -> record fields without the uid
    std::map<std::string, std::string> shadow;  // name -> shadow line without its day
    std::map<std::string, std::string> smb;     // name -> smbpasswd line without uid and time
    std::map<std::string, std::string> groups;  // name -> members, description
    std::map<std::string, std::multiset<std::string>> shares;  // smb.conf section -> lines
    std::map<std::string, std::string> settings;
};

Snapshot take(const Sandbox &box) {
    Snapshot snap;
    PKOVAUSER user = nullptr;
    for (const std::string &name : names(local_users)) {
        EXPECT_EQ(KOVAUserGet(name.c_str(), &user), 0) << name;
        char fields[2048];
        snprintf(fields, sizeof fields, "%s|%u|%s|%s|%s|%d|%s|%d", user->szPassword, user->gid,
                 user->szDescription, user->szHomeDir, user->szShell, user->expireDay, user->szMail,
                 user->privilege);
        snap.users[name] = fields;
    }
    KOVAUserFree(user);
    snap.shadow = lines_by_name(read_file(box.path("/etc/shadow")), {2});
    snap.smb = lines_by_name(read_file(box.path("/usr/kova/etc/private/smbpasswd")), {1, 5});
    PKOVAGROUP group = nullptr;
    for (const std::string &name : names(KOVAGroupEnum)) {
        EXPECT_EQ(KOVAGroupGet(name.c_str(), &group), 0) << name;
        char description[512] = "";
        KOVAGroupDescGet(name.c_str(), description, sizeof description);
        snap.groups[name] = std::string(group->szMembers) + "|" + description;
    }
    KOVAGroupFree(group);
    snap.shares = share_sections(read_file(box.path("/usr/kova/etc/smb.conf")));
    for (const char *key : {"hostname", "timezone", "ntpserver", "runmysql", "mail_smtp",
                            "standbytimer", "http_port", "userquota_enable"}) {
        char value[256] = "";
        KLIBFileGetKeyValue(box.path("/etc/kovainfo.conf").c_str(), key, value, sizeof value, 0);
        snap.settings[key] = value;
    }
    return snap;
}

void populate() {
    std::vector<PKOVAUSER> users(kUsers, nullptr);
    for (int i = 0; i < kUsers; ++i) {
        char name[32], password[32], description[64], mail[64];
        snprintf(name, sizeof name, "user%04d", i);
        snprintf(password, sizeof password, "pw-%d", i * 7);
        snprintf(description, sizeof description, "User %d: floor %d", i, i % 5);
        mail[0] = '\0';
        if (i % 3 == 0) snprintf(mail, sizeof mail, "u%d@example.org", i);
        ASSERT_EQ(KOVAUserAlloc(&users[i], name, password, 0, 100, description, nullptr, nullptr,
                                i % 10 == 0 ? 30000 + i : 0, mail, i % 4),
                  0);
    }
    ASSERT_EQ(KOVAUserSet(nullptr, users.data(), kUsers), 0);
    for (PKOVAUSER user : users)
        KOVAUserFree(user);

    PKOVAGROUP group = nullptr;
    for (int g = 0; g < kGroups; ++g) {
        char name[16], members[256] = "", description[64];
        snprintf(name, sizeof name, "team%03d", g);
        for (int m = 0; m < 8; ++m) {
            char member[16];
            snprintf(member, sizeof member, "%suser%04d", m > 0 ? "," : "", (g * 8 + m) % kUsers);
            strcat(members, member);
        }
        snprintf(description, sizeof description, "Team %d", g);
        ASSERT_EQ(KOVAGroupAlloc(&group, name, 0, members), 0);
        ASSERT_EQ(KOVAGroupSet(nullptr, group), 0);
        ASSERT_EQ(KOVAGroupDescSet(name, description), 0);
    }
    KOVAGroupFree(group);

    PKOVASHARE share = nullptr;
    for (int s = 0; s < kShares; ++s) {
        char name[16], share_path[64], comment[64], rw[64], ro[64];
        snprintf(name, sizeof name, "share%03d", s);
        snprintf(share_path, sizeof share_path, "/volume1/share%03d", s);
        snprintf(comment, sizeof comment, "Share number %d", s);
        snprintf(rw, sizeof rw, "user%04d,@team%03d", s, s % kGroups);
        snprintf(ro, sizeof ro, "user%04d", s + 1);
        KOVASHARE tpl{};
        tpl.szName = name;
        tpl.szComment = comment;
        tpl.szPath = share_path;
        tpl.szDenyList = const_cast<char *>(s % 7 == 0 ? "guest" : "");
        tpl.szRWList = rw;
        tpl.szROList = ro;
        tpl.fType = s % 3 == 0 ? KOVA_SHARE_NO_ACCESS : KOVA_SHARE_READ_ONLY;
        tpl.browseable = s % 2;
        tpl.ftpWriteOnly = s % 5 == 0;
        ASSERT_EQ(KOVAShareAlloc(&share, &tpl), 0);
        ASSERT_EQ(KOVAShareSet(nullptr, share), 0);
    }
    KOVAShareFree(share);
    ASSERT_EQ(KOVAINFOSetKeyValue("runmysql", "yes"), 0);
    ASSERT_EQ(KOVAINFOSetKeyValue("timezone", "Lisbon"), 0);
    ASSERT_EQ(KOVALnxSetHostname("source-nas"), 0);
}

TEST(SysbkpRoundTrip, WholeApplianceIntoAFreshOne) {
    const std::string file = KOVA_TEST_SANDBOXES "/roundtrip.kbk";
    Snapshot before;
    {
        Sandbox source;
        populate();
        if (HasFatalFailure()) return;
        before = take(source);
        ASSERT_EQ(KOVASysbkpExport(file.c_str(), KOVA_SYSBKP_ALL), 0);
        ErrKLIBFileCloseLock();
    }
    ASSERT_GE(before.users.size(), static_cast<size_t>(kUsers));
    Snapshot after;
    {
        Sandbox fresh;
        // The MySQL switch is restored only when asked for by its bit, which the mask that
        // means every section lacks.
        ASSERT_EQ(KOVASysbkpImport(file.c_str(), KOVA_SYSBKP_ALL | KOVA_SYSBKP_MYSQL, 1), 0);
        after = take(fresh);
        ErrKLIBFileCloseLock();
    }
    if (getenv("KOVA_KEEP_BACKUP") == nullptr) remove(file.c_str());
    EXPECT_EQ(after.users, before.users);
    EXPECT_EQ(after.shadow, before.shadow);
    EXPECT_EQ(after.smb, before.smb);
    EXPECT_EQ(after.groups, before.groups);
    EXPECT_EQ(after.shares, before.shares);
    EXPECT_EQ(after.settings, before.settings);
    EXPECT_EQ(after.settings["hostname"], "source-nas");
}

}  // namespace
}  // namespace kova::test
