// The account sections: users, groups and shares, saved with everything their families keep
// and restored through the families' own set functions (a
// restore's batch of groups and of shares each under one writer of its family).
//
// A restore must not wreck a working appliance, so each importer reads and checks its whole
// body into memory first (every record through the same rules its family applies) and only
// then changes anything: a body damaged anywhere restores nothing of its section.
//
// Users: a long (the count), then per user the name, password hash, uid, gid, description,
// home, shell, expiry day, mail, privilege, LAN Manager hash, NT hash. The appliance's own
// accounts only (ids 1024 to 65533); the system accounts belong to the firmware. A restored
// user is created or changed with KOVAUserSet, which hashes the password it is given, so the
// saved shadow and file-sharing hashes are put back afterwards by a rewrite of "/etc/shadow"
// and the smbpasswd file (the user cache rebuilds from them): restored users keep their
// passwords.
// Groups: a long, then per group the name, gid, members and description (ids from 100 on, but
// not the "nogroup" id 65534). Shares: a long, then per share its six strings and three numbers;
// then a long, the number of reserved sections, and per section its name, a long and that many
// key and value strings. Accounts present on the appliance but absent from the file are left
// as they are; ids are the appliance's (records are matched by name).
#include <strings.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <string>
#include <unordered_map>
#include <unordered_set>
#include <vector>

#include "core/line_reader.h"
#include "core/owners.h"
#include "core/paths.h"
#include "core/rewrite.h"
#include "core/root.h"
#include "group/group_internal.h"
#include "kovasdk/file.h"
#include "kovasdk/group.h"
#include "kovasdk/list.h"
#include "kovasdk/share.h"
#include "kovasdk/unicode.h"
#include "kovasdk/user.h"
#include "share/share_internal.h"
#include "sysbkp/sysbkp_internal.h"

