/*
 * Record store over btree files: the thin layer under the user, group and share databases.
 * One handle per open btree file (1.85 interface of the btree library, dbopen with DB_BTREE),
 * records get/set/delete by key, a cursor walk that can skip the reserved bookkeeping records
 * (keys beginning with "#"), and the three reserved records that drive cache rebuilds.
 *
 * Data handed out goes into buffers the caller owns: a pointer to a heap buffer pointer (may
 * point to NULL) and a pointer to its capacity in bytes. The buffer is grown as needed
 * (KOVACheckAndRealloc) and, on success, the capacity holds exactly the length of the data
 * copied. Release the buffer with KOVABDbFree or free().
 *
 * What a caller must know: the account and share caches live in "/tmp" and are made
 * world-writable (0666), so any local user can change or remove them: they are caches, rebuilt
 * from the text files, never a master copy. The store does not serialise writers of one file:
 * callers hold the file lock of the family (ErrKLIBFileLock) around every change.
 *
 * DBTSet and DBTCopyOut take the library's key/data pair (DBT), whose header is not valid
 * strict C: they are declared only when <db_185.h> is included before this header.
 */
#ifndef KOVASDK_BDB_H
#define KOVASDK_BDB_H

#include <stdint.h>

#include "export.h"
#include "list.h"

KOVA_BEGIN_DECLS

/* Cursor modes, each turned into the sequence flag of the btree library (named after it). */
#define KOVA_BDB_CURSOR_SET 1   /* R_CURSOR: at the given key or the smallest one after it */
#define KOVA_BDB_CURSOR_FIRST 2 /* R_FIRST */
#define KOVA_BDB_CURSOR_LAST 3  /* R_LAST */
#define KOVA_BDB_CURSOR_NEXT 4  /* R_NEXT */
#define KOVA_BDB_CURSOR_PREV 5  /* R_PREV */

/* Duplicate mode of KOVABDbOpen: a btree that keeps every record stored under one key. */
#define KOVA_BDB_DUP 1

/* Reserved records: key texts and the key lengths used (the deprecated marker counts its NUL;
 * deliberate, and other implementations use the same lengths). Values: 4-byte native int. */
#define KOVA_BDB_KEY_SYNC_TIME "#KOVA@SYNC@TIME"
#define KOVA_BDB_KEY_SYNC_TIME_LEN 15
#define KOVA_BDB_KEY_DEPRECATED "#KOVA@DEPRECATED"
#define KOVA_BDB_KEY_DEPRECATED_LEN 17
#define KOVA_BDB_KEY_EXPIRE_TIME "#KOVA@EXPIRE@TIME"
#define KOVA_BDB_KEY_EXPIRE_TIME_LEN 17
#define KOVA_BDB_RESERVED_PREFIX '#'

/* Seconds after which the domain part of a database is refilled (more than five minutes). */
#define KOVA_BDB_DOMAIN_EXPIRE_SECONDS 300

struct __db; /* DB of <db_185.h> */

typedef struct _tag_KOVABDB {
    struct __db *pDb;    /* the open database, owned by the handle */
    int32_t nCursorType; /* KOVA_BDB_CURSOR_*; set to KOVA_BDB_CURSOR_NEXT by KOVABDbOpen */
} KOVABDB, *PKOVABDB;

/* flags: open() flags passed to dbopen unchanged (O_RDWR, O_RDWR|O_CREAT); dupMode
 * KOVA_BDB_DUP for duplicate keys. The file is created with mode 0666. NULL on failure. A file
 * that is not a store (no regular file, or a btree header with a bad magic, version, page size
 * or size) is refused with ERR_BDB_INVALID before the library sees it; a creation blocked by a
 * file at the library's temporary name ("__db.<name>") fails within a second, unless that file
 * is a stale empty one of the caller's own, which is removed. */
KOVA_API PKOVABDB KOVABDbOpen(const char *szPath, int flags, int dupMode);
/* Closes and frees the handle. Returns 0 even when the library's close fails (the error
 * state then tells); -1 only for a NULL handle. */
KOVA_API int KOVABDbClose(PKOVABDB pDb);
KOVA_API void KOVABDbFree(void *pBuf);

