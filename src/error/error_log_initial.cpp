#include <unistd.h>

#include <cstdio>

#include "kovasdk/error.h"

void KLIBErrLogInitial(const char *path) {
    if (path == nullptr) return;
    FILE *f = fopen(path, "w");
    if (f == nullptr) return;  // silent by definition
    fflush(f);
    fsync(fileno(f));
    fclose(f);
}