namespace kova::sysbkp {
namespace {

constexpr uint32_t kUserExportEvent = 0x12100011;
constexpr uint32_t kUserImportEvent = 0x12100012;
constexpr uint32_t kUserHashEvent = 0x12100052;
constexpr uint32_t kGroupExportEvent = 0x12100013;
constexpr uint32_t kGroupImportEvent = 0x12100014;
constexpr uint32_t kShareExportEvent = 0x1210000B;
constexpr uint32_t kShareImportEvent = 0x1210000C;
constexpr uint32_t kShareSectionEvent = 0x12100051;

constexpr uint32_t kUidFirst = 1024;
constexpr uint32_t kUidLast = 65533;
constexpr uint32_t kGidFirst = 100;
constexpr uint32_t kNoGroup = 65534;
// More records than any appliance keeps: a damaged count fails before anything is read.
constexpr uint32_t kMaxRecords = 1u << 20;
constexpr int kLockSeconds = 10;
constexpr const char *kReservedSections[] = {"global", "home", "printers"};

int failed(uint32_t event) {
    record_failure(event);
    return -1;
}

std::string upper(const char *name) {
    char key[493];
    return KLIBUnicodeUTF8StrUpper(name, key, sizeof key) < 0 ? std::string() : std::string(key);
}

// A field an account file can hold: one line, and no ":" where ":" separates fields.
bool clean(const char *text, bool colon_ok) {
    return strpbrk(text, colon_ok ? "\n\r" : ":\n\r") == nullptr;
}

bool hex_hash(const char *text) {
    if (strlen(text) != 32) return false;
    for (const char *p = text; *p != '\0'; ++p) {
        if (strchr("0123456789ABCDEFX", *p) == nullptr) return false;
    }
    return true;
}

// A path that stays below the root it names ("/volume1/x", never "/volume1/../etc").
bool contained_path(const char *path) {
    for (const char *p = path; (p = strstr(p, "/..")) != nullptr; p += 3) {
        if (p[3] == '\0' || p[3] == '/') return false;
    }
    return true;
}

// The names of an enumeration, upper-cased -> as stored.
template <class Enum>
bool existing_names(Enum &&enumerate, std::unordered_map<std::string, std::string> *names) {
    PKLIBSZLIST list = PslKLIBSzListAlloc(0);
    if (list == nullptr) return false;
    const int n = enumerate(&list);
    for (int i = 0; i < n; ++i) {
        const char *name = SzKLIBSzListGet(list, i);
        names->emplace(upper(name), name);
    }
    KLIBSzListFree(list);
    return n >= 0;
}

struct Hashes {
    std::string lm;
    std::string nt;
};

// The file-sharing hashes of every user in the smbpasswd file, by upper-cased name.
std::unordered_map<std::string, Hashes> read_smb_hashes() {
    std::unordered_map<std::string, Hashes> hashes;
    const RootedPath path(paths::kSmbPasswd);
    UniqueFile file(fopen(path.c_str(), "re"));
    if (!file) return hashes;
    LineReader reader(file.get());
    while (reader.next()) {
        std::vector<std::string> fields;
        std::string line(reader.line());
        if (!line.empty() && line.back() == '\n') line.pop_back();
        if (line.empty() || line[0] == '#') continue;
        size_t at = 0;
        for (size_t colon; (colon = line.find(':', at)) != std::string::npos; at = colon + 1) {
            fields.push_back(line.substr(at, colon - at));
        }
        fields.push_back(line.substr(at));
        if (fields.size() >= 4) hashes[upper(fields[0].c_str())] = {fields[2], fields[3]};
    }
    return hashes;
}

// A user as read from a file, with the hashes to put back.
struct SavedUser {
    PKOVAUSER user = nullptr;
    char lm[33] = "";
    char nt[33] = "";
};

struct UserList {
    std::vector<SavedUser> users;
    ~UserList() {
        for (SavedUser &saved : users)
            KOVAUserFree(saved.user);
    }
};

// Rewrites one account file: for the lines of restored users, fields replaced by edit(fields,
// hashes). The caller holds the user lock.
template <class Edit>
bool rewrite_fields(const char *absolute, const std::unordered_map<std::string, Hashes> &saved,
                    Rewrite &rewrite, Edit &&edit) {
    (void)absolute;
    if (rewrite.open() != Rewrite::Opened::kOk) return false;
    return rewrite.each_line([&](LineReader &reader) {
        std::string line(reader.line());
        const bool newline = !line.empty() && line.back() == '\n';
        if (newline) line.pop_back();
        const size_t colon = line.find(':');
        if (line.empty() || line[0] == '#' || colon == std::string::npos) {
            return rewrite.put(reader.line());
        }
        const auto found = saved.find(upper(line.substr(0, colon).c_str()));
        if (found == saved.end()) return rewrite.put(reader.line());
        std::vector<std::string> fields;
        size_t at = 0;
        for (size_t next; (next = line.find(':', at)) != std::string::npos; at = next + 1) {
            fields.push_back(line.substr(at, next - at));
        }
        fields.push_back(line.substr(at));
        edit(fields, found->second);
        std::string out;
        for (size_t i = 0; i < fields.size(); ++i)
            out += (i > 0 ? ":" : "") + fields[i];
        return rewrite.put(out + (newline ? "\n" : ""));
    });
}

// The saved password hashes into the shadow and smbpasswd files.
bool restore_hashes(const UserList &list) {
    std::unordered_map<std::string, Hashes> shadow_hash;  // the shadow hash travels as "lm"
    std::unordered_map<std::string, Hashes> smb_hash;
    for (const SavedUser &saved : list.users) {
        const std::string key = upper(saved.user->szName);
        shadow_hash[key] = {saved.user->szPassword, ""};
        smb_hash[key] = {saved.lm, saved.nt};
    }
    if (ErrKLIBFileLock(KLIB_LOCK_PW | KLIB_LOCK_EX, kLockSeconds) != 0) return false;
    const RootedPath shadow_path(paths::kShadow);
    const RootedPath smb_path(paths::kSmbPasswd);
    Rewrite shadow(shadow_path.c_str(), {});
    Rewrite smb(smb_path.c_str(), {});
    bool ok = rewrite_fields(paths::kShadow, shadow_hash, shadow,
                             [](std::vector<std::string> &fields, const Hashes &hashes) {
                                 if (fields.size() > 1) fields[1] = hashes.lm;
                             }) &&
              rewrite_fields(paths::kSmbPasswd, smb_hash, smb,
                             [](std::vector<std::string> &fields, const Hashes &hashes) {
                                 if (fields.size() > 3) {
                                     fields[2] = hashes.lm;
                                     fields[3] = hashes.nt;
                                 }
                             });
    smb.limit_mode(0600);
    shadow.limit_mode(0600);
    // The cache sees the files changed (its sources' fingerprints) and rebuilds at its next read.
    ok = ok && Rewrite::commit_all({&shadow, &smb});
    ok = ErrKLIBFileUnlock(KLIB_LOCK_PW) == 0 && ok;
    return ok;
}

bool read_count(ItemReader &items, uint32_t *count) {
    *count = items.number();
    return items.ok() && *count <= kMaxRecords;
}

int damaged(const char *function, uint32_t event) {
    fail_in(function, ERR_FORMAT_ERROR, Site(), "%s(%d): damaged section");
    return failed(event);
}

}  // namespace

int import_users(int fd) {
    ItemReader items(fd);
    uint32_t count = 0;
    if (!read_count(items, &count)) return damaged("KOVASysbkpUserImport", kUserImportEvent);
    UserList list;
    std::unordered_set<std::string> seen;
    for (uint32_t i = 0; i < count; ++i) {
        SavedUser saved;
        if (KOVASysbkpIGetUserSetting(fd, &saved.user, saved.lm, saved.nt) != 0 ||
            !seen.insert(upper(saved.user->szName)).second) {
            KOVAUserFree(saved.user);
            return damaged("KOVASysbkpUserImport", kUserImportEvent);
        }
        list.users.push_back(saved);
    }
    if (!items.at_end()) return damaged("KOVASysbkpUserImport", kUserImportEvent);
    if (list.users.empty()) {
        note_restored("user_desc", 0);
        return 0;
    }
    std::unordered_map<std::string, std::string> existing;
    if (!existing_names(
            [](PKLIBSZLIST *names) { return KOVAUserEnum(names, KOVA_USER_MASK_LOCAL); },
            &existing)) {
        return failed(kUserImportEvent);
    }
    std::vector<const char *> old_names;
    std::vector<PKOVAUSER> users;
    for (const SavedUser &saved : list.users) {
        const auto found = existing.find(upper(saved.user->szName));
        old_names.push_back(found != existing.end() ? found->second.c_str() : nullptr);
        users.push_back(saved.user);
    }
    if (KOVAUserSet(old_names.data(), users.data(), static_cast<int>(users.size())) != 0) {
        log_at(LOG_ERR, Site(), "%s:%d KOVAUserSet failed. kovaerr=0x%04X",
               static_cast<unsigned>(KLIBErrGet()));
        return failed(kUserImportEvent);
    }
    if (!restore_hashes(list)) {
        log_at(LOG_ERR, Site(), "%s:%d restoring the password hashes failed. kovaerr=0x%04X",
               static_cast<unsigned>(KLIBErrGet()));
        return failed(kUserHashEvent);
    }
    note_restored("user_desc", static_cast<int>(list.users.size()));
    return 0;
}

namespace {

struct SavedGroup {
    std::string name;
    uint32_t gid;
    std::string members;
    std::string description;
};

}  // namespace

int import_groups(int fd) {
    ItemReader items(fd);
    uint32_t count = 0;
    if (!read_count(items, &count)) return damaged("KOVASysbkpGroupImport", kGroupImportEvent);
    std::vector<SavedGroup> groups;
    std::unordered_set<std::string> seen;
    for (uint32_t i = 0; i < count; ++i) {
        SavedGroup group;
        group.name = items.text();
        group.gid = items.number();
        group.members = items.text();
        group.description = items.text();
        if (!items.ok() || BlKLIBIsGroupName(group.name.c_str()) != 1 ||
            group.name.find('\\') != std::string::npos || !clean(group.members.c_str(), false) ||
            !clean(group.description.c_str(), true) ||
            !seen.insert(upper(group.name.c_str())).second) {
            return damaged("KOVASysbkpGroupImport", kGroupImportEvent);
        }
        groups.push_back(std::move(group));
    }
    if (!items.at_end()) return damaged("KOVASysbkpGroupImport", kGroupImportEvent);
    std::unordered_map<std::string, std::string> existing;
    if (!existing_names(KOVAGroupEnum, &existing)) return failed(kGroupImportEvent);
    // One writer for all: the records first, so that nothing is written when one is refused.
    std::vector<PKOVAGROUP> records(groups.size(), nullptr);
    std::vector<const char *> old_names;
    std::vector<const char *> descs;
    bool ok = true;
    for (size_t i = 0; i < groups.size(); ++i) {
        const SavedGroup &group = groups[i];
        const auto found = existing.find(upper(group.name.c_str()));
        old_names.push_back(found != existing.end() ? found->second.c_str() : nullptr);
        descs.push_back(group.description.c_str());
        ok = ok &&
             KOVAGroupAlloc(&records[i], group.name.c_str(), group.gid, group.members.c_str()) == 0;
    }
    ok = ok && (records.empty() || group::set_many(old_names.data(), records.data(), descs.data(),
                                                   static_cast<int>(records.size())) == 0);
    for (PKOVAGROUP record : records)
        KOVAGroupFree(record);
    if (!ok) {
        log_at(LOG_ERR, Site(), "%s:%d restoring the groups failed. kovaerr=0x%04X",
               static_cast<unsigned>(KLIBErrGet()));
        return failed(kGroupImportEvent);
    }
    note_restored("group_desc", static_cast<int>(groups.size()));
    return 0;
}

namespace {

struct SavedSection {
    std::string name;
    std::vector<std::pair<std::string, std::string>> pairs;
};

struct ShareList {
    std::vector<PKOVASHARE> shares;
    ~ShareList() {
        for (PKOVASHARE share : shares)
            KOVAShareFree(share);
    }
};

bool reserved(const char *name) {
    for (const char *own : kReservedSections) {
        if (strcasecmp(name, own) == 0) return true;
    }
    return false;
}

bool read_section(ItemReader &items, SavedSection *section) {
    section->name = items.text();
    uint32_t count = 0;
    if (!read_count(items, &count) || !reserved(section->name.c_str())) return false;
    for (uint32_t i = 0; i < count; ++i) {
        std::string key = items.text();
        std::string value = items.text();
        if (!items.ok() || key.empty() || key.find_first_of("=[]\n\r") != std::string::npos ||
            !clean(value.c_str(), true)) {
            return false;
        }
        section->pairs.emplace_back(std::move(key), std::move(value));
    }
    return true;
}

bool restore_section(const SavedSection &section) {
    PKLIBSZHASH hash = PshKLIBSzHashAlloc(0);
    bool ok = hash != nullptr;
    for (const auto &[key, value] : section.pairs) {
        ok = ok && KLIBSzHashSetValue(&hash, key.c_str(), value.c_str()) >= 0;
    }
    ok = ok && KOVAShareRSectionSet(section.name.c_str(), hash) == 0;
    KLIBSzHashFree(hash);
    return ok;
}

}  // namespace

int import_shares(int fd) {
    ItemReader items(fd);
    uint32_t count = 0;
    if (!read_count(items, &count)) return damaged("KOVASysbkpShareImport", kShareImportEvent);
    ShareList list;
    std::unordered_set<std::string> seen;
    for (uint32_t i = 0; i < count; ++i) {
        PKOVASHARE share = nullptr;
        if (KOVASysbkpIReadShare(fd, &share) != 0) {
            return damaged("KOVASysbkpShareImport", kShareImportEvent);
        }
        list.shares.push_back(share);
        if (!seen.insert(upper(share->szName)).second) {
            return damaged("KOVASysbkpShareImport", kShareImportEvent);
        }
    }
    std::vector<SavedSection> sections;
    uint32_t section_count = 0;
    if (!read_count(items, &section_count)) {
        return damaged("KOVASysbkpShareImport", kShareImportEvent);
    }
    for (uint32_t i = 0; i < section_count; ++i) {
        SavedSection section;
        if (!read_section(items, &section)) {
            return damaged("KOVASysbkpShareImport", kShareImportEvent);
        }
        sections.push_back(std::move(section));
    }
    if (!items.at_end()) return damaged("KOVASysbkpShareImport", kShareImportEvent);

    std::unordered_map<std::string, std::string> existing;
    if (!existing_names(KOVAShareEnum, &existing)) return failed(kShareImportEvent);
    std::vector<const char *> old_names;
    for (PKOVASHARE share : list.shares) {
        const auto found = existing.find(upper(share->szName));
        old_names.push_back(found != existing.end() ? found->second.c_str() : nullptr);
    }
    if (!list.shares.empty() && share::set_many(old_names.data(), list.shares.data(),
                                                static_cast<int>(list.shares.size())) != 0) {
        log_at(LOG_ERR, Site(), "%s:%d restoring the shares failed. kovaerr=0x%04X",
               static_cast<unsigned>(KLIBErrGet()));
        return failed(kShareImportEvent);
    }
    for (const SavedSection &section : sections) {
        if (!restore_section(section)) {
            log_at(LOG_ERR, Site(), "%s:%d restoring section [%s] failed. kovaerr=0x%04X",
                   section.name.c_str(), static_cast<unsigned>(KLIBErrGet()));
            return failed(kShareSectionEvent);
        }
    }
    note_restored("share_desc", static_cast<int>(list.shares.size()));
    return 0;
}

}  // namespace kova::sysbkp

