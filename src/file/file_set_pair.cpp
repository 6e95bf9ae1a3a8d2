#include <fcntl.h>

#include "core/fail.h"
#include "core/sys.h"
#include "file/file_internal.h"

namespace {
constexpr int kLineBadArguments = 37;
constexpr int kLineOpen = 41;
}  // namespace

// The whole file anew, pairs only, written in place ("w"): a reader can see it partly written,
// and a failed write leaves it so (as defined; the other writers go through a temporary file).
int ErrKLIBFileSetPair(const char *szPath, const KLIBSZHASH *pHash, const char *szFormat) {
    if (szPath == nullptr || pHash == nullptr)
        return kova::fail(ERR_BAD_PARAMETERS, kLineBadArguments);
    int fd = -1;
    struct stat st {};
    if (kova::sys::open_regular(szPath, O_WRONLY | O_CREAT | O_TRUNC, &fd, &st, 0666) !=
        kova::sys::Opened::kOk) {
        return kova::fail(ERR_OPEN_FAILED, kLineOpen);
    }
    kova::UniqueFile out(kova::sys::stream(fd, "w"));
    if (!out) return kova::fail(ERR_OPEN_FAILED, kLineOpen);
    if (ErrKLIBIFileHash2File(out.get(), nullptr, pHash, szFormat) != 0) return -1;
    if (fflush(out.get()) != 0) return kova::fail(ERR_WRITE_FAILED);
    if (kova::sys::fsync(fd) != 0) return kova::fail(ERR_WRITE_FAILED);
    if (fclose(out.release()) != 0) return kova::fail(ERR_WRITE_FAILED);
    return 0;
}
