// What the string-hash operations share: the block's geometry, probing, storing and growth.
#pragma once

#include <cstddef>
#include <cstring>

#include "kovasdk/hash.h"

namespace kova::hash {

// Derived from the real field widths: the slot table starts at 20 with 4-byte pointers and at
// 24 with 8-byte ones, and each slot is two pointers.
constexpr size_t kHeaderSize = offsetof(KLIBSZHASH, rgSlot);
constexpr size_t kSlotSize = sizeof(KLIBSZHASH_SLOT);

inline char *string_area(KLIBSZHASH *hash) {
    return reinterpret_cast<char *>(&hash->rgSlot[hash->nSlot]);
}

inline bool is_empty(const KLIBSZHASH_SLOT &slot) {
    return slot.szKey == nullptr && slot.szValue == nullptr;
}

inline bool holds(const KLIBSZHASH_SLOT &slot, const char *key) {
    return slot.szKey != nullptr && strcmp(slot.szKey, key) == 0;
}

inline int next_slot(const KLIBSZHASH *hash, int slot) {
    return slot + 1 == hash->nSlot ? 0 : slot + 1;
}

// A zeroed block of the given geometry with an empty string area; null (nothing raised) when
// the allocation fails or the size does not fit.
PKLIBSZHASH new_block(int slots, int data);

// Copies len bytes (a text and its NUL) to the first free byte; the caller has made room.
char *store(KLIBSZHASH *hash, const char *text, size_t len);

// Stores key and value as a new pair in a slot that holds no key.
void store_pair(KLIBSZHASH *hash, int slot, const char *key, const char *value);

}  // namespace kova::hash

// The slot holding key, or -1 when absent.
int KLIBIGetLookDict(const KLIBSZHASH *hash, const char *key);

// The slot where key is to be set: its own slot when present, else the first slot without a
// key on its probe path (never the home slot's tombstone); -1 when there is none.
int KLIBISetLookDict(const KLIBSZHASH *hash, const char *key);

// Makes room for needed more bytes of text. Returns the hash itself when it has room, a new
// rebuilt block when it had to grow (the old one is left for the caller to free once the new
// text is stored, since that text may lie inside it), or null with ERR_OUT_OF_MEMORY raised.
PKLIBSZHASH PshKLIBICheckSpace(PKLIBSZHASH hash, size_t needed);

// A new block of the given slot count and string-area size holding every pair of hash,
// re-inserted in slot order; hash itself is not freed. Null with ERR_OUT_OF_MEMORY raised.
PKLIBSZHASH PshKLIBIReSizeHash(const KLIBSZHASH *hash, int slots, int data);
