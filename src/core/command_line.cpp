#include "core/command_line.h"

#include <cstdarg>
#include <cstdio>
#include <cstring>

#include "core/root.h"
#include "core/run.h"

namespace kova {

CommandLine &CommandLine::text(const char *format, ...) {
    if (!ok_) return *this;
    va_list args;
    va_start(args, format);
    const int n = vsnprintf(text_ + length_, kSize - length_, format, args);
    va_end(args);
    if (n < 0 || static_cast<size_t>(n) >= kSize - length_) {
        ok_ = false;
        return *this;
    }
    length_ += static_cast<size_t>(n);
    return *this;
}

CommandLine &CommandLine::word(const char *text) {
    if (!ok_ || text == nullptr) {
        ok_ = false;
        return *this;
    }
    if (!shell_word(text, text_ + length_, kSize - length_)) {
        ok_ = false;
        text_[length_] = '\0';
        return *this;
    }
    length_ += strlen(text_ + length_);
    return *this;
}

CommandLine &CommandLine::device(const char *path) {
    if (path == nullptr) {
        ok_ = false;
        return *this;
    }
    const DevicePath rooted(path);
    if (!rooted.ok()) {
        ok_ = false;
        return *this;
    }
    return word(rooted.c_str());
}

int CommandLine::run() const {
    if (!ok_) return -1;
    return exit_status(run_shell(text_));
}

int exit_status(int status) {
    if (status == -1) return -1;
    return (status >> 8) & 0xFF;
}

}  // namespace kova
