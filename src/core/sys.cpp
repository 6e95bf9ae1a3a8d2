#include "core/sys.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>

#include "core/alloc.h"

namespace kova::sys {
namespace {

int real_open(const char *path, int flags, mode_t mode) {
    return ::open(path, flags, mode);
}
int real_ioctl(int fd, unsigned long request, void *argument) {
    return ::ioctl(fd, request, argument);
}

constexpr Calls kReal{
    real_open, ::close,    ::read,      ::write,  ::lseek,  ::fstat,  ::fsync,
    ::fchown,  ::fchmod,   ::ftruncate, ::rename, ::linkat, ::unlink, ::mkdir,
    ::flock,   real_ioctl, ::sleep,     ::pread,  ::pwrite,
};
Calls g_calls = kReal;

// The descriptor behind a stream made by stream().
struct Cookie {
    int fd;
};

ssize_t cookie_read(void *cookie, char *buffer, size_t size) {
    for (;;) {
        const ssize_t n = calls().read(static_cast<Cookie *>(cookie)->fd, buffer, size);
        if (n >= 0 || errno != EINTR) return n;
    }
}

// A short write is finished here; stdio marks the stream failed when this returns less.
ssize_t cookie_write(void *cookie, const char *buffer, size_t size) {
    size_t done = 0;
    while (done < size) {
        const ssize_t n =
            calls().write(static_cast<Cookie *>(cookie)->fd, buffer + done, size - done);
        if (n < 0 && errno == EINTR) continue;
        if (n <= 0) return done > 0 ? static_cast<ssize_t>(done) : -1;
        done += static_cast<size_t>(n);
    }
    return static_cast<ssize_t>(done);
}

int cookie_seek(void *cookie, off64_t *position, int whence) {
    const off_t at = calls().lseek(static_cast<Cookie *>(cookie)->fd, *position, whence);
    if (at < 0) return -1;
    *position = at;
    return 0;
}

int cookie_close(void *cookie) {
    const int fd = static_cast<Cookie *>(cookie)->fd;
    free(cookie);
    return calls().close(fd);
}

}  // namespace

Calls &calls() {
    return g_calls;
}

const Calls &real_calls() {
    return kReal;
}

FILE *stream(int fd, const char *mode) {
    auto *cookie = static_cast<Cookie *>(xmalloc(sizeof(Cookie)));
    if (cookie == nullptr) {
        const int saved = errno;
        calls().close(fd);
        errno = saved;
        return nullptr;
    }
    cookie->fd = fd;
    FILE *stream =
        fopencookie(cookie, mode, {cookie_read, cookie_write, cookie_seek, cookie_close});
    if (stream == nullptr) cookie_close(cookie);
    return stream;
}

Opened open_regular(const char *path, int flags, int *fd, struct stat *st, mode_t create_mode) {
    *fd = -1;
    const int opened = calls().open(path, flags | O_CLOEXEC | O_NONBLOCK, create_mode);
    if (opened < 0 && errno == EISDIR) {  // a directory asked for writing
        *st = {};
        st->st_mode = S_IFDIR;
        return Opened::kNotRegular;
    }
    if (opened < 0) return errno == ENOENT ? Opened::kMissing : Opened::kFailed;
    if (calls().fstat(opened, st) != 0) {
        const int saved = errno;
        calls().close(opened);
        errno = saved;
        return Opened::kStatFailed;
    }
    if (!S_ISREG(st->st_mode)) {
        calls().close(opened);
        errno = S_ISDIR(st->st_mode) ? EISDIR : EINVAL;
        return Opened::kNotRegular;
    }
    // Reads and writes of a regular file never block anyway; cleared for the programs that may
    // inherit the descriptor's open file description.
    fcntl(opened, F_SETFL, fcntl(opened, F_GETFL) & ~O_NONBLOCK);
    *fd = opened;
    return Opened::kOk;
}

}  // namespace kova::sys
