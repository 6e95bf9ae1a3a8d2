// The per-process error state behind kovaerrno: where the last raise came from and its trace.
#pragma once

#include <cstdint>

namespace kova::error {

constexpr int kMaxFrames = 64;

struct State {
    const char *file;  // kept by pointer: callers pass literals
    int32_t line;
    void *frames[kMaxFrames];  // return addresses of the last raise
    int32_t depth;
    char **symbols;  // backtrace_symbols() of the frames; may be null beside depth > 0
};

State &state();

}  // namespace kova::error
