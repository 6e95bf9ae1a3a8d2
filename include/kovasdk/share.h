/*
 * Shared folders: the share record, its packed form in the share cache, the share-name rule,
 * the mapping between a share's default access and the file-sharing service's keys, and the
 * checks of a share's three access lists.
 *
 * A share is a section of "/usr/kova/etc/smb.conf". Its access lists name users and groups (a
 * group as "@" and its name), comma-separated; in the file every list is framed by "nobody"
 * ("nobody,alice,@sales,nobody"), which records never show.
 */
#ifndef KOVASDK_SHARE_H
#define KOVASDK_SHARE_H

#include <stdint.h>

#include "bdb.h"
#include "export.h"
#include "group.h"
#include "hash.h"
#include "list.h"
#include "user.h"

KOVA_BEGIN_DECLS

#define KOVA_SHARE_CONF "/usr/kova/etc/smb.conf"
#define KOVA_SHARE_DB_PATH "/tmp/.db.kovashare.0850"
#define KOVA_SHARE_DB_TMP_PATH "/tmp/.db.kovashare.tmp"

/* fType: the access of everybody a list does not name. */
#define KOVA_SHARE_READ_ONLY 1
#define KOVA_SHARE_READ_WRITE 2
#define KOVA_SHARE_NO_ACCESS 4

/* Section kinds (ShareSectionTypeGet). */
#define KOVA_SHARE_SECTION_SHARE 0
#define KOVA_SHARE_SECTION_RESERVED 1

/* The longest share name, in UTF-8 characters. */
#define KOVA_SHARE_NAME_MAX_CHARS 32

/* The packed record: a zero word, six string offsets (counted from byte 4), fType, browseable,
 * ftpWriteOnly, the packed length and the record's size, all 32-bit big-endian; then the
 * strings. */
#define KOVA_SHARE_PACKED_HEADER 48

/* One share, one heap block: this header, then the non-empty strings with their NULs in field
 * order; a NULL or empty string points at the block's last byte, which is zero. cbAlloc is the
 * block's capacity, cbSize the bytes in use. */
typedef struct _tag_KOVASHARE {
    char *szName;
    char *szComment;
    char *szPath;
    char *szDenyList; /* "invalid users" */
    char *szRWList;   /* "write list" */
    char *szROList;   /* "read list" */
    int32_t fType;
    int32_t browseable;
    int32_t ftpWriteOnly;
    int32_t cbAlloc;
    int32_t cbSize;
} KOVASHARE, *PKOVASHARE;

/* Builds a record from a template carrying the six strings and three integers into *ppShare
 * (NULL: a new block; an existing block is reused or grown and may move). The name and path
 * are required and the integers must not be negative (ERR_BAD_PARAMETERS); the name follows
 * the share-name rule (ERR_INVALID_SHARENAME) and the path begins with "/"
 * (ERR_SHARE_PATH_NOT_ABSOLUTE). 0 or -1. */
KOVA_API int KOVAShareAlloc(PKOVASHARE *ppShare, const KOVASHARE *pTemplate);
KOVA_API void KOVAShareFree(PKOVASHARE pShare);

/* The share cache: one btree of every section of smb.conf (shares as packed records under the
 * upper-cased name, the reserved sections as string lists under "#" and the name). */
typedef struct _tag_KOVASHAREDB {
    PKOVABDB pShareDb;
} KOVASHAREDB, *PKOVASHAREDB;

/* As for users: open (building or rebuilding as needed) or NULL; open at a path (1 built, 0
 * opened, -1); close; check (1 reopened, 0 current, -1); build into an open handle; write
 * smb.conf from the cache. */
KOVA_API PKOVASHAREDB KOVAShareDBOpen(void);
KOVA_API int KOVAShareDBOpenFile(PKOVASHAREDB *ppShareDb, const char *szPath);
KOVA_API int KOVAShareDBClose(PKOVASHAREDB pShareDb);
KOVA_API int KOVAShareDBCheckAndRebuild(PKOVASHAREDB *ppShareDb);
KOVA_API int KOVAShareDBBuild(PKOVASHAREDB pShareDb);
KOVA_API int KOVAShareDBDump(PKOVASHAREDB pShareDb);
/* The share under a name in any case: 0, or -1 (ERR_NO_SUCH_SHARE). */
KOVA_API int KOVAShareDBGet(PKOVASHAREDB pShareDb, const char *szName, PKOVASHARE *ppShare);
/* 0 when the upper-cased key holds a share, -1 with ERR_NO_SUCH_SHARE when not there and
 * ERR_FORMAT_ERROR when its record is malformed. */
KOVA_API int KOVAShareDBCheckExists(PKOVASHAREDB pShareDb, const char *szKey);
/* Writes a share; with an old name the old share is removed first, without one the name must
 * be free (ERR_SHARE_EXISTS). 0 or -1. */
KOVA_API int KOVAShareDBSet(PKOVASHAREDB pShareDb, const char *szOldName, const KOVASHARE *pShare);
KOVA_API int KOVAShareDBDelete(PKOVASHAREDB pShareDb, const char *szName);
/* The shares of the cache one by one (cursorType KOVA_BDB_CURSOR_FIRST to begin,
 * KOVA_BDB_CURSOR_NEXT to go on): 0, or -1 (ERR_BDB_END_OF_RECORDS at the end). EnumI pushes
 * every share name, EnumTypeMatched those of one fType (0: all): their number, or -1. */
