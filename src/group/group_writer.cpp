// The frame every group change runs in.
#include "group/group_internal.h"
#include "kovasdk/file.h"

namespace kova::group {
namespace {
constexpr int kLockSeconds = 30;
}

Writer::Writer() {
    if (ErrKLIBFileLock(KLIB_LOCK_GR | KLIB_LOCK_EX | KLIB_LOCK_NB, kLockSeconds) != 0) return;
    locked_ = true;
    live_ = KOVAGroupDBOpen();
    if (live_ != nullptr) change_.emplace(family(), as_handle(&live_));
}

Writer::~Writer() {
    change_.reset();
    if (live_ != nullptr) KOVAGroupDBClose(live_);
    if (locked_) ErrKLIBFileUnlock(KLIB_LOCK_GR);
}

int Writer::finish() {
    if (KOVAGroupDBDump(db()) != 0) return -1;
    // The text files are the groups; a cache that could not be put in place is rebuilt by the
    // next reader.
    if (!change_->install()) {
        log_at(LOG_ERR, Site(), "%s:%d the group cache stays to be rebuilt. kovaerr=0x%04X",
               KLIBErrGet());
    }
    return 0;
}

}  // namespace kova::group
