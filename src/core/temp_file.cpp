#include "core/temp_file.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>

namespace kova {

bool TempFile::fail(Step step) {
    errno_ = errno;
    failed_ = step;
    discard();
    errno = errno_;
    return false;
}

bool TempFile::create(const char *target) {
    discard();
    failed_ = Step::kNone;
    target_ = target;
    const int n = snprintf(path_, sizeof path_, "%s.XXXXXX", target);
    if (n < 0 || static_cast<size_t>(n) >= sizeof path_) {
        path_[0] = '\0';
        errno = ENAMETOOLONG;
        return fail(Step::kCreate);
    }
    const int fd = mkstemp(path_);
    if (fd < 0) {
        path_[0] = '\0';
        return fail(Step::kCreate);
    }
    stream_ = fdopen(fd, "w");
    if (stream_ == nullptr) {
        const int saved = errno;
        close(fd);
        errno = saved;
        return fail(Step::kStream);
    }
    return true;
}

bool TempFile::commit(const struct stat &like) {
    if (fflush(stream_) != 0) return fail(Step::kFlush);
    const int fd = fileno(stream_);
    if (fsync(fd) != 0) return fail(Step::kSync);
    if (fchown(fd, like.st_uid, like.st_gid) != 0 || fchmod(fd, like.st_mode & 07777) != 0) {
        return fail(Step::kOwner);
    }
    FILE *stream = stream_;
    stream_ = nullptr;
    if (fclose(stream) != 0) return fail(Step::kClose);
    if (rename(path_, target_) != 0) return fail(Step::kRename);
    path_[0] = '\0';
    sync_directory_of(target_);
    return true;
}

// The rename itself reaches the disk only with the directory; best effort, since the new file
// is already in place and readers see it.
void TempFile::sync_directory_of(const char *target) {
    char dir[sizeof path_];
    const char *slash = strrchr(target, '/');
    if (slash == nullptr) {
        snprintf(dir, sizeof dir, ".");
    } else {
        snprintf(dir, sizeof dir, "%.*s", static_cast<int>(slash == target ? 1 : slash - target),
                 target);
    }
    const int saved = errno;
    const int fd = open(dir, O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (fd >= 0) {
        fsync(fd);
        close(fd);
    }
    errno = saved;
}

void TempFile::discard() {
    const int saved = errno;
    if (stream_ != nullptr) {
        fclose(stream_);
        stream_ = nullptr;
    }
    if (path_[0] != '\0') {
        unlink(path_);
        path_[0] = '\0';
    }
    errno = saved;
}

struct stat new_file_owner(mode_t mode) {
    struct stat st {};
    st.st_uid = geteuid();
    st.st_gid = getegid();
    st.st_mode = mode;
    return st;
}

}  // namespace kova