using namespace kova;
using namespace kova::sysbkp;

int KOVASysbkpIWriteUserData(int fd, const KOVAUSER *pUser, const char *szLMHash,
                             const char *szNTHash) {
    if (pUser == nullptr || szLMHash == nullptr || szNTHash == nullptr) {
        return fail(ERR_BAD_PARAMETERS);
    }
    const bool ok =
        KOVASysbkpIWriteString(fd, pUser->szName) == 0 &&
        KOVASysbkpIWriteString(fd, pUser->szPassword) == 0 &&
        KOVASysbkpIWriteLong(fd, pUser->uid) == 0 && KOVASysbkpIWriteLong(fd, pUser->gid) == 0 &&
        KOVASysbkpIWriteString(fd, pUser->szDescription) == 0 &&
        KOVASysbkpIWriteString(fd, pUser->szHomeDir) == 0 &&
        KOVASysbkpIWriteString(fd, pUser->szShell) == 0 &&
        KOVASysbkpIWriteLong(fd, static_cast<uint32_t>(pUser->expireDay)) == 0 &&
        KOVASysbkpIWriteString(fd, pUser->szMail) == 0 &&
        KOVASysbkpIWriteLong(fd, static_cast<uint32_t>(pUser->privilege)) == 0 &&
        KOVASysbkpIWriteString(fd, szLMHash) == 0 && KOVASysbkpIWriteString(fd, szNTHash) == 0;
    return ok ? 0 : -1;
}

