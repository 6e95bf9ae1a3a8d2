#include <unistd.h>

#include "core/log.h"
#include "core/raise.h"
#include "kovasdk/proc.h"
#include "proc/proc_internal.h"

namespace {
void log_failure(int line) {
    kova::log(LOG_ERR, "%s(%d) transfer error", "KOVAOperationTransfer", line);
}
}  // namespace

// Hands the caller's entry of op to another process (a daemon the caller started to finish the
// work), which then owns and unregisters it.
int KOVAOperationTransfer(int op, int pid) {
    if (pid < 1) {  // 0 and -1 would name process groups, not a process
        kova::raise(ERR_BAD_PARAMETERS, 30);
        log_failure(31);
        return -1;
    }
    int budget = 2000;
    kova::proc::RegistryLock lock(&budget);
    if (lock.result() < 0) {
        log_failure(36);
        return -1;
    }
    kova::proc::AttachedRegistry attached(false);
    kova::proc::Registry *registry = attached.get();
    const uint32_t self = static_cast<uint32_t>(getpid());
    for (uint32_t i = 0; registry != nullptr && i < registry->count; ++i) {
        kova::proc::RegistryEntry &entry = registry->entries[i];
        if (entry.op == static_cast<uint32_t>(op) && entry.pid == self) {
            entry.pid = static_cast<uint32_t>(pid);
            return 0;
        }
    }
    kova::raise(ERR_OP_UNREGISTERED, 43);
    log_failure(57);
    return -2;
}
