#include "kovasdk/file.h"
#include "proc/proc_internal.h"

namespace kova::proc {

// In the child, before exec: the lock files stay with the caller. Closing the child's copies
// leaves the caller's locks in place, and the program never keeps one alive past its release.
void close_held_lock_files() {
    ErrKLIBFileCloseLock();
}

}  // namespace kova::proc
