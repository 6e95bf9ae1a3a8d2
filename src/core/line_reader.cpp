#include "core/line_reader.h"

#include <cerrno>
#include <cstdlib>

#include "core/alloc.h"

namespace kova {

LineReader::~LineReader() {
    free(buf_);
}

bool LineReader::reserve(size_t needed) {
    if (needed <= cap_) return true;
    size_t cap = cap_ == 0 ? 256 : cap_;
    while (cap < needed)
        cap *= 2;
    void *grown = xrealloc(buf_, cap);
    if (grown == nullptr) {
        out_of_memory_ = failed_ = true;
        return false;
    }
    buf_ = static_cast<char *>(grown);
    cap_ = cap;
    return true;
}

bool LineReader::next() {
    len_ = 0;
    if (failed_ || !reserve(1)) return false;
    flockfile(stream_);
    int c = 0;
    while ((c = getc_unlocked(stream_)) != EOF) {
        if (len_ + 2 > cap_ && !reserve(len_ + 2)) break;
        buf_[len_++] = static_cast<char>(c);
        if (c == '\n') break;
    }
    const bool error = c == EOF && ferror_unlocked(stream_);
    funlockfile(stream_);
    buf_[len_] = '\0';
    if (out_of_memory_) return false;
    if (error) {
        failed_ = true;
        return false;
    }
    if (len_ == 0) return false;
    ++number_;
    return true;
}

}  // namespace kova
