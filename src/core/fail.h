// Failing in one call: the code raised at the defined line of this source file, and the defined
// log text with the same file name and line. raise() (core/raise.h) is the raise-only form,
// log_at() the log-only form.
#pragma once

#include <syslog.h>

#include <cstdint>

#include "core/log.h"
#include "core/raise.h"

namespace kova {

// Where a failure is recorded: the calling source file's base name and a line. It converts from
// a line number, so fail(code, kLineOpen, ...) records kLineOpen of the calling file.
struct Site {
    const char *file;
    int line;
    constexpr Site(int line = __builtin_LINE(), const char *path = __builtin_FILE())
        : file(base_name(path)), line(line) {}
};

// Logs format at priority; the format's first two conversions take the site's file name and
// line ("%s:%d ..." or "%s(%d) ..."), args fill the rest.
template <class... Args>
void log_at(int priority, Site site, const char *format, Args... args) {
    log(priority, format, site.file, site.line, args...);
}

// Logs at LOG_ERR as log_at does and raises code at the same file and line. Returns -1, the
// usual failure value, so that a caller can write `return fail(...)`.
template <class... Args>
int fail(uint32_t code, Site site, const char *format, Args... args) {
    log_at(LOG_ERR, site, format, args...);
    KLIBErrSetEx(code, site.file, site.line);
    return -1;
}

// Raises code at the site and returns -1.
inline int fail(uint32_t code, Site site = Site()) {
    KLIBErrSetEx(code, site.file, site.line);
    return -1;
}

}  // namespace kova
