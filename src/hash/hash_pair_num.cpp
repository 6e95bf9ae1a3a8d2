#include "core/raise.h"
#include "kovasdk/hash.h"

int KLIBSzHashPairNum(const KLIBSZHASH *pHash) {
    if (pHash == nullptr) {
        kova::raise(ERR_BAD_PARAMETERS, 26);
        return -1;
    }
    return pHash->nPair;
}
