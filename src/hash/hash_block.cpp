#include <climits>
#include <cstdint>
#include <cstdlib>

#include "core/alloc.h"
#include "core/raise.h"
#include "hash/hash_internal.h"

namespace kova::hash {

PKLIBSZHASH new_block(int slots, int data) {
    const uint64_t size =
        kHeaderSize + kSlotSize * static_cast<uint64_t>(slots) + static_cast<uint64_t>(data);
    if (slots <= 0 || data < 0 || size > INT_MAX) return nullptr;
    auto *hash = static_cast<PKLIBSZHASH>(kova::xcalloc(1, static_cast<size_t>(size)));
    if (hash == nullptr) return nullptr;
    hash->cbData = data;
    hash->cbFree = data;
    hash->nSlot = slots;
    hash->pNext = string_area(hash);
    return hash;
}

char *store(KLIBSZHASH *hash, const char *text, size_t len) {
    char *at = hash->pNext;
    memmove(at, text, len);
    hash->pNext += len;
    hash->cbFree -= static_cast<int32_t>(len);
    return at;
}

void store_pair(KLIBSZHASH *hash, int slot, const char *key, const char *value) {
    hash->rgSlot[slot].szKey = store(hash, key, strlen(key) + 1);
    hash->rgSlot[slot].szValue = store(hash, value, strlen(value) + 1);
    ++hash->nPair;
}

}  // namespace kova::hash

using namespace kova::hash;

PKLIBSZHASH PshKLIBIReSizeHash(const KLIBSZHASH *hash, int slots, int data) {
    PKLIBSZHASH grown = new_block(slots, data);
    if (grown == nullptr) {
        kova::raise(ERR_OUT_OF_MEMORY);
        return nullptr;
    }
    for (int i = 0; i < hash->nSlot; ++i) {
        const KLIBSZHASH_SLOT &slot = hash->rgSlot[i];
        if (slot.szKey != nullptr) {
            store_pair(grown, KLIBISetLookDict(grown, slot.szKey), slot.szKey, slot.szValue);
        }
    }
    return grown;
}

PKLIBSZHASH PshKLIBICheckSpace(PKLIBSZHASH hash, size_t needed) {
    const int64_t slots = hash->nSlot;
    const int64_t pairs = hash->nPair;
    // Single precision, as the appliance computes it: the growth points depend on it.
    const float ratio = static_cast<float>(slots - pairs) / static_cast<float>(slots);
    const int64_t new_slots = ratio < 0.25f ? slots * 4 - 5 : slots;

    if (hash->cbFree > 0 && static_cast<size_t>(hash->cbFree) > needed) {
        if (new_slots == slots) return hash;
        return PshKLIBIReSizeHash(hash, static_cast<int>(new_slots), hash->cbData);
    }
    const int64_t average = pairs > 0 ? hash->cbData / pairs : static_cast<int64_t>(needed);
    const int64_t new_data =
        hash->cbData + (slots - pairs) * average + static_cast<int64_t>(needed);
    if (new_slots > INT_MAX || new_data > INT_MAX) {
        kova::raise(ERR_OUT_OF_MEMORY);
        return nullptr;
    }
    return PshKLIBIReSizeHash(hash, static_cast<int>(new_slots), static_cast<int>(new_data));
}
