#include <sys/wait.h>

#include "core/raise.h"
#include "core/run.h"
#include "kovasdk/proc.h"

// The child keeps the caller's session, directory, environment and lock files; beyond a null
// argument no error code is set on any path (kept as it is).
int KLIBExecv(const char *szPath, char *const rgszArgv[], int fWait) {
    if (szPath == nullptr || rgszArgv == nullptr) {
        kova::raise(ERR_BAD_PARAMETERS);
        return -1;
    }
    kova::ChildWaitScope waitable;
    kova::ChildSetup setup;
    setup.on_exec_failure = kova::ChildSetup::OnExecFailure::abort;
    const pid_t pid = kova::spawn(szPath, rgszArgv, setup);
    if (pid < 0) return -1;
    if (!fWait) return 0;
    int status = 0;
    if (kova::wait_child(pid, &status) < 0) return -1;
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}
