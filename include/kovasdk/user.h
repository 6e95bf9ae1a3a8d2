/*
 * User accounts: the user record, the user database (a cache of the four account text files in
 * five btree files of the record store under /tmp) and the account operations.
 *
 * The text files stay the master copy: "/etc/passwd", "/etc/shadow", "/etc/kovauser.conf" and
 * "/usr/kova/etc/private/smbpasswd". The cache is rebuilt whenever one of them changed; readers
 * take no lock. Writers (KOVAUserSet, KOVAUserSetPasswd, KOVAUserDelete) hold the user file lock
 * (KLIB_LOCK_PW) for the whole change and write the text files through ".tmp" files renamed
 * over them. A writer killed between those renames is completed by the next call of the family
 * that finds the temporary files: every ".tmp" file was complete and synced before the first
 * rename, so no user is ever half present across the files.
 *
 * Names are compared without regard to case: the btree keys are the names upper-cased
 * (Unicode-aware, UTF-8). Records handed out are one heap block each (KOVAUserFree).
 */
#ifndef KOVASDK_USER_H
#define KOVASDK_USER_H

#include <stdint.h>

#include "bdb.h"
#include "export.h"
#include "list.h"

KOVA_BEGIN_DECLS

/* The cache: base path, the suffixes of its five btree files, the rebuild's base path. */
#define KOVA_USER_DB_PATH "/tmp/.db.user"
#define KOVA_USER_DB_TMP_PATH "/tmp/.db.user.tmp"
#define KOVA_USER_DB_NAME ".name.0850"
#define KOVA_USER_DB_UID ".uid.0850"
#define KOVA_USER_DB_SMB ".smb.0850"
#define KOVA_USER_DB_MISC ".misc.0850"
#define KOVA_USER_DB_SHADOW ".shadow.0850"

/* The uid btree's record of the last user id handed out (key without NUL; 4-byte native int). */
#define KOVA_USER_KEY_CURRENT_UID "#CURRENT_UID"
#define KOVA_USER_KEY_CURRENT_UID_LEN 12

/* The range of ids handed to new users. */
#define KOVA_USER_UID_MIN 1024
#define KOVA_USER_UID_MAX 3072

/* User types and the type mask of the counting and enumerating functions. */
#define KOVA_USER_TYPE_LOCAL 1
#define KOVA_USER_TYPE_DOMAIN 2
#define KOVA_USER_MASK_LOCAL 0x1
#define KOVA_USER_MASK_DOMAIN 0x2

/* Privilege masks of the fixed accounts and of every domain user. */
#define KOVA_USER_PRIV_ADMIN 31
#define KOVA_USER_PRIV_DOMAIN 3
#define KOVA_USER_PRIV_GUEST 0

/* The longest name, in UTF-8 characters. */
#define KOVA_USER_NAME_MAX_CHARS 64

/* One user, one heap block: this header, then copies of its strings. A NULL string given to
 * KOVAUserAlloc points at an empty string at the end of the block, so no string of a record is
 * ever NULL (a user without a mail address has szMail ""). cbAlloc is the block's allocated
 * size, so that the next KOVAUserAlloc into the same pointer can reuse it. */
typedef struct _tag_KOVAUSER {
    char *szName;
    char *szPassword; /* the password hash of the shadow line (clear text into KOVAUserSet) */
    uint32_t uid;
    uint32_t gid;
    char *szDescription; /* decoded (":" is colon-encoded in the files) */
    char *szHomeDir;
    char *szShell;
    int32_t expireDay; /* days since the epoch; 0 or less: never; -1 for domain users */
    char *szMail;
    int32_t type;      /* KOVA_USER_TYPE_LOCAL, KOVA_USER_TYPE_DOMAIN (a name with "\") */
    int32_t privilege; /* bit mask */
    int32_t cbAlloc;
} KOVAUSER, *PKOVAUSER;

/* The open cache: five stores. */
typedef struct _tag_KOVAUSERDB {
    PKOVABDB pPWDName;   /* upper name -> passwd line */
    PKOVABDB pPWDUid;    /* "%06d" id -> upper name (duplicate keys), "#CURRENT_UID" */
    PKOVABDB pPWDSmb;    /* upper name -> smbpasswd line */
    PKOVABDB pPWDMisc;   /* upper name -> kovauser.conf line */
    PKOVABDB pPWDShadow; /* upper name -> shadow line */
} KOVAUSERDB, *PKOVAUSERDB;

/* Builds the record into *ppUser (NULL: a new block; an existing block is reused or grown and
 * may move). No string argument may point into the block being rebuilt (ERR_BAD_PARAMETERS).
 * 0 or -1. */
KOVA_API int KOVAUserAlloc(PKOVAUSER *ppUser, const char *szName, const char *szPassword,
                           uint32_t uid, uint32_t gid, const char *szDescription,
                           const char *szHomeDir, const char *szShell, int32_t expireDay,
                           const char *szMail, int32_t privilege);
