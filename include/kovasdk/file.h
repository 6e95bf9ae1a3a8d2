/*
 * Key-value configuration files.
 *
 * Settings live in small text files of key=value lines, above all "/etc/kovainfo.conf". Readers
 * take no lock; every rewrite goes through a temporary file beside the target (flushed, synced,
 * given the old owner, group and mode, renamed over it), so a reader sees the old or the new
 * file, never a mix. Writers serialise themselves with the lock files under "/tmp/lock/"
 * (ErrKLIBFileLock), which the callers take around their changes.
 *
 * Line syntax: a line whose first byte is '#' or ';' is a comment. The key is the text before
 * the first '=' (the whole line when there is none; a leading '=' is skipped), the value the
 * text after it. Both are trimmed of space, tab, CR and LF, then of one enclosing pair of
 * double quotes. Keys compare byte for byte.
 */
#ifndef KOVASDK_FILE_H
#define KOVASDK_FILE_H

#include <stdint.h>
#include <stdio.h>

#include "export.h"
#include "hash.h"
#include "list.h"

KOVA_BEGIN_DECLS

/* The conventional line format, and the one of the system information file. */
#define KLIB_FILE_FORMAT_PLAIN "%s=%s\n"
#define KLIB_FILE_FORMAT_QUOTED "%s=\"%s\"\n"

/* Pattern flags of KLIBFileGetLine, KLIBFileSetLine, KLIBFileAddLine (KLIBILineMatch). */
#define KLIB_FILE_MATCH_LAST 0x1     /* use the last matching line, not the first */
#define KLIB_FILE_MATCH_PREFIX 0x2   /* the line begins with the pattern */
#define KLIB_FILE_MATCH_SUFFIX 0x4   /* the line ends with the pattern (before its line feed) */
#define KLIB_FILE_ADD_AFTER 0x200    /* KLIBFileAddLine: insert after the matching line */
#define KLIB_FILE_MATCH_NOCASE 0x400 /* compare upper-cased UTF-8 */

/* Lock masks: the low 4 bits are the flock operation, the upper bits name lock files. */
#define KLIB_LOCK_SH 0x1
#define KLIB_LOCK_EX 0x2
#define KLIB_LOCK_NB 0x4
#define KLIB_LOCK_OP_MASK 0xF
#define KLIB_LOCK_KOVAINFO 0x800
#define KLIB_LOCK_PW 0x10
#define KLIB_LOCK_GR 0x20
#define KLIB_LOCK_RC 0x80
#define KLIB_LOCK_HOST 0x100
#define KLIB_LOCK_SMB 0x40
#define KLIB_LOCK_EXPORTS 0x200
#define KLIB_LOCK_NW 0x400
#define KLIB_LOCK_APPLE 0x1000
#define KLIB_LOCK_SNMP 0x2000
#define KLIB_LOCK_WIN 0x4000
#define KLIB_LOCK_TAPEBKP 0x8000
#define KLIB_LOCK_CONNECT 0x10000
#define KLIB_LOCK_USBIDMAP 0x20000
#define KLIB_LOCK_DUSERUID 0x40000
#define KLIB_LOCK_DUSERGID 0x80000
#define KLIB_LOCK_FSTAB 0x100000
#define KLIB_LOCK_HOTSWAP 0x200000

/* Entries of rgslckList, not counting the closing entry with bit 0. */
#define KLIB_LOCK_ENTRIES 18

/* One lock file of the process-wide lock table. */
typedef struct _tag_KLIBFILELOCK {
    FILE *pFile;        /* the open lock file while this process holds the lock, else null */
    const char *szPath; /* the lock file's path (under the sandbox root at run time) */
    uint32_t bit;       /* the entry's bit in a lock mask; 0 ends the table */
    int32_t count;      /* how many times this process has taken it */
    int32_t mode;       /* the flock operation it was taken with */
} KLIBFILELOCK;

extern KOVA_API KLIBFILELOCK rgslckList[KLIB_LOCK_ENTRIES + 1];

/* Reading and writing keys. */
KOVA_API int KLIBFileGetKeyValue(const char *szPath, const char *szKey, char *szBuf, int cbBuf,
                                 int flags);
KOVA_API int KLIBFileSetKeyValue(const char *szPath, const char *szKey, const char *szValue,
                                 const char *szFormat);
KOVA_API int KLIBIFileSetKeyValue(const char *szPath, const char *szKey, const char *szValue,
                                  const char *szFormat);
KOVA_API int KLIBFileAppendKey(const char *szPath, const char *szKey, const char *szValue,
                               const char *szFormat);
KOVA_API int KLIBFileSetKeys(const char *szPath, PKLIBSZHASH pSet, PKLIBSZHASH pRemove,
                             const char *szFormat);