int KOVASysbkpIGetUserSetting(int fd, PKOVAUSER *ppUser, char *szLMHash, char *szNTHash) {
    if (ppUser == nullptr || szLMHash == nullptr || szNTHash == nullptr) {
        return fail(ERR_BAD_PARAMETERS);
    }
    ItemReader items(fd);
    const std::string name = items.text();
    const std::string hash = items.text();
    const uint32_t uid = items.number();
    const uint32_t gid = items.number();
    const std::string description = items.text();
    const std::string home = items.text();
    const std::string shell = items.text();
    const int32_t expire = static_cast<int32_t>(items.number());
    const std::string mail = items.text();
    const int32_t privilege = static_cast<int32_t>(items.number());
    const std::string lm = items.text();
    const std::string nt = items.text();
    if (!items.ok()) return -1;
    if (BlKLIBIsUserName(name.c_str()) != 1 || name.find('\\') != std::string::npos ||
        !clean(hash.c_str(), false) || !clean(description.c_str(), true) ||
        !clean(home.c_str(), false) || !clean(shell.c_str(), false) ||
        !clean(mail.c_str(), false) || !hex_hash(lm.c_str()) || !hex_hash(nt.c_str())) {
        return fail(ERR_FORMAT_ERROR);
    }
    if (KOVAUserAlloc(ppUser, name.c_str(), hash.c_str(), uid, gid, description.c_str(),
                      home.c_str(), shell.c_str(), expire, mail.c_str(), privilege) != 0) {
        return -1;
    }
    memcpy(szLMHash, lm.c_str(), 33);
    memcpy(szNTHash, nt.c_str(), 33);
    return 0;
}

