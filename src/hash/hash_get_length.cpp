#include "kovasdk/hash.h"

uint32_t KLIBSzHashGetLength(const KLIBSZHASH *pHash) {
    return pHash != nullptr ? static_cast<uint32_t>(pHash->nPair) : 0xFFFFFFFFu;
}
