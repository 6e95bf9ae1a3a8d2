#include <unistd.h>

#include <cstdio>

#include "core/raise.h"
#include "kovasdk/proc.h"

extern "C" KOVA_API int KOVAProcPidFileCreate(const char *szPath) {
    if (szPath == nullptr) {
        kova::raise(ERR_BAD_PARAMETERS);
        return -1;
    }
    FILE *file = fopen(szPath, "w");
    if (file == nullptr) {
        kova::raise(ERR_OPEN_FAILED);
        return -1;
    }
    const bool written = fprintf(file, "%u\n", static_cast<unsigned>(getpid())) > 0;
    if (fclose(file) != 0 || !written) {
        kova::raise(ERR_WRITE_FAILED);
        return -1;
    }
    return 0;
}