int KOVASysbkpIWriteShare(int fd, const KOVASHARE *pShare) {
    if (pShare == nullptr) return fail(ERR_BAD_PARAMETERS);
    const bool ok = KOVASysbkpIWriteString(fd, pShare->szName) == 0 &&
                    KOVASysbkpIWriteString(fd, pShare->szComment) == 0 &&
                    KOVASysbkpIWriteString(fd, pShare->szPath) == 0 &&
                    KOVASysbkpIWriteString(fd, pShare->szDenyList) == 0 &&
                    KOVASysbkpIWriteString(fd, pShare->szRWList) == 0 &&
                    KOVASysbkpIWriteString(fd, pShare->szROList) == 0 &&
                    KOVASysbkpIWriteLong(fd, static_cast<uint32_t>(pShare->fType)) == 0 &&
                    KOVASysbkpIWriteLong(fd, static_cast<uint32_t>(pShare->browseable)) == 0 &&
                    KOVASysbkpIWriteLong(fd, static_cast<uint32_t>(pShare->ftpWriteOnly)) == 0;
    return ok ? 0 : -1;
}

int KOVASysbkpIReadShare(int fd, PKOVASHARE *ppShare) {
    if (ppShare == nullptr) return fail(ERR_BAD_PARAMETERS);
    ItemReader items(fd);
    std::string strings[6];
    for (std::string &text : strings)
        text = items.text();
    const uint32_t type = items.number();
    const uint32_t browseable = items.number();
    const uint32_t ftp_write_only = items.number();
    if (!items.ok()) return -1;
    for (const std::string &text : strings) {
        if (!clean(text.c_str(), true) || text.find('"') != std::string::npos) {
            return fail(ERR_FORMAT_ERROR);
        }
    }
    if ((type != KOVA_SHARE_READ_ONLY && type != KOVA_SHARE_READ_WRITE &&
         type != KOVA_SHARE_NO_ACCESS) ||
        browseable > 1 || ftp_write_only > 1 || !contained_path(strings[2].c_str())) {
        return fail(ERR_FORMAT_ERROR);
    }
    KOVASHARE share{};
    share.szName = strings[0].data();
    share.szComment = strings[1].data();
    share.szPath = strings[2].data();
    share.szDenyList = strings[3].data();
    share.szRWList = strings[4].data();
    share.szROList = strings[5].data();
    share.fType = static_cast<int32_t>(type);
    share.browseable = static_cast<int32_t>(browseable);
    share.ftpWriteOnly = static_cast<int32_t>(ftp_write_only);
    return KOVAShareAlloc(ppShare, &share);
}

