#include "core/log.h"

#include <cerrno>
#include <cstdio>

namespace kova {
namespace {
// Test seam only: which sink replaces syslog. Production code never sets it.
testing::LogSink g_sink = nullptr;
void *g_sink_context = nullptr;
}  // namespace

void vlog(int priority, const char *format, va_list args) {
    if (g_sink == nullptr) {
        vsyslog(priority, format, args);
        return;
    }
    char line[4096];
    vsnprintf(line, sizeof line, format, args);  // glibc expands %m like syslog does
    g_sink(priority, line, g_sink_context);
}

void log(int priority, const char *format, ...) {
    va_list args;
    va_start(args, format);
    vlog(priority, format, args);
    va_end(args);
}

namespace testing {
void set_log_sink(LogSink sink, void *context) {
    g_sink = sink;
    g_sink_context = context;
}
}  // namespace testing

}  // namespace kova
