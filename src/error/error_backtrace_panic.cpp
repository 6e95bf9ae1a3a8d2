#include <syslog.h>

#include <cstdio>

#include "core/log.h"
#include "core/owners.h"
#include "core/root.h"
#include "error/error_internal.h"
#include "kovasdk/error.h"

void KOVAErrorBackTracePanic(void) {
    const auto &st = kova::error::state();
    if (st.symbols == nullptr) return;
    kova::RootedPath console("/dev/console");
    if (kova::UniqueFile out{fopen(console.c_str(), "w")}) {
        for (int i = 0; i < st.depth; ++i)
            fprintf(out.get(), "%s\n", st.symbols[i]);
    }
    for (int i = 0; i < st.depth; ++i)
        kova::log(LOG_ERR, "%s\n", st.symbols[i]);
}
