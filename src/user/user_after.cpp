// What follows a change of accounts, in the defined order: the file-sharing configuration and
// group memberships (with the share and group families), the Apple file service's guest
// module, the network-backup credentials, the mail group, the home folder, the FTP chroot list.
// Each failure is logged with its step and does not undo the account.
#include <strings.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <climits>
#include <cstdio>
#include <cstring>
#include <string_view>

#include "core/rewrite.h"
#include "core/root.h"
#include "kovasdk/proc.h"
#include "user/user_internal.h"

namespace kova::user {
namespace {

constexpr char kGuestModule[] = "uams_guest.so";
constexpr char kNoGuestModule[] = "uams_noguest.so";
constexpr char kUamList[] = "-uamlist";

void step_failed(const char *step) {
    log_at(LOG_ERR, Site(), "%s:%d %s failed. kovaerr=0x%04X", step, KLIBErrGet());
}

// The user's first field ("name" or "name:...") in a line of a per-user list.
bool names_user(std::string_view line, const char *name) {
    const size_t end = line.find_first_of(":\n");
    const std::string_view first = line.substr(0, end);
    return first.size() == strlen(name) && strncasecmp(first.data(), name, first.size()) == 0;
}

// Rewrites a per-user list: the lines of old_name (and of the user's name) give way to line
// (nothing when it is null), appended at the end. A missing list is created.
bool update_list(const char *list, const char *old_name, const char *name, const char *line) {
    const RootedPath path(list);
    Rewrite rewrite(path.c_str(), {});
    const Rewrite::Opened opened = rewrite.open();
    if (opened == Rewrite::Opened::kFailed) return false;
    if (opened == Rewrite::Opened::kMissing) {
        if (line == nullptr) return true;
        if (!rewrite.start_new(0644)) return false;
    }
    const bool kept = rewrite.each_line([&](LineReader &reader) {
        if (names_user(reader.line(), name) ||
            (old_name != nullptr && names_user(reader.line(), old_name))) {
            return true;
        }
        return rewrite.put(reader.line());
    });
    if (!kept) return false;
    if (line != nullptr && !(rewrite.put(line) && rewrite.put("\n"))) return false;
    return rewrite.commit();
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

void mail_group(const char *old_name, const KOVAUSER &user) {
    const bool has_mail = user.szMail != nullptr && user.szMail[0] != '\0';
    char line[1024];
    snprintf(line, sizeof line, "%s:%s", user.szName, has_mail ? user.szMail : "");
    if (!update_list(kMailGroup, old_name, user.szName, has_mail ? line : nullptr)) {
        step_failed("mail group");
    }
}

void ftp_chroot(const char *old_name, const KOVAUSER &user) {
    // The administrator sees every share; everyone else stays in the home folder.
    const bool chrooted = strcasecmp(user.szName, kAdmin) != 0;
    if (!update_list(kFtpChroot, old_name, user.szName, chrooted ? user.szName : nullptr)) {
        step_failed("FTP chroot list");
    }
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

// Arrive with the share and group families; their places in the order are kept here.
void modify_smb_conf(const KOVAUSER *, const KOVAUSER *) {}
void modify_group(const KOVAUSER *, const KOVAUSER *) {}
// The network-backup daemon keeps its own credentials; told of renames and deletions.
void modify_network_backup(const KOVAUSER *, const KOVAUSER *) {}

void after_set(const KOVAUSER *old_user, const KOVAUSER &user) {
    const char *old_name = old_user != nullptr ? old_user->szName : nullptr;
    modify_smb_conf(old_user, &user);
    modify_group(old_user, &user);
    afp_guest_module(user);
    modify_network_backup(old_user, &user);
    mail_group(old_name, user);
    home_folder(old_user, user);
    ftp_chroot(old_name, user);
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
