/*
 * Local groups: the group record, the group database (a cache of "/etc/group" and
 * "/etc/group_desc" in three btree files of the record store under /tmp) and the group
 * operations. It keeps its cache exactly as the user database does (user.h): the text files are
 * the master copy, readers take no lock, writers hold the group file lock (KLIB_LOCK_GR) for a
 * whole change and write both files through their temporary names ("/etc/group_tmp" and
 * "/etc/group_desc.tmp"), renamed over them in that order.
 *
 * Members are user names; a group's member list is kept to users that exist when it is written.
 * Groups with ids above 65535 have their member list framed by "nobody" in /etc/group
 * ("nobody,alice,bob,nobody", "nobody,nobody" when empty); records never show the framing.
 */
#ifndef KOVASDK_GROUP_H
#define KOVASDK_GROUP_H

#include <stdint.h>

#include "bdb.h"
#include "export.h"
#include "list.h"
#include "user.h"

KOVA_BEGIN_DECLS

/* The cache: base path, the suffixes of its three btree files, the rebuild's base path. */
#define KOVA_GROUP_DB_PATH "/tmp/.db.group"
#define KOVA_GROUP_DB_TMP_PATH "/tmp/.db.group.tmp"
#define KOVA_GROUP_DB_NAME ".name.0850"
#define KOVA_GROUP_DB_ID ".id.0850"
#define KOVA_GROUP_DB_DESC ".desc.0850"

/* The id btree's record of the last group id handed out (key without NUL; 4-byte native int). */
#define KOVA_GROUP_KEY_CURRENT_GID "#CURRENT_GID"
#define KOVA_GROUP_KEY_CURRENT_GID_LEN 12

/* The range of ids handed to new groups. */
#define KOVA_GROUP_GID_MIN 65536
#define KOVA_GROUP_GID_MAX 196607

/* The longest group name, in UTF-8 characters. */
#define KOVA_GROUP_NAME_MAX_CHARS 15

/* One group, one heap block: this header, then copies of its strings (never NULL). szMembers
 * is comma-separated as in the group line, without the "nobody" framing. */
typedef struct _tag_KOVAGROUP {
    char *szName;
    char *szPassword;
    uint32_t gid;
    char *szMembers;
    int32_t cbAlloc;
} KOVAGROUP, *PKOVAGROUP;

/* The open cache: three stores. */
typedef struct _tag_KOVAGROUPDB {
    PKOVABDB pGRPName; /* upper name -> group line */
    PKOVABDB pGRPGID;  /* "%06d" id -> upper name, "#CURRENT_GID" */
    PKOVABDB pGRPDesc; /* upper name -> group_desc line */
} KOVAGROUPDB, *PKOVAGROUPDB;

/* Builds the record into *ppGroup (NULL: a new block; an existing block is reused or grown and
 * may move). A NULL member list is empty; the password field is "x". 0 or -1. */
KOVA_API int KOVAGroupAlloc(PKOVAGROUP *ppGroup, const char *szName, uint32_t gid,
                            const char *szMembers);
KOVA_API int KOVAGroupAlloc2(PKOVAGROUP *ppGroup, const char *szName, uint32_t gid,
                             const KLIBSZLIST *pMembers);
KOVA_API void KOVAGroupFree(PKOVAGROUP pGroup);

/* The cache, as for users: open (building or rebuilding as needed) or NULL; open at a base
 * (1 built, 0 opened, -1); close; check (1 reopened, 0 current, -1); build into an open handle;
 * rebuild the live files. */
KOVA_API PKOVAGROUPDB KOVAGroupDBOpen(void);
KOVA_API int KOVAGroupDBOpenFile(PKOVAGROUPDB *ppGroupDb, const char *szBasePath);
KOVA_API int KOVAGroupDBClose(PKOVAGROUPDB pGroupDb);
KOVA_API int KOVAGroupDBCheckAndRebuild(PKOVAGROUPDB *ppGroupDb);
KOVA_API int KOVAGroupDBBuild(PKOVAGROUPDB pGroupDb);
KOVA_API int KOVAGroupDBRebuild(void);

