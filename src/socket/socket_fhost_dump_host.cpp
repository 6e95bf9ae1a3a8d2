#include <sys/stat.h>

#include <cstdio>

#include "core/fail.h"
#include "core/root.h"
#include "core/run.h"
#include "core/sys.h"
#include "kovasdk/file.h"
#include "kovasdk/proc.h"
#include "kovasdk/socket.h"
#include "socket/socket_internal.h"

using namespace kova::socket;

namespace {

// Starts the daemon and gives it time to write its pid file; the start is judged by that file.
bool start_daemon() {
    kova::log_at(LOG_ERR, kova::Site(), kLogDaemonDown);
    const kova::RootedPath daemon(kFindhostd);
    // The daemon forks into the background itself, so this returns at once.
    KLIBExec(daemon.c_str(), nullptr, nullptr, nullptr, nullptr);
    kova::sys::sleep(kDaemonStartSeconds);
    return KLIBReadPidFile(kova::RootedPath(kFindhostdPidFile).c_str()) >= 1;
}

// The daemon appends to the list; it must exist before the answers come in.
void make_list(const char *path) {
    struct stat st {};
    if (stat(path, &st) == 0) return;
    char word[2 * PATH_MAX];
    if (!kova::shell_word(path, word, sizeof word)) return;
    char command[kCommandSize];
    const int n = snprintf(command, sizeof command, "%s %s > /dev/null 2>&1",
                           kova::ProgramPath(kTouch).shell_word(), word);
    if (n < 0 || n >= static_cast<int>(sizeof command)) return;
    kova::run_shell(command);
}

}  // namespace

int KOVAFHOSTDumpHost(void) {
    if (!BlKLIBIIsProcAlive(kFindhostdName) && !start_daemon()) {
        return kova::fail(ERR_UNKNOWN);
    }
    const kova::RootedPath list(kHostList);
    make_list(list.c_str());
    if (ErrFHOSTSendQueryPkt() != 0) {
        return kova::fail(ERR_UNKNOWN, kova::Site(), kLogQueryFailed);
    }
    kova::sys::sleep(kCollectSeconds);
    // A list nobody answered to is simply absent; the reader reports that.
    KLIBSysRename(list.c_str(), kova::RootedPath(kHostListTaken).c_str());
    return 0;
}