KOVA_API void KOVAUserFree(PKOVAUSER pUser);

/* The cache. KOVAUserDBOpen opens (building or rebuilding as needed) or returns NULL. */
KOVA_API PKOVAUSERDB KOVAUserDBOpen(void);
/* 1 when it built the files, 0 when all existed, -1. The handle in *ppUserDb is replaced. */
KOVA_API int KOVAUserDBOpenFile(PKOVAUSERDB *ppUserDb, const char *szBasePath);
KOVA_API int KOVAUserDBClose(PKOVAUSERDB pUserDb);
/* 1 when it reopened (rebuilt or not), 0 when the cache was current, -1. */
KOVA_API int KOVAUserDBCheckAndRebuild(PKOVAUSERDB *ppUserDb);
KOVA_API int KOVAUserDBBuild(PKOVAUSERDB pUserDb);
KOVA_API int KOVAUserDBRebuild(void);

/* The user under an upper-cased name (ERR_NO_SUCH_USER when absent). 0 or -1. */
KOVA_API int KOVAUserDBGet(PKOVAUSERDB pUserDb, const char *szUpperName, PKOVAUSER *ppUser);
/* Unpack a passwd line (name, ids, description, home, shell) or a shadow line (name, password
 * hash, expiry day) into a record buffer of cbUser bytes: the header, then the strings. The
 * other fields are zero or point at an empty string. 0 or -1 (ERR_FORMAT_ERROR for a wrong
 * field count, ERR_INVALID_USERNAME for an empty name, ERR_BUFFER_TOO_SMALL). */
KOVA_API int KOVAUserDBPasswdUnpack(const char *szLine, PKOVAUSER pUser, int32_t cbUser);
KOVA_API int KOVAUserDBShadowUnpack(const char *szLine, PKOVAUSER pUser, int32_t cbUser);
/* The passwd line of the record into szBuf: its length with the NUL, or -1. */
KOVA_API int KOVAUserDBPack(const KOVAUSER *pUser, char *szBuf, int32_t cbBuf);
/* Writes one user into the five stores; szOldUpperName NULL creates. pUser->szPassword is the
 * clear password (hashed when it differs from the stored hash). 0 or -1. */
KOVA_API int KOVAUserDBSet(PKOVAUSERDB pUserDb, const char *szOldUpperName, int32_t cbOldName,
                           PKOVAUSER pUser);
KOVA_API int KOVAUserDBGetFreeUid(PKOVAUSERDB pUserDb);
/* Writes the four text files from the cache (".tmp" files, then KOVAUserRenameTmpFiles). */
KOVA_API int KOVAUserDBDump(PKOVAUSERDB pUserDb);

KOVA_API int BlKLIBIsUserName(const char *szName);
KOVA_API int KOVAUserIsExpired(int32_t expireDay);
KOVA_API int KOVAUserCheckExpired(const char *szName);
KOVA_API int KOVAUserPrivilegeGet(const char *szName);
KOVA_API int KOVAUserTotalNum(int typeMask);
KOVA_API int KOVAConfGetUserLimit(void);
KOVA_API int KOVAUserRemoveTmpFiles(void);
KOVA_API int KOVAUserRenameTmpFiles(void);
/* A number as a salt character: |n| mod 64 to "0"-"9", "A"-"Z", "a"-"z", ".", "/". */
KOVA_API char KOVAUserRandomNumMap2Seed(long lNum);

/* The account operations. Get: 0, or -1 with ERR_NO_SUCH_USER. Enum: the number of names
 * pushed (original case, key order), or -1. Set: 0 or -1; an old name of NULL creates, and a
 * new user's id is written back into its record. */
KOVA_API int KOVAUserGet(const char *szName, PKOVAUSER *ppUser);
KOVA_API int KOVAUserGetByUID(uint32_t uid, PKOVAUSER *ppUser);
KOVA_API int KOVAUserEnum(PKLIBSZLIST *ppList, int typeMask);
KOVA_API int KOVAUserEnumByPrefix(PKLIBSZLIST *ppList, int typeMask, const char *szPrefix);
KOVA_API int KOVAUserSet(const char *const *rgszOldName, PKOVAUSER const *rgpUser, int count);
KOVA_API int KOVAUserSetOne(const char *szOldName, PKOVAUSER pUser);
KOVA_API int KOVAUserSetPasswd(const char *szName, const char *szPassword);
KOVA_API int KOVAUserDelete(const char *szName);

/* The names of szUsers (comma-separated) that are users of pUserDb, as the users are named
 * there, each once, pushed onto *ppList: their number, or -1. "nobody" and empty names are
 * passed over. */
KOVA_API int KOVAUserGetValidUserList(PKOVAUSERDB pUserDb, const char *szUsers,
                                      PKLIBSZLIST *ppList);

KOVA_END_DECLS

#endif /* KOVASDK_USER_H */
