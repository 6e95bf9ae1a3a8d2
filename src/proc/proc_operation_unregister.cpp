#include <unistd.h>

#include "core/raise.h"
#include "kovasdk/proc.h"
#include "proc/proc_internal.h"

int KOVAOperationUnregister(int op) {
    int budget = 2000;
    kova::proc::RegistryLock lock(&budget);
    if (lock.result() < 0) return -1;
    kova::proc::AttachedRegistry attached(false);
    kova::proc::Registry *registry = attached.get();
    if (registry == nullptr) {
        kova::raise(ERR_OUT_OF_MEMORY, 48);
        return -1;
    }
    kova::raise(ERR_OP_UNREGISTERED, 34);  // set before the search and left set on success (kept)
    const uint32_t self = static_cast<uint32_t>(getpid());
    for (uint32_t i = 0; i < registry->count; ++i) {
        const kova::proc::RegistryEntry &entry = registry->entries[i];
        if (entry.op == static_cast<uint32_t>(op) && entry.pid == self) {
            kova::proc::remove_entry(registry, i);
            return 0;
        }
    }
    return -2;
}
