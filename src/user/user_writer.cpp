// The frame every account change runs in: the user file lock and the user cache.
#include "kovasdk/file.h"
#include "user/user_internal.h"

namespace kova::user {
namespace {

int dump(void *handle) {
    return KOVAUserDBDump(static_cast<PKOVAUSERDB>(handle));
}

constexpr cache::WriterOps kOps = {KLIB_LOCK_PW, dump, nullptr};

}  // namespace

Writer::Writer() : cache::Writer(family(), kOps) {}

}  // namespace kova::user