int KOVASysbkpUserExport(int fd) {
    std::unordered_map<std::string, std::string> names;
    if (!existing_names([](PKLIBSZLIST *list) { return KOVAUserEnum(list, KOVA_USER_MASK_LOCAL); },
                        &names)) {
        return failed(kUserExportEvent);
    }
    const auto hashes = read_smb_hashes();
    std::vector<std::string> ordered;
    for (const auto &entry : names)
        ordered.push_back(entry.second);
    std::sort(ordered.begin(), ordered.end());
    UserList list;
    for (const std::string &name : ordered) {
        PKOVAUSER user = nullptr;
        if (KOVAUserGet(name.c_str(), &user) != 0) {
            log_at(LOG_ERR, Site(), "%s:%d KOVAUserGet [%s] failed. kovaerr=0x%04X", name.c_str(),
                   static_cast<unsigned>(KLIBErrGet()));
            return failed(kUserExportEvent);
        }
        SavedUser saved{user};
        list.users.push_back(saved);
        if (user->uid < kUidFirst || user->uid > kUidLast) {
            list.users.back().lm[0] = '\0';  // marked: not saved
            continue;
        }
        const auto found = hashes.find(upper(name.c_str()));
        const char *none = "XXXXXXXXXXXXXXXXXXXXXXXXXXXXXXXX";
        snprintf(list.users.back().lm, 33, "%s",
                 found != hashes.end() && hex_hash(found->second.lm.c_str())
                     ? found->second.lm.c_str()
                     : none);
        snprintf(list.users.back().nt, 33, "%s",
                 found != hashes.end() && hex_hash(found->second.nt.c_str())
                     ? found->second.nt.c_str()
                     : none);
    }
    uint32_t count = 0;
    for (const SavedUser &saved : list.users)
        count += saved.lm[0] != '\0' ? 1 : 0;
    const bool ok = write_block(fd, KOVA_SYSBKP_USER, "KOVASysbkpUserExport", [&](int out) {
        if (KOVASysbkpIWriteLong(out, count) != 0) return false;
        for (const SavedUser &saved : list.users) {
            if (saved.lm[0] == '\0') continue;
            if (KOVASysbkpIWriteUserData(out, saved.user, saved.lm, saved.nt) != 0) {
                log_at(LOG_ERR, Site(__LINE__, "KOVASysbkpUserExport"),
                       "%s(%d): fail to write user [%s]", saved.user->szName);
                return false;
            }
        }
        return true;
    });
    return ok ? 0 : failed(kUserExportEvent);
}

