#include "core/append.h"

#include <fcntl.h>

#include <stdio_ext.h>

#include <cerrno>

namespace kova {

sys::Opened AppendInPlace::open(const char *path) {
    const sys::Opened opened = sys::open_regular(path, O_RDWR, &fd_, &st_);
    if (opened != sys::Opened::kOk) return opened;
    stream_.reset(sys::stream(fd_, "r+"));
    if (!stream_) {
        fd_ = -1;
        return sys::Opened::kFailed;
    }
    return opened;
}

bool AppendInPlace::seek_end(char *last) {
    if (fseeko(stream_.get(), 0, SEEK_END) != 0) return false;
    length_ = ftello(stream_.get());
    if (length_ < 0) return false;
    if (last == nullptr) return true;
    *last = '\0';
    if (length_ == 0) return true;
    if (fseeko(stream_.get(), -1, SEEK_END) != 0) return false;
    const int c = fgetc(stream_.get());
    if (c == EOF) return false;
    *last = static_cast<char>(c);
    return fseeko(stream_.get(), 0, SEEK_END) == 0;
}

bool AppendInPlace::finish() {
    if (fflush(stream_.get()) != 0 || sys::fsync(fd_) != 0) {
        abandon();
        return false;
    }
    length_ = -1;  // complete: nothing to cut back
    fd_ = -1;
    return fclose(stream_.release()) == 0;
}

void AppendInPlace::abandon() {
    if (!stream_) return;
    const int saved = errno;
    if (length_ >= 0) {
        // What stdio still holds must not reach the file after the cut.
        __fpurge(stream_.get());
        sys::ftruncate(fd_, length_);
        sys::fsync(fd_);
    }
    stream_.reset();
    fd_ = -1;
    length_ = -1;
    errno = saved;
}

}  // namespace kova
