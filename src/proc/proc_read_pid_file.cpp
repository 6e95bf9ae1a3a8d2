#include <cstdio>
#include <cstdlib>

#include "core/owners.h"
#include "core/raise.h"
#include "kovasdk/proc.h"

extern "C" KOVA_API int KLIBReadPidFile(const char *szPath) {
    if (szPath == nullptr) {
        kova::raise(ERR_BAD_PARAMETERS);
        return -1;
    }
    kova::UniqueFile file(fopen(szPath, "r"));
    if (!file) {
        kova::raise(ERR_OPEN_FAILED);
        return -1;
    }
    char line[32];
    if (fgets(line, sizeof line, file.get()) == nullptr) return 0;
    return static_cast<int>(strtol(line, nullptr, 10));
}