int KOVASysbkpUserImport(int fd, int, int) {
    return import_users(fd);
}

int KOVASysbkpGroupExport(int fd) {
    PKLIBSZLIST names = PslKLIBSzListAlloc(0);
    if (names == nullptr) return failed(kGroupExportEvent);
    const int n = KOVAGroupEnum(&names);
    std::vector<SavedGroup> groups;
    PKOVAGROUP group = nullptr;
    bool ok = n >= 0;
    for (int i = 0; ok && i < n; ++i) {
        const char *name = SzKLIBSzListGet(names, i);
        ok = KOVAGroupGet(name, &group) == 0;
        if (!ok || group->gid < kGidFirst || group->gid == kNoGroup) continue;
        char description[1024] = "";
        if (KOVAGroupDescGet(name, description, sizeof description) < 0) description[0] = '\0';
        groups.push_back({group->szName, group->gid, group->szMembers, description});
    }
    KOVAGroupFree(group);
    KLIBSzListFree(names);
    ok = ok && write_block(fd, KOVA_SYSBKP_GROUP, "KOVASysbkpGroupExport", [&](int out) {
             if (KOVASysbkpIWriteLong(out, static_cast<uint32_t>(groups.size())) != 0) return false;
             for (const SavedGroup &saved : groups) {
                 if (KOVASysbkpIWriteString(out, saved.name.c_str()) != 0 ||
                     KOVASysbkpIWriteLong(out, saved.gid) != 0 ||
                     KOVASysbkpIWriteString(out, saved.members.c_str()) != 0 ||
                     KOVASysbkpIWriteString(out, saved.description.c_str()) != 0) {
                     log_at(LOG_ERR, Site(__LINE__, "KOVASysbkpGroupExport"),
                            "%s(%d): fail to write group [%s]", saved.name.c_str());
                     return false;
                 }
             }
             return true;
         });
    return ok ? 0 : failed(kGroupExportEvent);
}

