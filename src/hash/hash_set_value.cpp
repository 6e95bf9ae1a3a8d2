#include <cstdlib>

#include "core/raise.h"
#include "hash/hash_internal.h"

using namespace kova::hash;

namespace {

// The slot for key after any rebuild; a table left without a usable slot (only tombstones on
// the probe path) is rebuilt at its own size, which drops the tombstones.
PKLIBSZHASH placement(PKLIBSZHASH hash, int *slot, const char *key) {
    *slot = KLIBISetLookDict(hash, key);
    if (*slot >= 0) return hash;
    PKLIBSZHASH rebuilt = PshKLIBIReSizeHash(hash, hash->nSlot, hash->cbData);
    if (rebuilt == nullptr) return nullptr;
    *slot = KLIBISetLookDict(rebuilt, key);
    if (*slot < 0) {  // every slot holds a key: the growth rule never lets this happen
        free(rebuilt);
        kova::raise(ERR_OUT_OF_MEMORY);
        return nullptr;
    }
    return rebuilt;
}

}  // namespace

int KLIBSzHashSetValue(PKLIBSZHASH *ppHash, const char *szKey, const char *szValue) {
    if (ppHash == nullptr || *ppHash == nullptr || szKey == nullptr || szValue == nullptr) {
        return -1;
    }
    PKLIBSZHASH old = *ppHash;
    int slot;
    PKLIBSZHASH hash = placement(old, &slot, szKey);
    if (hash == nullptr) return -1;

    const size_t value_len = strlen(szValue) + 1;
    const bool present = hash->rgSlot[slot].szKey != nullptr;
    if (present && value_len <= strlen(hash->rgSlot[slot].szValue) + 1) {
        memmove(hash->rgSlot[slot].szValue, szValue, value_len);
    } else {
        const size_t needed = present ? value_len : strlen(szKey) + 1 + value_len;
        PKLIBSZHASH room = PshKLIBICheckSpace(hash, needed);
        if (room == nullptr) {
            if (hash != old) free(hash);
            return -1;
        }
        if (room != hash) {
            if (hash != old) free(hash);
            hash = room;
            slot = KLIBISetLookDict(hash, szKey);
        }
        if (present) {
            hash->rgSlot[slot].szValue = store(hash, szValue, value_len);
        } else {
            store_pair(hash, slot, szKey, szValue);
        }
    }
    // Only now: key or value may have pointed into the old block.
    if (hash != old) {
        free(old);
        *ppHash = hash;
    }
    return slot;
}
