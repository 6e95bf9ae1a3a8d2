// The four temporary text files of a dump: removed after a failure, renamed over their targets
// to commit (KOVAUserDBDump does both through the rewrite; these serve the recovery after a
// writer was killed, and callers that write the files themselves).
#include <cerrno>
#include <cstdio>

#include "core/root.h"
#include "core/sys.h"
#include "user/user_internal.h"

namespace {

struct TmpFile {
    const char *tmp;
    const char *target;
};
constexpr TmpFile kTmpFiles[] = {
    {kova::user::kSmbPasswdTmp, kova::user::kSmbPasswd},
    {kova::user::kShadowTmp, kova::user::kShadow},
    {kova::user::kPasswdTmp, kova::user::kPasswd},
    {kova::user::kMiscTmp, kova::user::kMisc},
};

}  // namespace

// A file that is not there counts as removed.
int KOVAUserRemoveTmpFiles(void) {
    int result = 0;
    for (const TmpFile &file : kTmpFiles) {
        const kova::RootedPath tmp(file.tmp);
        if (kova::sys::unlink(tmp.c_str()) != 0 && errno != ENOENT) {
            result = kova::fail(ERR_REMOVE_TMP_FAILED, kova::Site(), "%s:%d remove %s file failed!",
                                tmp.c_str());
        }
    }
    return result;
}

// A temporary file that is not there has nothing to commit and is passed over.
int KOVAUserRenameTmpFiles(void) {
    int result = 0;
    for (const TmpFile &file : kTmpFiles) {
        const kova::RootedPath tmp(file.tmp);
        if (kova::sys::rename(tmp.c_str(), kova::RootedPath(file.target).c_str()) != 0 &&
            errno != ENOENT) {
            result = kova::fail(ERR_RENAME_FAILED, kova::Site(), "%s:%d rename %s file failed!",
                                tmp.c_str());
        }
    }
    return result;
}
