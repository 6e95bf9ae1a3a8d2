#include "core/raise.h"
#include "core/run.h"
#include "kovasdk/proc.h"
#include "proc/proc_internal.h"

// Unlike KLIBExec, the child keeps the caller's session, directory and environment (kept as
// it is).
int KLIBBackgroundExec(const char *szPath, const char *szArg1, const char *szArg2,
                       const char *szArg3, const char *szArg4) {
    if (szPath == nullptr) {
        kova::raise(ERR_BAD_PARAMETERS);
        return -1;
    }
    kova::proc::ExecArgs args(szPath, szArg1, szArg2, szArg3, szArg4);

    kova::ChildSetup setup;
    setup.before_exec = kova::proc::close_held_lock_files;
    setup.on_exec_failure = kova::ChildSetup::OnExecFailure::abort;
    const pid_t pid = kova::spawn(szPath, args.argv, setup);
    if (pid < 0) {
        kova::raise(ERR_OP_FAILURE, 57);
        return -1;
    }
    return pid;
}
