// The temporary-file commit that every rewriting function goes through: a new file beside the
// target ("<target>.XXXXXX"), written through a stream, flushed, synced, given the old file's
// owner, group and permission bits, closed and renamed over the target; the directory is then
// synced so that the rename survives a power cut. Until the rename the target is untouched; a
// temporary file that is not committed is closed and unlinked.
#pragma once

#include <sys/stat.h>

#include <climits>
#include <cstdint>
#include <cstdio>

#include "core/raise.h"

namespace kova {

class TempFile {
  public:
    // The step that failed, so that each caller can raise its own line for it.
    enum class Step { kNone, kCreate, kStream, kFlush, kSync, kOwner, kClose, kRename };

    TempFile() = default;
    TempFile(const TempFile &) = delete;
    TempFile &operator=(const TempFile &) = delete;
    ~TempFile() { discard(); }

    // Creates the temporary file beside target (mkstemp) and opens it as a stream "w". The
    // target path is kept by pointer until commit or discard.
    bool create(const char *target);
    FILE *stream() const { return stream_; }
    const char *path() const { return path_; }

    // Flush, fsync, fchown and fchmod to like's owner, group and mode & 07777, close, rename
    // over the target. On failure the temporary file is gone and the target untouched.
    bool commit(const struct stat &like);

    // Closes and unlinks the temporary file (nothing when there is none).
    void discard();

    Step failed_step() const { return failed_; }
    // errno of the failed step.
    int failed_errno() const { return errno_; }

  private:
    bool fail(Step step);
    static void sync_directory_of(const char *target);

    char path_[PATH_MAX + 8] = "";
    const char *target_ = nullptr;
    FILE *stream_ = nullptr;
    Step failed_ = Step::kNone;
    int errno_ = 0;
};

// The owner, group and mode of a file that did not exist before: the caller's own user and
// group, with the given permission bits.
struct stat new_file_owner(mode_t mode);

// The lines a caller raises for the steps of a commit. Create and stream failures raise
// ERR_OPEN_FAILED; flush, sync (fsync, fchown, fchmod) and close ERR_WRITE_FAILED; the rename
// ERR_RENAME_FAILED.
struct CommitLines {
    int create;
    int stream;
    int flush;
    int sync;
    int close;
    int rename;
};

// Raises the code and line of temp's failed step, recorded under the caller's file name.
inline void raise_commit_failure(const TempFile &temp, const CommitLines &lines,
                                 const char *file = __builtin_FILE()) {
    switch (temp.failed_step()) {
        case TempFile::Step::kCreate:
            raise(ERR_OPEN_FAILED, lines.create, file);
            break;
        case TempFile::Step::kStream:
            raise(ERR_OPEN_FAILED, lines.stream, file);
            break;
        case TempFile::Step::kFlush:
            raise(ERR_WRITE_FAILED, lines.flush, file);
            break;
        case TempFile::Step::kSync:
        case TempFile::Step::kOwner:
            raise(ERR_WRITE_FAILED, lines.sync, file);
            break;
        case TempFile::Step::kClose:
            raise(ERR_WRITE_FAILED, lines.close, file);
            break;
        case TempFile::Step::kRename:
            raise(ERR_RENAME_FAILED, lines.rename, file);
            break;
        case TempFile::Step::kNone:
            break;
    }
}

}  // namespace kova
