#include <sys/stat.h>

#include "core/raise.h"
#include "core/temp_file.h"
#include "file/file_internal.h"

namespace {
constexpr kova::CommitLines kCommitLines{41, 41, __LINE__, __LINE__, __LINE__, __LINE__};
constexpr mode_t kNewFileMode = 0644;  // as KLIBFileSetKeys gives a new file
}  // namespace

// The whole file anew, pairs only. Written through the temporary-file commit rather than by
// truncating in place, so that a failure leaves the old file and a reader never sees it empty.
int ErrKLIBFileSetPair(const char *szPath, const KLIBSZHASH *pHash, const char *szFormat) {
    if (szPath == nullptr || pHash == nullptr) {
        kova::raise(ERR_BAD_PARAMETERS, 37);
        return -1;
    }
    kova::file::Source source;
    switch (kova::file::open_source(szPath, &source)) {
        case kova::file::SourceState::kOk:
            break;
        case kova::file::SourceState::kCannotOpen:
            source.st = kova::new_file_owner(kNewFileMode);
            break;
        case kova::file::SourceState::kStatFailed:
            kova::raise(ERR_STAT_FAILED);
            return -1;
        case kova::file::SourceState::kDirectory:
            kova::raise(ERR_OPEN_FAILED, 41);
            return -1;
    }
    source.file.reset();
    kova::TempFile temp;
    if (!temp.create(szPath)) {
        kova::raise_commit_failure(temp, kCommitLines);
        return -1;
    }
    if (ErrKLIBIFileHash2File(temp.stream(), nullptr, pHash, szFormat) != 0) return -1;
    if (!temp.commit(source.st)) {
        kova::raise_commit_failure(temp, kCommitLines);
        return -1;
    }
    return 0;
}