/* The next group of a walk of the name btree in key order (cursorType KOVA_BDB_CURSOR_FIRST to
 * start, KOVA_BDB_CURSOR_NEXT to go on) into *ppGroup: 0, or -1 (ERR_BDB_END_OF_RECORDS at the
 * end). */
KOVA_API int KOVAGroupDBGetByCursor(PKOVAGROUPDB pGroupDb, int32_t cursorType, PKOVAGROUP *ppGroup);
/* Writes one group (its line packed with KOVAGroupDBPackFromUnix) under its name and id; with
 * an old upper-cased name the old group's records are replaced. 0 or -1. */
KOVA_API int KOVAGroupDBSet(PKOVAGROUPDB pGroupDb, const char *szOldUpperName, PKOVAGROUP pGroup);
/* Removes a group's name, id and description records. 0, or -1 (ERR_NO_SUCH_GROUP). */
KOVA_API int KOVAGroupDBDelete(PKOVAGROUPDB pGroupDb, const char *szUpperName);
/* A group line into a new record (*ppGroup as for KOVAGroupAlloc). 0, or -1 (ERR_FORMAT_ERROR
 * for fewer than four fields, ERR_INVALID_USERNAME for an empty name). */
KOVA_API int KOVAGroupDBUnpack(const char *szLine, PKOVAGROUP *ppGroup);
/* 1 when a group of that upper-cased name exists, 0 when not, -1. */
KOVA_API int KOVAGroupDBCheckExists(PKOVAGROUPDB pGroupDb, const char *szUpperName);
KOVA_API int KOVAGroupDBGetFreeGid(PKOVAGROUPDB pGroupDb);
/* Writes "/etc/group" and "/etc/group_desc" from the cache (temporary files, then
 * GROUPIRenameTempFiles). */
KOVA_API int KOVAGroupDBDump(PKOVAGROUPDB pGroupDb);
/* The group line of the record into szBuf: members kept to the users of pUserDb (all of them
 * when it is NULL), password "x", the "nobody" framing above 65535. Its length with the NUL,
 * or -1. */
KOVA_API int KOVAGroupDBPackFromUnix(PKOVAUSERDB pUserDb, const KOVAGROUP *pGroup, char *szBuf,
                                     int32_t cbBuf);

/* The group operations. Get: 0, or -1 with ERR_NO_SUCH_GROUP. Enum and ListMember: the number
 * of names pushed, or -1. Set: 0 or -1; an old name of NULL creates, and a new group's id is
 * written back into its record. DescGet: the length with the NUL (0 and "" for a group without
 * a description), or -1. */
KOVA_API int KOVAGroupGet(const char *szName, PKOVAGROUP *ppGroup);
KOVA_API int KOVAGroupGetByGID(uint32_t gid, PKOVAGROUP *ppGroup);
KOVA_API int KOVAGroupEnum(PKLIBSZLIST *ppList);
KOVA_API int KOVAGroupEnumByPrefix(PKLIBSZLIST *ppList, const char *szPrefix);
KOVA_API int KOVAGroupSet(const char *szOldName, PKOVAGROUP pGroup);
KOVA_API int KOVAGroupDelete(const char *szName);
KOVA_API int KOVAGroupTotalNum(void);
KOVA_API int KOVAGroupDescGet(const char *szName, char *szDesc, int cbDesc);
KOVA_API int KOVAGroupDescSet(const char *szName, const char *szDesc);
KOVA_API int KOVAGroupListMember(const char *szName, PKLIBSZLIST *ppList);

KOVA_API int BlKLIBIsGroupName(const char *szName);
KOVA_API int GROUPIRemoveTempFiles(void);
KOVA_API int GROUPIRenameTempFiles(void);

KOVA_END_DECLS

#endif /* KOVASDK_GROUP_H */
