// The frame every account change runs in.
#include "kovasdk/file.h"
#include "user/user_internal.h"

namespace kova::user {
namespace {
constexpr int kLockSeconds = 30;
}

Writer::Writer() {
    if (ErrKLIBFileLock(KLIB_LOCK_PW | KLIB_LOCK_EX | KLIB_LOCK_NB, kLockSeconds) != 0) return;
    locked_ = true;
    live_ = KOVAUserDBOpen();
    if (live_ != nullptr) change_.emplace(family(), as_handle(&live_));
}

Writer::~Writer() {
    change_.reset();
    if (live_ != nullptr) KOVAUserDBClose(live_);
    if (locked_) ErrKLIBFileUnlock(KLIB_LOCK_PW);
}

int Writer::finish() {
    if (KOVAUserDBDump(db()) != 0) return -1;
    // The text files are the account; a cache that could not be put in place is rebuilt by
    // the next reader.
    if (!change_->install()) {
        log_at(LOG_ERR, Site(), "%s:%d the user cache stays to be rebuilt. kovaerr=0x%04X",
               KLIBErrGet());
    }
    return 0;
}

}  // namespace kova::user
