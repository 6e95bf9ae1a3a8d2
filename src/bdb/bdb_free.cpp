#include <cstdlib>

#include "bdb/bdb_internal.h"

void KOVABDbFree(void *pBuf) {
    free(pBuf);
}
