// The temporary-file commit that every rewriting function goes through. The new content is
// written to a file beside the target that has no name while it is written (O_TMPFILE), so a
// writer killed at almost any instant leaves nothing behind. To commit, it is flushed, synced,
// given the owner, group and permission bits of the file it replaces, named ("<target>.XXXXXX"
// or a name the caller gives), closed and renamed over the target; the directory is then synced
// so that the rename survives a power cut. Until the rename the target is untouched; a
// temporary file that is not committed is closed and removed. Where the file system refuses
// O_TMPFILE the file is created under its temporary name from the start.
#pragma once

#include <sys/stat.h>

#include <climits>
#include <cstdint>
#include <cstdio>

namespace kova {

class TempFile {
  public:
    // The step that failed, so that each caller can raise its own line for it. Naming the file
    // counts as creating it.
    enum class Step { kNone, kCreate, kStream, kFlush, kSync, kOwner, kClose, kRename };

    TempFile() = default;
    TempFile(const TempFile &) = delete;
    TempFile &operator=(const TempFile &) = delete;
    ~TempFile() { discard(); }

    // Creates the temporary file in target's directory and opens it as a stream "w". name is
    // the temporary name to use (a stale file of that name is replaced); null makes a unique
    // "<target>.XXXXXX". Both strings are kept by pointer until commit or discard.
    bool create(const char *target, const char *name = nullptr);
    FILE *stream() const { return stream_; }

    // Flush, fsync, fchown and fchmod to like's owner, group and mode & 07777, name, close.
    // The target is untouched; publish() then renames over it. Split so that several files can
    // all be prepared before the first of them replaces its target.
    bool prepare(const struct stat &like);
    bool publish();
    bool commit(const struct stat &like) { return prepare(like) && publish(); }

    // For a target that did not exist: as commit, but the file is linked at the target's path,
    // which never replaces a file that appeared meanwhile (that fails at the rename step).
    bool commit_new(const struct stat &like);

    // Closes and removes the temporary file (nothing when there is none).
    void discard();

    Step failed_step() const { return failed_; }

  private:
    bool fail(Step step);
    bool finish(const struct stat &like, bool new_target);
    bool name_file();
    bool link_to(const char *path);
    bool close_stream();
    static void sync_directory_of(const char *target);

    const char *target_ = nullptr;
    const char *given_name_ = nullptr;
    char name_[PATH_MAX + 8] = "";  // the temporary name once the file has one
    FILE *stream_ = nullptr;
    int fd_ = -1;  // owned by stream_ once it exists
    bool anonymous_ = false;
    Step failed_ = Step::kNone;
};

// The owner, group and mode of a file that did not exist before: the caller's own user and
// group, with the given permission bits.
struct stat new_file_owner(mode_t mode);

// The permission bits a plain fopen(path, "w") would give: 0666 less the umask.
mode_t umask_mode();

}  // namespace kova
