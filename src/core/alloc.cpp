#include "core/alloc.h"

#include <cerrno>
#include <cstdlib>

namespace kova {
namespace {
// Test seam only: countdown to an injected failure (0 = never) and a running count.
long g_fail_countdown = 0;
long g_allocations = 0;

bool injected_failure() {
    ++g_allocations;
    if (g_fail_countdown > 0 && --g_fail_countdown == 0) {
        errno = ENOMEM;
        return true;
    }
    return false;
}
}  // namespace

void *xmalloc(size_t size) {
    return injected_failure() ? nullptr : malloc(size);
}

void *xcalloc(size_t count, size_t size) {
    return injected_failure() ? nullptr : calloc(count, size);
}

void *xrealloc(void *block, size_t size) {
    return injected_failure() ? nullptr : realloc(block, size);
}

namespace testing {
void fail_allocation(long nth) {
    g_fail_countdown = nth;
}
long allocation_count() {
    return g_allocations;
}
}  // namespace testing

}  // namespace kova
