#include "core/paths.h"
#include "core/root.h"
#include "kovasdk/file.h"

namespace {
constexpr int kLockSeconds = 5;
}  // namespace

int KOVAINFOSetKeyValue(const char *szKey, const char *szValue) {
    if (ErrKLIBFileLock(KLIB_LOCK_KOVAINFO | KLIB_LOCK_EX | KLIB_LOCK_NB, kLockSeconds) != 0) {
        return -1;
    }
    const kova::RootedPath path(kova::paths::kKovaInfo);
    const int set = KLIBFileSetKeyValue(path.c_str(), szKey, szValue, KLIB_FILE_FORMAT_QUOTED);
    const int unlocked = ErrKLIBFileUnlock(KLIB_LOCK_KOVAINFO);
    return set == 1 && unlocked == 0 ? 0 : -1;
}