KOVA_API int KLIBFileRemoveKey(const char *szPath, const char *szKey);
KOVA_API int KLIBFileComment(const char *szPath, const char *szKey);
KOVA_API int BlKOVAFileCheckKeyValue(const char *szPath, const char *szKey, const char *szValue);
KOVA_API int KOVAINFOSetKeyValue(const char *szKey, const char *szValue);

/* Lines by pattern. */
KOVA_API int KLIBILineMatch(const char *szLine, const char *szPattern, int flags);
KOVA_API int KLIBFileGetLine(const char *szPath, const char *szPattern, char *szBuf, int cbBuf,
                             int flags);
KOVA_API int KLIBFileSetLine(const char *szPath, const char *szPattern, const char *szText,
                             int flags);
KOVA_API int KLIBFileAddLine(const char *szPath, const char *szPattern, const char *szText,
                             int flags);
KOVA_API int KLIBFileMatchLineNo(const char *szPath, const char *szPattern, int flags);
KOVA_API int KOVAFileLineComment(const char *szPath, const char *szPattern, int flags,
                                 int blComment);
KOVA_API int KLIBFileReplaceSubStr(const char *szPath, const char *szOld, const char *szNew);
KOVA_API int KLIBFileReadLines(const char *szPath, PKLIBSZLIST *ppList);
KOVA_API int KLIBFileEnumDir(const char *szDir, PKLIBSZLIST *ppList);

/* Lines by key. */
KOVA_API int KLIBFileGetLineByKey(const char *szPath, const char *szKey, char *szBuf, int cbBuf);
KOVA_API int KLIBFileSetLineByKey(const char *szPath, const char *szKey, const char *szText);
KOVA_API int KLIBFileAddLineByKey(const char *szPath, const char *szKey, const char *szText,
                                  int flags);

/*
 * Sectioned files: a header line "[name]" opens a section, whose body runs up to the next line
 * beginning with "[". Pairs are split at their first '=' and trimmed like keys and values.
 */
KOVA_API int KLIBIFileIsSection(const char *szLine, int cbLine);
KOVA_API int KLIBIFileMatchSection(const char *szLine, int cbLine, const char *szName);
KOVA_API int KLIBFileGetSection(const char *szPath, const char *szSection, PKLIBSZHASH *ppHash);
KOVA_API int KLIBFileGetPair(const char *szPath, PKLIBSZHASH *ppHash);
KOVA_API int KLIBFileEnumSection(const char *szPath, PKLIBSZLIST *ppList);
KOVA_API int ErrKLIBFileAddSection(const char *szPath, const char *szSection,
                                   const KLIBSZHASH *pHash, const char *szFormat);
KOVA_API int ErrKLIBFileSetSection(const char *szPath, const char *szSection, const char *szNewName,
                                   const KLIBSZHASH *pHash, const char *szFormat);
KOVA_API int ErrKLIBFileRemoveSection(const char *szPath, const char *szSection);
KOVA_API int ErrKLIBIFileModifySection(const char *szPath, const char *szSection,
                                       const char *szNewName, const KLIBSZHASH *pHash, int blWrite,
                                       const char *szFormat);
KOVA_API int ErrSetSecKeyVal(const char *szPath, const char *szSection, const char *szKey,
                             const char *szValue, const char *szFormat);
KOVA_API int KLIBFileMergePairs(const char *szPath, const KLIBSZHASH *pHash, const char *szFormat);
KOVA_API int ErrKLIBFileSetPair(const char *szPath, const KLIBSZHASH *pHash, const char *szFormat);

/* Locks. */
KOVA_API int ErrKLIBFileLock(uint32_t mask, int timeout);
KOVA_API int ErrKLIBFileUnlock(uint32_t mask);
KOVA_API int ErrKLIBFileResetLock(uint32_t mask);
KOVA_API int ErrKLIBFileCloseLock(void);
KOVA_API int ErrKLIBILockCheckDir(void);

/* Temporary files and small wrappers. */
KOVA_API FILE *KLIBFileTempFileOpen(char *szTemplate);
KOVA_API int KLIBFileITmpName(const char *szBase, char *szDst, int cbDst);
KOVA_API int BlKLIBFileExist(const char *szPath);
KOVA_API FILE *pfKLIBSysFopen(const char *szPath, const char *szModeFormat, ...);
KOVA_API FILE *pfKLIBSysFdopen(int fd, const char *szModeFormat, ...);
KOVA_API FILE *pfKLIBSysFreopen(const char *szPath, FILE *stream, const char *szModeFormat, ...);
KOVA_API int KLIBSysRemove(const char *szPath);
KOVA_API int KLIBSysRename(const char *szOld, const char *szNew);
KOVA_API int KLIBSysRmdir(const char *szPath);
KOVA_API int KLIBSysUnlink(const char *szPath);

KOVA_END_DECLS

#endif /* KOVASDK_FILE_H */
