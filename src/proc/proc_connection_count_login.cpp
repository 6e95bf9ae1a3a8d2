#include <cstdlib>

#include "core/paths.h"
#include "core/raise.h"
#include "core/root.h"
#include "kovasdk/file.h"
#include "kovasdk/proc.h"
#include "proc/proc_internal.h"

namespace {

constexpr int kDefaultMaxServices = 32;
int g_max_services = -1;  // "maxservices", read once per process

int max_services() {
    if (g_max_services >= 0) return g_max_services;
    const kova::RootedPath factory(kova::paths::kKovaInfoDefaults);
    char value[16] = "";
    int max = kDefaultMaxServices;
    if (KLIBFileGetKeyValue(factory.c_str(), "maxservices", value, sizeof value, 0) > 0) {
        max = atoi(value);
        if (max < 0) max = kDefaultMaxServices;
    }
    g_max_services = max;
    return max;
}

}  // namespace

namespace kova::proc::testing {
void forget_max_services() {
    g_max_services = -1;
}
}  // namespace kova::proc::testing

// With fLogin a new connection is being made, so the count must stay below the maximum;
// without it the existing ones are checked against it.
int KLIBConnectionCountLogin(int timeout, int fLogin) {
    if (ErrKLIBFileLock(KLIB_LOCK_CONNECT | KLIB_LOCK_EX | KLIB_LOCK_NB, timeout) != 0) {
        kova::raise(ERR_LOCK_FAILED, 30);
        return -1;
    }
    const int max = max_services();
    int count = 0;
    int result;
    if (KLIBConnectionCountGet(&count) != 0) {
        kova::raise(ERR_READ_FAILED, 45);
        result = -1;
    } else if (fLogin ? count < max : count <= max) {
        result = count;
    } else {
        kova::raise(ERR_OP_FAILURE, 52);
        result = -1;
    }
    if (ErrKLIBFileUnlock(KLIB_LOCK_CONNECT) != 0) kova::raise(ERR_UNLOCK_FAILED, 57);
    return result;
}