int KOVASysbkpGroupImport(int fd, int, int) {
    return import_groups(fd);
}

int KOVASysbkpShareExport(int fd) {
    PKLIBSZLIST names = PslKLIBSzListAlloc(0);
    if (names == nullptr) return failed(kShareExportEvent);
    const int n = KOVAShareEnum(&names);
    ShareList list;
    bool ok = n >= 0;
    for (int i = 0; ok && i < n; ++i) {
        PKOVASHARE share = nullptr;
        ok = KOVAShareGet(SzKLIBSzListGet(names, i), &share) == 0;
        if (ok) list.shares.push_back(share);
    }
    KLIBSzListFree(names);
    std::vector<SavedSection> sections;
    for (const char *name : kReservedSections) {
        PKLIBSZHASH hash = PshKLIBSzHashAlloc(0);
        if (hash == nullptr || KOVAShareRSectionGet(name, &hash) != 0) {
            KLIBSzHashFree(hash);
            continue;  // the section is not in smb.conf
        }
        SavedSection section{name, {}};
        PKLIBSZLIST keys = PslKLIBSzListAlloc(0);
        const int nkeys = keys != nullptr ? KLIBSzHashEnumKey(hash, &keys) : -1;
        for (int k = 0; k < nkeys; ++k) {
            const char *key = SzKLIBSzListGet(keys, k);
            section.pairs.emplace_back(key, SzKLIBSzHashGetValue(hash, key));
        }
        ok = ok && nkeys >= 0;
        KLIBSzListFree(keys);
        KLIBSzHashFree(hash);
        if (!section.pairs.empty()) sections.push_back(std::move(section));
    }
    ok = ok && write_block(fd, KOVA_SYSBKP_SHARE, "KOVASysbkpShareExport", [&](int out) {
             if (KOVASysbkpIWriteLong(out, static_cast<uint32_t>(list.shares.size())) != 0) {
                 return false;
             }
             for (PKOVASHARE share : list.shares) {
                 if (KOVASysbkpIWriteShare(out, share) != 0) return false;
             }
             if (KOVASysbkpIWriteLong(out, static_cast<uint32_t>(sections.size())) != 0)
                 return false;
             for (const SavedSection &section : sections) {
                 if (KOVASysbkpIWriteString(out, section.name.c_str()) != 0 ||
                     KOVASysbkpIWriteLong(out, static_cast<uint32_t>(section.pairs.size())) != 0) {
                     return false;
                 }
                 for (const auto &[key, value] : section.pairs) {
                     if (KOVASysbkpIWriteString(out, key.c_str()) != 0 ||
                         KOVASysbkpIWriteString(out, value.c_str()) != 0) {
                         return false;
                     }
                 }
             }
             return true;
         });
    return ok ? 0 : failed(kShareExportEvent);
}

int KOVASysbkpShareImport(int fd, int, int) {
    return import_shares(fd);
}
