#include <signal.h>
#include <unistd.h>

#include <algorithm>

#include "core/raise.h"
#include "kovasdk/proc.h"
#include "proc/proc_internal.h"

namespace {

using kova::proc::kRegistrySlots;
using kova::proc::Registry;

struct Conflicts {
    int hard[kRegistrySlots];
    int hard_count = 0;
    int soft[kRegistrySlots];
    int soft_count = 0;
};

// Purges entries of dead processes and collects the live entries that block op.
Conflicts walk(Registry *registry, int op) {
    const uint32_t mine = kova::proc::class_of(static_cast<uint32_t>(op)).bit;
    Conflicts found;
    for (uint32_t i = 0; i < registry->count && i < kRegistrySlots;) {
        const kova::proc::RegistryEntry entry = registry->entries[i];
        if (kill(static_cast<pid_t>(entry.pid), 0) != 0) {
            kova::proc::remove_entry(registry, i);
            continue;
        }
        const kova::proc::ClassMasks &running = kova::proc::class_of(entry.op);
        if ((running.hard & mine) != 0) {
            found.hard[found.hard_count++] = static_cast<int>(entry.op);
        } else if ((running.soft & mine) != 0) {
            found.soft[found.soft_count++] = static_cast<int>(entry.op);
        }
        ++i;
    }
    return found;
}

// Hands the caller as many ids as fit and the number there were.
void report(const int *ids, int count, int *rgConflict, int *pcConflict) {
    std::copy_n(ids, std::min(count, *pcConflict), rgConflict);
    *pcConflict = count;
}

}  // namespace

int KOVAOperationRegister(int op, int flags, int *rgConflict, int *pcConflict, int msBudget) {
    if (op < 0 || op >= kova::proc::kOperationIdLimit || rgConflict == nullptr ||
        pcConflict == nullptr || msBudget < 0 || *pcConflict < 0) {
        kova::raise(ERR_BAD_PARAMETERS, 36);
        if (pcConflict != nullptr) *pcConflict = 0;
        return -1;
    }
    int budget = msBudget;
    Conflicts last;
    for (bool first = true;; first = false) {
        {
            kova::proc::RegistryLock lock(&budget);
            if (lock.result() == -2 && !first) break;
            if (lock.result() < 0) {
                if (lock.result() == -2) kova::raise(ERR_TIMER_EXPIRED, 48);
                *pcConflict = 0;
                return -1;
            }
            kova::proc::AttachedRegistry attached(true);
            Registry *registry = attached.get();
            if (registry == nullptr) {
                kova::raise(ERR_OUT_OF_MEMORY, 112);
                *pcConflict = 0;
                return -1;
            }
            last = walk(registry, op);
            const bool soft_pass = (flags & KOVA_OP_FLAG_SOFT_PASS) != 0;
            if (last.hard_count == 0 && (last.soft_count == 0 || soft_pass)) {
                *pcConflict = 0;
                if (registry->count >= kRegistrySlots) {
                    kova::raise(ERR_NOT_ENOUGH_SPACE, 92);
                    return -1;
                }
                if ((flags & KOVA_OP_FLAG_TEST_ONLY) == 0) {
                    registry->entries[registry->count++] = {static_cast<uint32_t>(op),
                                                            static_cast<uint32_t>(getpid())};
                }
                return 0;
            }
        }
        usleep(kova::proc::kStepMs * 1000);
        budget -= kova::proc::kStepMs;
        if (budget < 0) break;
    }
    if (last.hard_count > 0) {
        report(last.hard, last.hard_count, rgConflict, pcConflict);
        return 1;
    }
    report(last.soft, last.soft_count, rgConflict, pcConflict);
    return 2;
}
