#include <sys/wait.h>

#include <cerrno>

#include "core/raise.h"
#include "core/run.h"
#include "kovasdk/proc.h"
#include "proc/proc_internal.h"

namespace {

// The exit code of a normal exit; -1 for a child killed by a signal or a failed wait, 0 when
// the child was reaped behind our back (SIGCHLD ignored).
int exit_code(pid_t pid) {
    int status = 0;
    if (kova::wait_child(pid, &status) < 0) return errno == ECHILD ? 0 : -1;
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

}  // namespace

int KLIBExec(const char *szPath, const char *szArg1, const char *szArg2, const char *szArg3,
             const char *szArg4) {
    if (szPath == nullptr) {
        kova::raise(ERR_BAD_PARAMETERS);
        return -1;
    }
    kova::proc::ExecArgs args(szPath, szArg1, szArg2, szArg3, szArg4);

    kova::ChildWaitScope waitable;
    kova::ChildSetup setup;
    setup.before_exec = kova::proc::close_held_lock_files;
    setup.new_session = true;
    setup.chdir_root = true;
    setup.clear_env = true;
    const pid_t pid = kova::spawn(szPath, args.argv, setup);
    const int result = pid < 0 ? -1 : exit_code(pid);
    if (result == -1) kova::raise(ERR_OP_FAILURE, 92);
    return result;
}
