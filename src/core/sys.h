// The kernel calls that the library's file work goes through, as a table of function pointers.
// Production code never changes the table; a test swaps an entry to make one step fail (a full
// disk at the flush, EIO at the sync, a rename refused) and checks the code and line raised for
// it, without root and without a real broken disk. The storage families' ioctls go through it
// too, so their tests can answer with recorded replies.
#pragma once

#include <sys/stat.h>
#include <sys/types.h>

#include <cstdio>

namespace kova::sys {

struct Calls {
    int (*open)(const char *path, int flags, mode_t mode);
    int (*close)(int fd);
    ssize_t (*read)(int fd, void *buffer, size_t size);
    ssize_t (*write)(int fd, const void *buffer, size_t size);
    off_t (*lseek)(int fd, off_t offset, int whence);
    int (*fstat)(int fd, struct stat *st);
    int (*fsync)(int fd);
    int (*fchown)(int fd, uid_t uid, gid_t gid);
    int (*fchmod)(int fd, mode_t mode);
    int (*ftruncate)(int fd, off_t length);
    int (*rename)(const char *from, const char *to);
    int (*linkat)(int from_dir, const char *from, int to_dir, const char *to, int flags);
    int (*unlink)(const char *path);
    int (*mkdir)(const char *path, mode_t mode);
    int (*flock)(int fd, int operation);
    int (*ioctl)(int fd, unsigned long request, void *argument);
    unsigned (*sleep)(unsigned seconds);  // the drives' waits (a reset's settling time)
};

// The table in force (the real calls unless a test swapped an entry).
Calls &calls();
// The real calls, for a test to restore or to forward to.
const Calls &real_calls();

inline int open(const char *path, int flags, mode_t mode = 0) {
    return calls().open(path, flags, mode);
}
inline int close(int fd) {
    return calls().close(fd);
}
inline int fstat(int fd, struct stat *st) {
    return calls().fstat(fd, st);
}
inline ssize_t read(int fd, void *buffer, size_t size) {
    return calls().read(fd, buffer, size);
}
inline ssize_t write(int fd, const void *buffer, size_t size) {
    return calls().write(fd, buffer, size);
}
inline off_t lseek(int fd, off_t offset, int whence) {
    return calls().lseek(fd, offset, whence);
}
inline int fsync(int fd) {
    return calls().fsync(fd);
}
inline int fchown(int fd, uid_t uid, gid_t gid) {
    return calls().fchown(fd, uid, gid);
}
inline int fchmod(int fd, mode_t mode) {
    return calls().fchmod(fd, mode);
}
inline int ftruncate(int fd, off_t length) {
    return calls().ftruncate(fd, length);
}
inline int rename(const char *from, const char *to) {
    return calls().rename(from, to);
}
inline int linkat(int from_dir, const char *from, int to_dir, const char *to, int flags) {
    return calls().linkat(from_dir, from, to_dir, to, flags);
}
inline int unlink(const char *path) {
    return calls().unlink(path);
}
inline int mkdir(const char *path, mode_t mode) {
    return calls().mkdir(path, mode);
}
inline int flock(int fd, int operation) {
    return calls().flock(fd, operation);
}
inline int ioctl(int fd, unsigned long request, void *argument) {
    return calls().ioctl(fd, request, argument);
}
inline unsigned sleep(unsigned seconds) {
    return calls().sleep(seconds);
}

// A buffered stream over fd whose reads, writes, seeks and close go through the table, so a
// failed write shows as a failed fprintf, fflush or fclose exactly where the kernel would
// report it. mode is "r", "w" or "r+". The stream owns fd from then on, also when this fails
// (fd is closed then). It counts as one allocation of the allocation seam. fileno() of the
// stream is -1: keep the descriptor for fsync, fstat and the like.
FILE *stream(int fd, const char *mode);

// What opening a file that must be a regular file found.
enum class Opened { kOk, kMissing, kFailed, kStatFailed, kNotRegular };

// Opens path with flags | O_CLOEXEC | O_NONBLOCK, so that a FIFO or device at the path is
// refused (kNotRegular, errno EINVAL) instead of blocking; O_NONBLOCK is cleared again on a
// regular file; create_mode goes with O_CREAT. kMissing only for ENOENT: "cannot be opened" is not
// "does not exist". On kNotRegular *st tells what was found (a directory, ...). *fd is -1 unless
// kOk; errno tells why on every other outcome.
Opened open_regular(const char *path, int flags, int *fd, struct stat *st, mode_t create_mode = 0);

}  // namespace kova::sys
