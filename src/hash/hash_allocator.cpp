#include "core/raise.h"
#include "hash/hash_internal.h"

PKLIBSZHASH PshKLIBSzHashAlloc(int cbData) {
    PKLIBSZHASH hash = kova::hash::new_block(
        KLIB_SZHASH_INIT_SLOTS, cbData > KLIB_SZHASH_MIN_DATA ? cbData : KLIB_SZHASH_MIN_DATA);
    if (hash == nullptr) kova::raise(ERR_OUT_OF_MEMORY, 39);
    return hash;
}
