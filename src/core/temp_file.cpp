#include "core/temp_file.h"

#include <fcntl.h>
#include <sys/random.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <ctime>

#include "core/sys.h"

namespace kova {
namespace {

// The directory part of path ("." when it has none).
void directory_of(const char *path, char *dir, size_t size) {
    const char *slash = strrchr(path, '/');
    if (slash == nullptr) {
        snprintf(dir, size, ".");
    } else {
        snprintf(dir, size, "%.*s", static_cast<int>(slash == path ? 1 : slash - path), path);
    }
}

// Replaces the trailing "XXXXXX" of name with random letters and digits.
void fill_random_suffix(char *name) {
    static constexpr char kLetters[] =
        "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789";
    unsigned char bytes[6];
    if (getrandom(bytes, sizeof bytes, GRND_NONBLOCK) != sizeof bytes) {
        timespec now{};
        clock_gettime(CLOCK_MONOTONIC, &now);
        unsigned long mix = static_cast<unsigned long>(now.tv_nsec) ^ (getpid() * 2654435761UL);
        for (unsigned char &b : bytes) {
            b = static_cast<unsigned char>(mix);
            mix = mix * 6364136223846793005UL + 1442695040888963407UL;
        }
    }
    char *suffix = name + strlen(name) - sizeof bytes;
    for (size_t i = 0; i < sizeof bytes; ++i)
        suffix[i] = kLetters[bytes[i] % (sizeof kLetters - 1)];
}

constexpr int kNameTries = 100;

}  // namespace

bool TempFile::fail(Step step) {
    failed_ = step;
    discard();  // keeps errno: the failed step's
    return false;
}

bool TempFile::create(const char *target, const char *name) {
    discard();
    failed_ = Step::kNone;
    target_ = target;
    given_name_ = name;
    char dir[sizeof name_];
    directory_of(target, dir, sizeof dir);
    fd_ = sys::open(dir, O_TMPFILE | O_WRONLY | O_CLOEXEC, 0600);
    anonymous_ = fd_ >= 0;
    // Refused by the file system (or an old kernel): named from the start.
    if (fd_ < 0 && (errno == EOPNOTSUPP || errno == EISDIR || errno == EINVAL)) {
        if (name != nullptr) {
            sys::unlink(name);
            fd_ = sys::open(name, O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, 0600);
            if (fd_ >= 0) snprintf(name_, sizeof name_, "%s", name);
        } else {
            const int n = snprintf(name_, sizeof name_, "%s.XXXXXX", target);
            if (n < 0 || static_cast<size_t>(n) >= sizeof name_) errno = ENAMETOOLONG;
            for (int i = 0; n > 0 && static_cast<size_t>(n) < sizeof name_ && i < kNameTries; ++i) {
                fill_random_suffix(name_);
                fd_ = sys::open(name_, O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, 0600);
                if (fd_ >= 0 || errno != EEXIST) break;
            }
            if (fd_ < 0) name_[0] = '\0';
        }
    }
    if (fd_ < 0) return fail(Step::kCreate);
    stream_ = sys::stream(fd_, "w");
    if (stream_ == nullptr) {
        fd_ = -1;  // closed by stream()
        return fail(Step::kStream);
    }
    return true;
}

// Links the nameless file at path; never replaces what is there (EEXIST).
bool TempFile::link_to(const char *path) {
    if (sys::linkat(fd_, "", AT_FDCWD, path, AT_EMPTY_PATH) == 0) return true;
    if (errno == EEXIST) return false;
    // AT_EMPTY_PATH needs a capability that most callers lack; the descriptor's proc link does not.
    char self[64];
    snprintf(self, sizeof self, "/proc/self/fd/%d", fd_);
    return sys::linkat(AT_FDCWD, self, AT_FDCWD, path, AT_SYMLINK_FOLLOW) == 0;
}

// Gives the nameless file its temporary name just before it replaces the target.
bool TempFile::name_file() {
    if (given_name_ != nullptr) {
        snprintf(name_, sizeof name_, "%s", given_name_);
        if (link_to(name_)) return true;
        // A leftover of a writer that was killed: replaced, as a plain "w" open would.
        if (errno != EEXIST || sys::unlink(name_) != 0 || !link_to(name_)) {
            name_[0] = '\0';
            return false;
        }
        return true;
    }
    const int n = snprintf(name_, sizeof name_, "%s.XXXXXX", target_);
    if (n < 0 || static_cast<size_t>(n) >= sizeof name_) {
        name_[0] = '\0';
        errno = ENAMETOOLONG;
        return false;
    }
    for (int i = 0; i < kNameTries; ++i) {
        fill_random_suffix(name_);
        if (link_to(name_)) return true;
        if (errno != EEXIST) break;
    }
    name_[0] = '\0';
    return false;
}

bool TempFile::close_stream() {
    FILE *stream = stream_;
    stream_ = nullptr;
    fd_ = -1;
    return fclose(stream) == 0;
}

// Flush, sync, owner and mode; then a nameless file gets its place: the target itself when
// new_target is set (a link, which never replaces), else its temporary name; then close.
bool TempFile::finish(const struct stat &like, bool new_target) {
    if (stream_ == nullptr) {
        errno = EBADF;
        return fail(Step::kCreate);
    }
    if (fflush(stream_) != 0) return fail(Step::kFlush);
    if (sys::fsync(fd_) != 0) return fail(Step::kSync);
    if (sys::fchown(fd_, like.st_uid, like.st_gid) != 0 ||
        sys::fchmod(fd_, like.st_mode & 07777) != 0) {
        return fail(Step::kOwner);
    }
    if (anonymous_ && new_target && !link_to(target_)) return fail(Step::kRename);
    if (anonymous_ && !new_target && !name_file()) return fail(Step::kCreate);
    if (!close_stream()) return fail(Step::kClose);
    return true;
}

bool TempFile::prepare(const struct stat &like) {
    return finish(like, false);
}

bool TempFile::publish() {
    if (name_[0] == '\0') {
        errno = EBADF;
        return fail(Step::kRename);
    }
    if (sys::rename(name_, target_) != 0) return fail(Step::kRename);
    name_[0] = '\0';
    sync_directory_of(target_);
    return true;
}

bool TempFile::commit_new(const struct stat &like) {
    if (!finish(like, true)) return false;
    if (!anonymous_) {
        // Named from the start: a second name at the target, then the temporary one goes.
        if (sys::linkat(AT_FDCWD, name_, AT_FDCWD, target_, 0) != 0) return fail(Step::kRename);
        sys::unlink(name_);
        name_[0] = '\0';
    }
    sync_directory_of(target_);
    return true;
}

// The rename itself reaches the disk only with the directory; best effort, since the new file
// is already in place and readers see it.
void TempFile::sync_directory_of(const char *target) {
    char dir[sizeof name_];
    directory_of(target, dir, sizeof dir);
    const int saved = errno;
    const int fd = ::open(dir, O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (fd >= 0) {
        fsync(fd);
        ::close(fd);
    }
    errno = saved;
}

void TempFile::discard() {
    const int saved = errno;
    if (stream_ != nullptr) {
        fclose(stream_);
        stream_ = nullptr;
        fd_ = -1;
    }
    if (name_[0] != '\0') {
        sys::unlink(name_);
        name_[0] = '\0';
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

mode_t umask_mode() {
    const mode_t mask = umask(022);
    umask(mask);
    return 0666 & ~mask;
}

}  // namespace kova
