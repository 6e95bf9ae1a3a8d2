#include <cstdio>

#include "error/error_internal.h"
#include "kovasdk/error.h"

void KOVAErrorBackTracePrint(void) {
    const auto &st = kova::error::state();
    if (st.symbols == nullptr) return;  // backtrace_symbols failed: nothing to show
    for (int i = 0; i < st.depth; ++i)
        puts(st.symbols[i]);
}
