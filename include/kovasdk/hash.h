/*
 * String hash: string keys mapped to string values in one self-contained block (header, slot
 * table, string area), freed with one free(). Open addressing with linear probing; each pair's
 * text is stored as key NUL value NUL in the string area, which is only compacted when the
 * block is rebuilt on growth. Functions that may grow the block take the address of the
 * caller's hash pointer and replace it.
 */
#ifndef KOVASDK_HASH_H
#define KOVASDK_HASH_H

#include <stdint.h>
#include <stdio.h>

#include "export.h"
#include "list.h"

KOVA_BEGIN_DECLS

/* Slot count of a new hash, and the minimum string-area size of PshKLIBSzHashAlloc. */
#define KLIB_SZHASH_INIT_SLOTS 31
#define KLIB_SZHASH_MIN_DATA 512

/* A slot is empty when both pointers are null, occupied when szKey is set, and deleted (a
 * tombstone) when szKey is null but szValue is not. */
typedef struct _tag_KLIBSZHASH_SLOT {
    char *szKey;
    char *szValue;
} KLIBSZHASH_SLOT;

typedef struct _tag_KLIBSZHASH {
    int32_t cbData;           /* size in bytes of the string area */
    int32_t cbFree;           /* bytes still free in the string area */
    int32_t nSlot;            /* number of slots of the table */
    int32_t nPair;            /* number of keys held */
    char *pNext;              /* first free byte of the string area */
    KLIBSZHASH_SLOT rgSlot[]; /* nSlot slots, then the string area of cbData bytes */
} KLIBSZHASH, *PKLIBSZHASH;

/* A new hash of 31 slots and max(cbData, 512) bytes of string area; null on failure. */
KOVA_API PKLIBSZHASH PshKLIBSzHashAlloc(int cbData);
/* Frees the block (NULL is ignored). */
KOVA_API void KLIBSzHashFree(PKLIBSZHASH pHash);

/* Sets key to value (both copied); the slot index, or -1 (the caller's hash stays valid). */
KOVA_API int KLIBSzHashSetValue(PKLIBSZHASH *ppHash, const char *szKey, const char *szValue);
/* The value held for key, or null when absent. */
KOVA_API const char *SzKLIBSzHashGetValue(const KLIBSZHASH *pHash, const char *szKey);
/* Removes key; its value (still valid inside the block until the next rebuild), or null. */
KOVA_API const char *SzKLIBSzHashRemoveKey(PKLIBSZHASH pHash, const char *szKey);
/* Pushes every key in slot order onto *ppList, a new list when *ppList is null (ppList itself
 * may be null: only counts); the number of keys, or -1 with the list as it was. */
KOVA_API int KLIBSzHashEnumKey(const KLIBSZHASH *pHash, PKLIBSZLIST *ppList);
/* Number of keys; -1 with ERR_BAD_PARAMETERS for a null hash. */
KOVA_API int KLIBSzHashPairNum(const KLIBSZHASH *pHash);
/* Number of keys; 0xFFFFFFFF for a null hash, without an error code. */
KOVA_API uint32_t KLIBSzHashGetLength(const KLIBSZHASH *pHash);
/* Empties the hash in place and returns it. */
KOVA_API PKLIBSZHASH PslSzHashRemoveAll(PKLIBSZHASH pHash);

/* Writes "[section]\n" (when section is not null), then format(key, value) for each pair in
 * slot order; format null means "%s=%s\n". 0, or -1. */
KOVA_API int ErrKLIBIFileHash2File(FILE *fp, const char *szSection, const KLIBSZHASH *pHash,
                                   const char *szFormat);
/* 1 when format holds "%s", "=", "%s" and a line feed in that order (null counts as valid),
 * else 0. */
KOVA_API int KLIBIFileCheckFormat(const char *szFormat);

/* The home slot of a key among nSlot slots: 4-byte big-endian groups summed modulo 2^32, then
 * modulo nSlot; 0 for "", -1 for a null key or nSlot <= 0. */
KOVA_API int KLIBIRadixHashCode(const char *szKey, int nSlot);

KOVA_END_DECLS

#endif /* KOVASDK_HASH_H */
