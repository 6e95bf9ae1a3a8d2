// Raising an error from inside the library: the code, this source file's base name and a line.
#pragma once

#include <cstdint>
#include <cstring>

#include "kovasdk/error.h"

namespace kova {

// Base name of a compile-time file path; the result points into the literal, which the error
// state keeps by pointer.
constexpr const char *base_name(const char *path) {
    const char *base = path;
    for (const char *p = path; *p != '\0'; ++p) {
        if (*p == '/') base = p + 1;
    }
    return base;
}

// raise(code, 33) records line 33, the number the interface gives for this raise;
// raise(code) records the line of the call itself.
inline void raise(uint32_t code, int line = __builtin_LINE(), const char *file = __builtin_FILE()) {
    KLIBErrSetEx(code, base_name(file), line);
}

}  // namespace kova