/* 0 with the value copied out and *pcbData its length; -1 (ERR_KEY_NOT_FOUND when absent). */
KOVA_API int KOVABDbGet(PKOVABDB pDb, const void *pKey, int32_t cbKey, void **ppData,
                        int32_t *pcbData);
/* Stores a record; a reserved key ("#...") replaces every record under it. 0 or -1. */
KOVA_API int KOVABDbSet(PKOVABDB pDb, const void *pKey, int32_t cbKey, const void *pData,
                        int32_t cbData);
/* Deletes every record under the key. 0 or -1 (ERR_KEY_NOT_FOUND when absent). */
KOVA_API int KOVABDbDelete(PKOVABDB pDb, const void *pKey, int32_t cbKey);

KOVA_API int KOVABDbCursorSetType(PKOVABDB pDb, int mode);
/* Reads the record at the cursor in the handle's mode (KOVA_BDB_CURSOR_SET searches for the
 * key already in *ppKey / *pcbKey). With blSkipReserved 1, reserved records are passed over
 * and a walk begun with FIRST (LAST) goes on as NEXT (PREV). The end of the records is -1
 * with ERR_BDB_END_OF_RECORDS. */
KOVA_API int KOVABDbCursorGet(PKOVABDB pDb, int blSkipReserved, void **ppKey, int32_t *pcbKey,
                              void **ppData, int32_t *pcbData);

/* Makes *ppData hold at least cbNeed bytes: allocated zeroed when NULL, reallocated to
 * exactly cbNeed when smaller than *pcbAlloc says. When the growth fails the old buffer is
 * freed and *ppData becomes NULL. 0 or -1. */
KOVA_API int KOVACheckAndRealloc(void **ppData, int32_t *pcbAlloc, int32_t cbNeed);

#ifdef _DB_185_H_
KOVA_API int DBTSet(DBT *pDbt, const void *pData, int32_t cbData);
KOVA_API int DBTCopyOut(const DBT *pDbt, void **ppData, int32_t *pcbAlloc);
#endif

/* The reserved records. The getters hand out a new 4-byte buffer: *ppTime must be NULL on
 * entry; free it with KOVABDbFree. */
KOVA_API int KOVABDbConfSyncTimeGet(PKOVABDB pDb, int32_t **ppTime);
KOVA_API int KOVABDbConfSyncTimeSet(PKOVABDB pDb, int32_t syncTime);
/* The stored marker (0 or 1), or -1 on failure (ERR_KEY_NOT_FOUND when there is none). */
KOVA_API int KOVABDbDeprecatedGet(PKOVABDB pDb);
KOVA_API int KOVABDbDeprecatedSet(PKOVABDB pDb, int32_t value);
/* 1 when the stored sync time differs from syncTime, 0 when equal, -1 when unreadable. */
KOVA_API int KOVABDbIsNeedToRebuild(PKOVABDB pDb, int32_t syncTime);
KOVA_API int KOVABDbDomainExpireTimeSet(PKOVABDB pDb);
KOVA_API int KOVABDbDomainExpireTimeGet(PKOVABDB pDb, int32_t **ppTime);
/* A missing record counts as deleted. */
KOVA_API int KOVABDbDomainExpireTimeDelete(PKOVABDB pDb);
/* 1 when the domain part is older than five minutes, the record is missing or its time lies
 * ahead of the clock; 0 otherwise (also on other failures). */
KOVA_API int KOVABDbIsNeedToDomainRebuild(PKOVABDB pDb);

/* String lists as records: the list block with its pointers turned into offsets from the
 * block's start. cbSize is the list's size (its cbSize field) / the packed block's length. */
KOVA_API void *KOVAListDBPack(const KLIBSZLIST *pList, int32_t cbSize);
KOVA_API PKLIBSZLIST KOVAListDBUnpack(const void *pPacked, int32_t cbSize);
/* Stores the packed list under the key "#" + upper-cased name (its NUL included). 0 or -1. */
KOVA_API int KOVAListDBSet(PKOVABDB pDb, const char *szName, const KLIBSZLIST *pList);

KOVA_END_DECLS

#endif /* KOVASDK_BDB_H */
