// The frame every group change runs in: the group file lock and the group cache.
#include "group/group_internal.h"
#include "kovasdk/file.h"

namespace kova::group {
namespace {

int dump(void *handle) {
    return KOVAGroupDBDump(static_cast<PKOVAGROUPDB>(handle));
}

constexpr cache::WriterOps kOps = {KLIB_LOCK_GR, dump, nullptr};

}  // namespace

Writer::Writer() : cache::Writer(family(), kOps) {}

}  // namespace kova::group
