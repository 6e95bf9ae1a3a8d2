// The library's one road to syslog. Tests redirect it to capture the exact lines.
#pragma once

#include <syslog.h>

#include <cstdarg>

namespace kova {

// Formats like syslog (including %m) and sends the line at the given priority.
void log(int priority, const char *format, ...) __attribute__((format(printf, 2, 3)));
void vlog(int priority, const char *format, va_list args);

namespace testing {
// A sink receives every line instead of syslog while it is installed (null restores syslog).
using LogSink = void (*)(int priority, const char *line, void *context);
void set_log_sink(LogSink sink, void *context);
}  // namespace testing

}  // namespace kova
