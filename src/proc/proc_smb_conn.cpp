#include <pwd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "core/owners.h"
#include "core/paths.h"
#include "core/raise.h"
#include "core/root.h"
#include "kovasdk/file.h"
#include "kovasdk/proc.h"
#include "proc/proc_smb.h"

namespace kova::proc {
namespace {

struct Search {
    long uid;  // -1: any user
    int *pids;
    int max;
    int found;
};

// The value after "Key:" and its blanks, from a status line.
const char *status_value(const char *line) {
    const char *colon = strchr(line, ':');
    if (colon == nullptr) return "";
    return colon + 1 + strspn(colon + 1, " \t");
}

void match_connection(const char *status_path, void *context) {
    auto *search = static_cast<Search *>(context);
    char line[384];
    if (KLIBFileGetLine(status_path, "Name:", line, sizeof line, KLIB_FILE_MATCH_PREFIX) <= 0)
        return;
    if (strcmp(status_value(line), "smbd") != 0) return;
    if (KLIBFileGetLine(status_path, "Uid:", line, sizeof line, KLIB_FILE_MATCH_PREFIX) <= 0)
        return;
    char *rest = nullptr;
    strtol(status_value(line), &rest, 10);             // real uid
    const long effective = strtol(rest, nullptr, 10);  // the served user's, once logged in
    if (effective == 0 || (search->uid >= 0 && effective != search->uid)) return;
    const int pid = pid_of_status_path(status_path);
    if (pid < 1) return;
    if (search->found < search->max) search->pids[search->found] = pid;
    ++search->found;
}

}  // namespace

long smb_user_uid(const char *user) {
    const RootedPath passwd(paths::kPasswd);
    UniqueFile file(fopen(passwd.c_str(), "r"));
    if (!file) {
        raise(ERR_OPEN_FAILED);
        return -1;
    }
    while (struct passwd *entry = fgetpwent(file.get())) {
        if (strcmp(entry->pw_name, user) == 0) return static_cast<long>(entry->pw_uid);
    }
    raise(ERR_NO_SUCH_USER);
    return -1;
}

int smb_connections(long uid, int *pids, int max) {
    Search search{uid, pids, max, 0};
    if (!for_each_process_status(match_connection, &search)) {
        raise(ERR_READ_FAILED);
        return -1;
    }
    return search.found;
}

}  // namespace kova::proc
