// What follows a change of accounts, in the defined order: the file-sharing configuration and
// group memberships (with the share and group families), the Apple file service's guest
// module, the network-backup credentials, the mail group, the home folder, the FTP chroot list.
// Each failure is logged with its step and does not undo the account.
#include <strings.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstdio>
#include <cstring>
#include <span>
#include <string_view>

#include "core/alloc.h"
#include "core/rewrite.h"
#include "core/root.h"
#include "kovasdk/proc.h"
#include "user/user_internal.h"

namespace kova::user {
namespace {

constexpr char kGuestModule[] = "uams_guest.so";
constexpr char kNoGuestModule[] = "uams_noguest.so";
constexpr char kUamList[] = "-uamlist";
constexpr size_t kMailLineSize = 1024;

void step_failed(const char *step) {
    log_at(LOG_ERR, Site(), "%s:%d %s failed. kovaerr=0x%04X", step, KLIBErrGet());
}

// One user's line in a per-user list: the lines naming old_name or name give way to line
// (nothing when it is null), appended at the end.
struct ListChange {
    const char *old_name;
    const char *name;
    const char *line;
};

int compare_names(const void *a, const void *b) {
    return strcasecmp(*static_cast<const char *const *>(a), *static_cast<const char *const *>(b));
}

// The names whose lines a rewrite drops, sorted for lookup.
class Names {
  public:
    explicit Names(std::span<const ListChange> changes)
        : names_(static_cast<const char **>(xcalloc(2 * changes.size() + 1, sizeof(char *)))) {
        if (names_ == nullptr) return;
        for (const ListChange &change : changes) {
            names_[count_++] = change.name;
            if (change.old_name != nullptr) names_[count_++] = change.old_name;
        }
        qsort(names_, count_, sizeof *names_, compare_names);
    }
    Names(const Names &) = delete;
    Names &operator=(const Names &) = delete;
    ~Names() { free(names_); }
    bool ok() const { return names_ != nullptr; }

    // Whether the line's first field ("name" or "name:...") is one of the names.
    bool names(std::string_view line) const {
        char first[4 * KOVA_USER_NAME_MAX_CHARS + 1];
        const size_t end = std::min(line.find_first_of(":\n"), line.size());
        if (end >= sizeof first) return false;
        memcpy(first, line.data(), end);
        first[end] = '\0';
        const char *key = first;
        return bsearch(&key, names_, count_, sizeof *names_, compare_names) != nullptr;
    }

