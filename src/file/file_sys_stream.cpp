// The stream wrappers: the mode is given as a format with its arguments and formatted into an
// 8-byte buffer before the C library call.
#include <cstdarg>
#include <cstdio>

#include "kovasdk/file.h"

namespace {
constexpr size_t kModeSize = 8;

void format_mode(char (&mode)[kModeSize], const char *prefix, const char *format, va_list args) {
    char given[kModeSize] = "";
    if (format != nullptr) vsnprintf(given, sizeof given, format, args);
    snprintf(mode, sizeof mode, "%s%s", prefix, given);
}
}  // namespace

FILE *pfKLIBSysFopen(const char *szPath, const char *szModeFormat, ...) {
    char mode[kModeSize];
    va_list args;
    va_start(args, szModeFormat);
    format_mode(mode, "", szModeFormat, args);
    va_end(args);
    return fopen(szPath, mode);
}

// A literal "s" goes ahead of the mode here and in freopen (kept as it stands).
FILE *pfKLIBSysFdopen(int fd, const char *szModeFormat, ...) {
    char mode[kModeSize];
    va_list args;
    va_start(args, szModeFormat);
    format_mode(mode, "s", szModeFormat, args);
    va_end(args);
    return fdopen(fd, mode);
}

FILE *pfKLIBSysFreopen(const char *szPath, FILE *stream, const char *szModeFormat, ...) {
    char mode[kModeSize];
    va_list args;
    va_start(args, szModeFormat);
    format_mode(mode, "s", szModeFormat, args);
    va_end(args);
    return freopen(szPath, mode, stream);
}