KOVA_API int KOVAShareDBCursorGet(PKOVASHAREDB pShareDb, int32_t cursorType, PKOVASHARE *ppShare);
KOVA_API int KOVAShareDBEnumI(PKOVASHAREDB pShareDb, PKLIBSZLIST *ppList);
KOVA_API int KOVAShareDBEnumTypeMatched(PKOVASHAREDB pShareDb, int32_t fType, PKLIBSZLIST *ppList);
/* A record from a share section's keys (lower-cased): lists kept to existing users and groups,
 * fType from "@users" in a list or from "guest ok" and "writeable". 0 or -1. */
KOVA_API int ShareAllocFromConf(const char *szSection, const KLIBSZHASH *pKeys,
                                PKOVASHARE *ppShare);

/* The share operations. Get: 0, or -1 (ERR_NO_SUCH_SHARE). Enum: the number of share names
 * pushed (in the order of their keys), or -1. Set and Delete: 0 or -1; the configuration
 * lock is held from opening the cache to the end of the dump. */
KOVA_API int KOVAShareGet(const char *szName, PKOVASHARE *ppShare);
KOVA_API int KOVAShareSet(const char *szOldName, const KOVASHARE *pShare);
KOVA_API int KOVAShareDelete(const char *szName);
KOVA_API int KOVAShareEnum(PKLIBSZLIST *ppList);
KOVA_API int KOVAShareEnumByPrefix(PKLIBSZLIST *ppList, const char *szPrefix);
/* Share names matching a POSIX extended regular expression; share names whose path is the
 * mount path or lies below it. */
KOVA_API int KOVAShareEnumByRegex(PKLIBSZLIST *ppList, const char *szRegex);
KOVA_API int KOVAShareEnumByMntPath(PKLIBSZLIST *ppList, const char *szMntPath);
/* Empties every share's "#recycle" folder in a process of its own (its pid in
 * "/tmp/cleanrecycle.pid" while it works): 0 once started, -1. */
KOVA_API int KOVAShareRecycleClean(void);
/* The reserved sections: the lines of one as a hash (keys lower-cased; ERR_SECTION_NOT_FOUND
 * when the file has no such section), written from a hash, removed. Another section name is
 * refused (ERR_BAD_PARAMETERS). 0 or -1. */
KOVA_API int KOVAShareRSectionGet(const char *szSection, PKLIBSZHASH *ppHash);
KOVA_API int KOVAShareRSectionSet(const char *szSection, PKLIBSZHASH pHash);
KOVA_API int KOVAShareRSectionRemove(const char *szSection);

/* The packed record into *ppData (a heap block of *pcbAlloc bytes, grown as needed): its
 * length, or -1. */
KOVA_API int KOVAShareDBPack(const KOVASHARE *pShare, void **ppData, int32_t *pcbAlloc);
/* A packed record of cbData bytes into *ppShare (as for KOVAShareAlloc). 0, or -1
 * (ERR_FORMAT_ERROR for a record that does not hold together). */
KOVA_API int KOVAShareDBUnpack(const void *pData, int32_t cbData, PKOVASHARE *ppShare);

/* 1 when the name follows the share-name rule, else 0. */
KOVA_API int BlKLIBIsShareName(const char *szName);
/* KOVA_SHARE_SECTION_RESERVED for "global", "home" and "printers" in any case, else
 * KOVA_SHARE_SECTION_SHARE; -1 for NULL. */
KOVA_API int ShareSectionTypeGet(const char *szSection);
/* The name between "[" and the last "]" of a section header line into szName: its length with
 * the NUL, or -1 (ERR_FORMAT_ERROR when the line is no header). */
KOVA_API int ShareParseSectionName(const char *szLine, char *szName, int cbName);
/* fType from the values of "guest ok" and "writeable" (either may be NULL): 1, 2 or 4, or -1
 * with ERR_UNKNOWN for any other pair. */
KOVA_API int ShareFTypeGetFormConf(const char *szGuestOk, const char *szWriteable);
/* The two values for fType: 0, or -1 (ERR_BAD_PARAMETERS for another fType). */
KOVA_API int ShareFTypeSetToConf(int32_t fType, const char **pszGuestOk, const char **pszWriteable);

/* Removes the later repeats of every name from a comma-separated list, in place (names compared
 * without regard to case): the number of names left, or -1. */
KOVA_API int RemoveSameUsers(char *szList);
/* The share family's name of KOVAStrNobodyFilter: the same. */
KOVA_API int KOVAStrFilterOutNobody(const char *szNames, PKLIBSZLIST *ppList);

/* The users named in the three lists, "@" entries expanded to the group's members: 0 when each
 * user is named once, 1 when a user is named twice within one list only, 2 when a user is
 * named in two lists (which wins), -1 on failure. */
KOVA_API int UserCheckRights(PKLIBSZLIST pDeny, PKLIBSZLIST pRW, PKLIBSZLIST pRO);
/* The three lists as one list sorted by name, each entry "NAME - NA", "NAME - RW" or
 * "NAME - RO" (a name in several lists once, deny before read-write before read-only): the
 * number of entries pushed onto *ppList, or -1. */
KOVA_API int ParseRights(const char *szDeny, const char *szRW, const char *szRO,
                         PKLIBSZLIST *ppList);
/* As KOVAUserGetValidUserList, keeping also "@group" entries whose group exists in pGroupDb
 * (written "@" and the group's name as stored). */
KOVA_API int KOVAUserGetValidUserList2(PKOVAUSERDB pUserDb, PKOVAGROUPDB pGroupDb,
                                       const char *szList, PKLIBSZLIST *ppList);

KOVA_END_DECLS

#endif /* KOVASDK_SHARE_H */