  private:
    const char **names_;
    size_t count_ = 0;
};

// Rewrites a per-user list once for all the changes. A missing list is created.
bool update_list(const char *list, std::span<const ListChange> changes) {
    const Names names(changes);
    if (!names.ok()) {
        fail(ERR_OUT_OF_MEMORY);
        return false;
    }
    const RootedPath path(list);
    Rewrite rewrite(path.c_str(), {});
    const Rewrite::Opened opened = rewrite.open();
    if (opened == Rewrite::Opened::kFailed) return false;
    const bool adds = std::any_of(changes.begin(), changes.end(),
                                  [](const ListChange &change) { return change.line != nullptr; });
    if (opened == Rewrite::Opened::kMissing) {
        if (!adds) return true;
        if (!rewrite.start_new(0644)) return false;
    }
    const bool kept = rewrite.each_line([&](LineReader &reader) {
        return names.names(reader.line()) || rewrite.put(reader.line());
    });
    if (!kept) return false;
    for (const ListChange &change : changes) {
        if (change.line != nullptr && !(rewrite.put(change.line) && rewrite.put("\n"))) {
            return false;
        }
    }
    return rewrite.commit();
}

bool update_list(const char *list, const char *old_name, const char *name, const char *line) {
    const ListChange change{old_name, name, line};
    return update_list(list, {&change, 1});
}

// The guest module follows the guest account: offered while it is not expired.
void afp_guest_module(const KOVAUSER &user) {
    if (strcasecmp(user.szName, kGuest) != 0) return;
    const bool enabled = user.expireDay <= 0 || KOVAUserIsExpired(user.expireDay) == 0;
    const char *from = enabled ? kNoGuestModule : kGuestModule;
    const char *to = enabled ? kGuestModule : kNoGuestModule;
    const RootedPath path(kAfpdConf);
    const RootedPath tmp(kAfpdConfTmp);
    Rewrite rewrite(path.c_str(), {}, tmp.c_str());
    if (rewrite.open() != Rewrite::Opened::kOk) return step_failed("afpd.conf guest module");
    const bool ok = rewrite.each_line([&](LineReader &reader) {
        const std::string_view line = reader.line();
        const size_t at = line.find(from);
        if (line.find(kUamList) == std::string_view::npos || at == std::string_view::npos ||
            (at > 0 && line[at - 1] != ' ' && line[at - 1] != ',')) {
            return rewrite.put(line);
        }
        return rewrite.put(line.substr(0, at)) && rewrite.put(to) &&
               rewrite.put(line.substr(at + strlen(from)));
    });
    if (!ok || !rewrite.commit()) step_failed("afpd.conf guest module");
}

void home_folder(const KOVAUSER *old_user, const KOVAUSER &user) {
    const RootedPath home(user.szHomeDir);
    if (old_user != nullptr && strcmp(old_user->szHomeDir, user.szHomeDir) != 0) {
        const RootedPath old_home(old_user->szHomeDir);
        struct stat st {};
        if (stat(old_home.c_str(), &st) != 0) return;  // nothing to move
        if (strchr(old_home.c_str(), '\'') != nullptr || strchr(home.c_str(), '\'') != nullptr) {
            return step_failed("home folder rename");
        }
        char command[2 * PATH_MAX + 64];
        snprintf(command, sizeof command, "mv '%s' '%s' > /dev/null 2>&1", old_home.c_str(),
                 home.c_str());
        if (KLIBSystem(command) != 0) step_failed("home folder rename");
        return;
    }
    if (old_user != nullptr) return;
    const RootedPath homes(kHomesRoot);
    mkdir(homes.c_str(), 0755);
    if (mkdir(home.c_str(), 0700) != 0 && errno != EEXIST) return step_failed("home folder");
    if (chown(home.c_str(), user.uid, user.gid) != 0 && geteuid() == 0) {
        step_failed("home folder owner");
    }
}

}  // namespace

// modify_smb_conf and modify_group are the share and group families'.
// The network-backup daemon keeps its own credentials; told of renames and deletions.
void modify_network_backup(const KOVAUSER *, const KOVAUSER *) {}

// The per-user lists are rewritten once for all the users of a change.
void after_set(std::span<const Changed> users) {
    for (const Changed &changed : users) {
        modify_smb_conf(changed.old, changed.user);
        modify_group(changed.old, changed.user);
        afp_guest_module(*changed.user);
        modify_network_backup(changed.old, changed.user);
    }
    const size_t n = users.size();
    auto *changes = static_cast<ListChange *>(xcalloc(n, sizeof(ListChange)));
    auto *mail = static_cast<char(*)[kMailLineSize]>(xcalloc(n, kMailLineSize));
    const bool lists = changes != nullptr && mail != nullptr;
    if (!lists) fail(ERR_OUT_OF_MEMORY);
    for (size_t i = 0; lists && i < n; ++i) {
        const KOVAUSER &user = *users[i].user;
        const bool has_mail = user.szMail != nullptr && user.szMail[0] != '\0';
        snprintf(mail[i], kMailLineSize, "%s:%s", user.szName, has_mail ? user.szMail : "");
        const char *old_name = users[i].old != nullptr ? users[i].old->szName : nullptr;
        changes[i] = {old_name, user.szName, has_mail ? mail[i] : nullptr};
    }
    if (!lists || !update_list(kMailGroup, {changes, n})) step_failed("mail group");
    for (const Changed &changed : users)
        home_folder(changed.old, *changed.user);
    for (size_t i = 0; lists && i < n; ++i) {
        // The administrator sees every share; everyone else stays in the home folder.
        const char *name = changes[i].name;
        changes[i].line = strcasecmp(name, kAdmin) != 0 ? name : nullptr;
    }
    if (!lists || !update_list(kFtpChroot, {changes, n})) step_failed("FTP chroot list");
    free(mail);
    free(changes);
}

void after_delete(const KOVAUSER &user) {
    modify_smb_conf(&user, nullptr);
    modify_group(&user, nullptr);
    char command[PATH_MAX + 512];
    snprintf(command, sizeof command, "/bin/rm -rf %s/'%s' > /dev/null 2>&1",
             RootedPath(kHomesRoot).c_str(), user.szName);
    if (KLIBSystem(command) != 0) step_failed("home folder removal");
    if (!update_list(kFtpChroot, nullptr, user.szName, nullptr)) step_failed("FTP chroot list");
    if (!update_list(kMailGroup, nullptr, user.szName, nullptr)) step_failed("mail group");
}

}  // namespace kova::user
