#include "hash/hash_internal.h"

using namespace kova::hash;

int KLIBIGetLookDict(const KLIBSZHASH *hash, const char *key) {
    const int home = KLIBIRadixHashCode(key, hash->nSlot);
    if (home < 0 || is_empty(hash->rgSlot[home])) return -1;
    if (holds(hash->rgSlot[home], key)) return home;
    for (int i = next_slot(hash, home); i != home; i = next_slot(hash, i)) {
        if (is_empty(hash->rgSlot[i])) return -1;
        if (holds(hash->rgSlot[i], key)) return i;
    }
    return -1;
}

int KLIBISetLookDict(const KLIBSZHASH *hash, const char *key) {
    const int home = KLIBIRadixHashCode(key, hash->nSlot);
    if (home < 0) return -1;
    if (is_empty(hash->rgSlot[home]) || holds(hash->rgSlot[home], key)) return home;
    // A tombstone in the home slot itself is not reused: remembering starts after it (kept).
    int remembered = -1;
    for (int i = next_slot(hash, home); i != home; i = next_slot(hash, i)) {
        const KLIBSZHASH_SLOT &slot = hash->rgSlot[i];
        if (slot.szKey == nullptr) {
            if (remembered < 0) remembered = i;
            if (slot.szValue == nullptr) break;
        } else if (strcmp(slot.szKey, key) == 0) {
            return i;
        }
    }
    return remembered;
}
