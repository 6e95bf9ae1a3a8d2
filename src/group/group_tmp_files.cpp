// The two temporary files of a dump: removed after a failure, renamed over their targets to
// commit, and the recovery after a writer was killed between the two renames.
#include <sys/stat.h>

#include <cerrno>

#include "core/root.h"
#include "core/sys.h"
#include "group/group_internal.h"
#include "kovasdk/file.h"

namespace {

struct TmpFile {
    const char *tmp;
    const char *target;
};
constexpr TmpFile kTmpFiles[] = {
    {kova::group::kGroupTmp, kova::group::kGroup},
    {kova::group::kGroupDescTmp, kova::group::kGroupDesc},
};

bool exists(const char *path) {
    struct stat st {};
    return lstat(kova::RootedPath(path).c_str(), &st) == 0;
}

}  // namespace

namespace kova::group {

// The group file is renamed first: while its temporary file is there nothing was committed and
// both go; once it is gone the description file's is rolled forward. A writer at work holds
// the lock, and its files are left alone.
void recover_text_files() {
    if (!exists(kGroupTmp) && !exists(kGroupDescTmp)) return;
    const uint32_t saved = KLIBErrGet();
    if (ErrKLIBFileLock(KLIB_LOCK_GR | KLIB_LOCK_EX | KLIB_LOCK_NB, 0) != 0) {
        KLIBErrSet(saved);
        return;
    }
    if (exists(kGroupTmp)) {
        GROUPIRemoveTempFiles();
    } else {
        GROUPIRenameTempFiles();
    }
    ErrKLIBFileUnlock(KLIB_LOCK_GR);
    KLIBErrSet(saved);
}

}  // namespace kova::group

// A file that is not there counts as removed.
int GROUPIRemoveTempFiles(void) {
    int result = 0;
    for (const TmpFile &file : kTmpFiles) {
        const kova::RootedPath tmp(file.tmp);
        if (kova::sys::unlink(tmp.c_str()) != 0 && errno != ENOENT) {
            result = kova::fail(ERR_REMOVE_TMP_FAILED, kova::Site(),
                                "%s:%d Remove [%s] failed! errno=%d/%m", tmp.c_str(), errno);
        }
    }
    return result;
}

// A temporary file that is not there has nothing to commit and is passed over.
int GROUPIRenameTempFiles(void) {
    int result = 0;
    for (const TmpFile &file : kTmpFiles) {
        const kova::RootedPath tmp(file.tmp);
        const kova::RootedPath target(file.target);
        if (kova::sys::rename(tmp.c_str(), target.c_str()) != 0 && errno != ENOENT) {
            result = kova::fail(ERR_RENAME_FAILED, kova::Site(),
                                "%s:%d Rename [%s]->[%s] fail, errno=%d/%m", tmp.c_str(),
                                target.c_str(), errno);
        }
    }
    return result;
}
