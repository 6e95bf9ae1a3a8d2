/*
 * String list: one self-contained, growable block holding its header, its array of item
 * pointers (growing upward) and the characters of its strings (packed downward from the block's
 * end). Freed with one free(); stored in a database record after its pointers become offsets.
 * Functions that may grow the block take the address of the caller's list pointer.
 */
#ifndef KOVASDK_LIST_H
#define KOVASDK_LIST_H

#include <stdint.h>

#include "export.h"

KOVA_BEGIN_DECLS

/* Sort modes (also the flags of KLIBSzListSortItems). */
#define KLIB_SZLIST_UNSORTED 0
#define KLIB_SZLIST_SORT_BYTES 1 /* strcmp */
#define KLIB_SZLIST_SORT_CASE 16 /* KLIBUnicodeUTF8StrCaseCmp */

/* Result modes of PslKLIBSzListAnd / Or / Sub. */
#define KLIB_SZLIST_IN_PLACE 0
#define KLIB_SZLIST_NEW_LIST 0x1000

/* Initial and minimum block size of PslKLIBSzListAlloc. */
#define KLIB_SZLIST_MIN_SIZE 512

typedef struct _tag_KLIBSZLIST {
    int32_t cbSize;    /* total size of the block in bytes */
    int32_t nItem;     /* number of items */
    int32_t cbFree;    /* bytes free between the item array and the string area */
    int32_t nSortMode; /* 0, KLIB_SZLIST_SORT_BYTES or KLIB_SZLIST_SORT_CASE */
    char *pszStrStart; /* lowest string stored; the block's end when there is none */
    char *pszEmpty;    /* the block's last byte, always 0: the shared empty item */
    char *pszItem[];   /* nItem pointers into the block */
} KLIBSZLIST, *PKLIBSZLIST;

/* A new empty, unsorted list of max(cbInit, 512) bytes; NULL with ERR_OUT_OF_MEMORY. */
KOVA_API PKLIBSZLIST PslKLIBSzListAlloc(int cbInit);
/* Frees the block (NULL is ignored). */
KOVA_API void KLIBSzListFree(PKLIBSZLIST pList);

/* Inserts a copy of szStr at idx (a sorted list ignores idx and keeps its order; an index past
 * the end fills the gap with empty items), growing the block as needed: the index it got; -1.
 * szStr may be an item of the same list. The block may move: *ppList is updated. */
KOVA_API int KLIBSzListInsert(PKLIBSZLIST *ppList, int idx, const char *szStr);
/* Insert at the end, and at the front. */
KOVA_API int KLIBSzListPush(PKLIBSZLIST *ppList, const char *szStr);
KOVA_API int KLIBSzListUnshift(PKLIBSZLIST *ppList, const char *szStr);
/* Replaces item idx's text (in place when no longer, else below the string area, growing only
 * when no room is left): the item's index after a sorted list is re-sorted; -1. */
KOVA_API int KLIBSzListSet(PKLIBSZLIST *ppList, int idx, const char *szStr);

/* Item idx, or NULL with ERR_BAD_PARAMETERS outside 0..nItem-1. */
KOVA_API const char *SzKLIBSzListGet(const KLIBSZLIST *pList, int idx);
/* Remove an item and return its text, which stays in the block until it grows or is emptied;
 * NULL with ERR_BAD_PARAMETERS for an empty list or a bad index. */
KOVA_API const char *SzKLIBSzListRemove(PKLIBSZLIST pList, int idx);
KOVA_API const char *SzKLIBSzListShift(PKLIBSZLIST pList);
KOVA_API const char *SzKLIBSzListPop(PKLIBSZLIST pList);
/* Empties the list (its sort mode kept) and returns it. */
KOVA_API PKLIBSZLIST KLIBSzListRemoveAll(PKLIBSZLIST pList);

/* Index of an equal item, or -1 (no error code when simply absent). */
KOVA_API int KLIBSzListFind(const KLIBSZLIST *pList, const char *szStr);
KOVA_API int KLIBSzListCaseFind(const KLIBSZLIST *pList, const char *szStr);
/* Binary search of a sorted list with the comparison of sortMode: the index of an equal
 * item, or the bitwise complement of the insertion point. */
KOVA_API int KLIBISzListFind(const KLIBSZLIST *pList, const char *szStr, int sortMode);

/* An unsorted list is sorted (empty items dropped) by flags KLIB_SZLIST_SORT_BYTES or _CASE;
 * the sort mode is set to flags in every case. */
KOVA_API int KLIBSzListSortItems(PKLIBSZLIST pList, int flags);
/* The sort mode; -1 for NULL. */
KOVA_API int KLIBSzListSorted(const KLIBSZLIST *pList);

/* Intersection, union and difference. Mode 0x1000 builds a new list (the caller frees it) and
 * leaves the inputs; mode 0 changes list 1 in place and returns it. Lists sorted in two
 * different modes are refused. NULL on failure. */
KOVA_API PKLIBSZLIST PslKLIBSzListAnd(PKLIBSZLIST pList1, const KLIBSZLIST *pList2, int mode);
KOVA_API PKLIBSZLIST PslKLIBSzListOr(PKLIBSZLIST *ppList1, const KLIBSZLIST *pList2, int mode);
KOVA_API PKLIBSZLIST PslKLIBSzListSub(PKLIBSZLIST pList1, const KLIBSZLIST *pList2, int mode);

/* Debugging print of the header and items to standard output. */
KOVA_API void KLIBISzListDump(const KLIBSZLIST *pList);

KOVA_END_DECLS

#endif /* KOVASDK_LIST_H */
