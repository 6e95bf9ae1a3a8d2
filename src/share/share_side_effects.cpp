// What follows a share outside smb.conf: its folder (made, moved with its path, taken away on
// deletion through the volume's "@tmp"), and the settings that name the share (the USB copy
// destination and the anonymous FTP root in kovainfo.conf, the local backup destination) or
// its path (the network file system exports). Failures are logged; the share stands.
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <climits>
#include <cstring>
#include <string_view>

#include "core/line_reader.h"
#include "core/rewrite.h"
#include "core/root.h"
#include "kovasdk/file.h"
#include "kovasdk/proc.h"
#include "share/share_internal.h"

namespace kova::share {
namespace {

constexpr char kKovaInfo[] = "/etc/kovainfo.conf";
constexpr char kLocalBackup[] = "/etc/kovalocalbkp.conf";
constexpr char kExports[] = "/etc/exports";
constexpr const char *kShareKeys[] = {"usbcopyfolder", "ftpanonymousroot"};

void step_failed(const char *step, const char *share) {
    log_at(LOG_ERR, Site(), "%s:%d %s of share [%s] failed. errno=%d/%m", step, share, errno);
}

// Every directory of path made, the last one open to everybody and given to root.
bool make_folder(const char *path) {
    char partial[PATH_MAX];
    snprintf(partial, sizeof partial, "%s", path);
    for (char *slash = strchr(partial + 1, '/');; slash = strchr(slash + 1, '/')) {
        if (slash != nullptr) *slash = '\0';
        if (mkdir(partial, 0755) != 0 && errno != EEXIST) return false;
        if (slash == nullptr) break;
        *slash = '/';
    }
    if (chmod(path, 0777) != 0) return false;
    return geteuid() != 0 || chown(path, 0, 0) == 0;
}

// "<volume>/@tmp": below the first directory of the share's path.
void tmp_dir_of(const char *path, char (&out)[PATH_MAX]) {
    const char *second = strchr(path + 1, '/');
    const int volume = second != nullptr ? static_cast<int>(second - path) : 0;
    snprintf(out, sizeof out, "%.*s/@tmp", volume, path);
}

// A settings key that names the share: renamed with it, emptied when it goes.
void follow_in_settings(const char *path, const char *key, const char *old_name, const char *name) {
    char value[256];
    const RootedPath file(path);
    if (KLIBFileGetKeyValue(file.c_str(), key, value, sizeof value, 0) <= 0) return;
    if (strcmp(value, old_name) != 0) return;
    if (KLIBFileSetKeyValue(file.c_str(), key, name != nullptr ? name : "",
                            KLIB_FILE_FORMAT_QUOTED) != 1) {
        step_failed(key, old_name);
    }
}

// The exports lines of old_path: given new_path, or dropped when it is null.
void follow_in_exports(const char *old_path, const char *new_path) {
    const RootedPath exports(kExports);
    Rewrite rewrite(exports.c_str(), {});
    if (rewrite.open() != Rewrite::Opened::kOk) return;  // no exports: nothing names the share
    const size_t len = strlen(old_path);
    bool changed = false;
    const bool ok = rewrite.each_line([&](LineReader &reader) {
        const std::string_view line = reader.line();
        const bool names = line.size() > len && line.compare(0, len, old_path) == 0 &&
                           (line[len] == ' ' || line[len] == '\t');
        if (!names) return rewrite.put(line);
        changed = true;
        return new_path == nullptr || (rewrite.put(new_path) && rewrite.put(line.substr(len)));
    });
    if (!ok || (changed && !rewrite.commit())) step_failed("exports", old_path);
}

void follow(const char *old_name, const char *name, const char *old_path, const char *path) {
    if (old_name != nullptr && (name == nullptr || strcmp(old_name, name) != 0)) {
        if (ErrKLIBFileLock(KLIB_LOCK_KOVAINFO | KLIB_LOCK_EX, 10) == 0) {
            for (const char *key : kShareKeys)
                follow_in_settings(kKovaInfo, key, old_name, name);
            ErrKLIBFileUnlock(KLIB_LOCK_KOVAINFO);
        }
        follow_in_settings(kLocalBackup, "dest_share", old_name, name);
    }
    if (old_path != nullptr && (path == nullptr || strcmp(old_path, path) != 0)) {
        if (ErrKLIBFileLock(KLIB_LOCK_EXPORTS | KLIB_LOCK_EX, 10) == 0) {
            follow_in_exports(old_path, path);
            ErrKLIBFileUnlock(KLIB_LOCK_EXPORTS);
        }
    }
}

}  // namespace

void after_share_set(const KOVASHARE *old, const KOVASHARE &share) {
    const RootedPath folder(share.szPath);
    struct stat st {};
    if (old != nullptr && strcmp(old->szPath, share.szPath) != 0 &&
        stat(RootedPath(old->szPath).c_str(), &st) == 0 && stat(folder.c_str(), &st) != 0) {
        // Moved with its path: within a volume a rename, across volumes the move program.
        const RootedPath from(old->szPath);
        char parent[PATH_MAX];
        snprintf(parent, sizeof parent, "%s", folder.c_str());
        if (char *slash = strrchr(parent, '/'); slash != nullptr && slash != parent) {
            *slash = '\0';
            make_folder(parent);
        }
        if (rename(from.c_str(), folder.c_str()) != 0 &&
            (errno != EXDEV ||
             KLIBExec("mv", from.c_str(), folder.c_str(), nullptr, nullptr) != 0)) {
            step_failed("move", share.szName);
        }
    } else if (stat(folder.c_str(), &st) != 0 && !make_folder(folder.c_str())) {
        step_failed("folder", share.szName);
    }
    if (old != nullptr) follow(old->szName, share.szName, old->szPath, share.szPath);
}

void after_share_delete(const KOVASHARE &share) {
    const RootedPath folder(share.szPath);
    struct stat st {};
    if (stat(folder.c_str(), &st) == 0) {
        // Out of sight at once through the volume's "@tmp", then removed in the background.
        char tmp_dir[PATH_MAX], gone[PATH_MAX];
        tmp_dir_of(share.szPath, tmp_dir);
        const RootedPath tmp(tmp_dir);
        mkdir(tmp.c_str(), 0700);
        const int n = snprintf(gone, sizeof gone, "%s/%s.%d", tmp.c_str(), share.szName,
                               static_cast<int>(getpid()));
        if (n < 0 || static_cast<size_t>(n) >= sizeof gone || rename(folder.c_str(), gone) != 0 ||
            KLIBBackgroundExec("rm", "-rf", gone, nullptr, nullptr) < 0) {
            step_failed("folder removal", share.szName);
        }
    }
    follow(share.szName, nullptr, share.szPath, nullptr);
}

}  // namespace kova::share
