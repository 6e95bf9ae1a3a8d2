#include <cerrno>
#include <cstdlib>
#include <cstring>

#include "core/owners.h"
#include "core/root.h"
#include "proc/proc_internal.h"

namespace kova::proc {

bool for_each_process_status(void (*visit)(const char *status_path, void *context), void *context) {
    const RootedPath pattern(kProcStatusGlob);
    UniqueGlob listing;
    const int rc = listing.run(pattern.c_str(), 0);
    if (rc == GLOB_NOMATCH) return true;
    if (rc != 0) {
        errno = rc == GLOB_NOSPACE ? ENOMEM : EIO;
        return false;
    }
    for (size_t i = 0; i < listing.get().gl_pathc; ++i)
        visit(listing.get().gl_pathv[i], context);
    return true;
}

int pid_of_status_path(const char *status_path) {
    const char *end = strrchr(status_path, '/');
    if (end == nullptr) return -1;
    const char *start = end;
    while (start > status_path && start[-1] >= '0' && start[-1] <= '9')
        --start;
    if (start == end) return -1;
    return static_cast<int>(strtol(start, nullptr, 10));
}

}  // namespace kova::proc
