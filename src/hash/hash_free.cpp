#include <cstdlib>

#include "kovasdk/hash.h"

void KLIBSzHashFree(PKLIBSZHASH pHash) {
    free(pHash);
}
