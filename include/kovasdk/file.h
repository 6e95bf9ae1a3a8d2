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

/*
 * Writers and what they leave. A setter creates a file only when it does not exist (ENOENT): a
 * file that exists but cannot be opened (no permission, no memory for its stream) fails and is
 * left as it was -- "cannot be opened" is never taken for "missing". A path that is not a
 * regular file (a FIFO, a device, a directory) is refused instead of opened, so no call blocks
 * on a FIFO planted at a settings path. Rewrites go through a nameless temporary file that is
 * named and renamed over the file only when complete. ErrKLIBFileAddSection and KLIBFileAddLine
 * with KLIB_FILE_ADD_AFTER and no pattern append in place (a reader may see the addition in
 * part; a failed append is cut back to the old length); ErrKLIBFileSetPair writes the file anew
 * in place ("w"), so a reader can see it partly written and a failure leaves it so. None of
 * these take a lock: the caller holds the file's lock bit around a whole read-modify-write.
 */

/* Reading and writing keys. */
/* The value of the first line of the key (the last with KLIB_FILE_MATCH_LAST) into szBuf: its
 * length with the NUL; 0 with ERR_KEY_NOT_FOUND when no line holds a value; a null szBuf with
 * cbBuf 0 asks for the length only. */
KOVA_API int KLIBFileGetKeyValue(const char *szPath, const char *szKey, char *szBuf, int cbBuf,
                                 int flags);
/* Replaces the first line of the key by szFormat(raw key, value) and drops later ones, or appends
 * the pair; a missing file is created (mode 0666 less the umask). 1 or -1. */
KOVA_API int KLIBFileSetKeyValue(const char *szPath, const char *szKey, const char *szValue,
                                 const char *szFormat);
/* KLIBFileSetKeyValue, then KLIBFileAppendKey only when that returned 0. */
KOVA_API int KLIBIFileSetKeyValue(const char *szPath, const char *szKey, const char *szValue,
                                  const char *szFormat);
/* Appends the pair as a new last line whether or not the key is present; creates a missing
 * file. 1 or -1. */
KOVA_API int KLIBFileAppendKey(const char *szPath, const char *szKey, const char *szValue,
                               const char *szFormat);
/* One pass: the first line of each key in pRemove is dropped, of each key in pSet rewritten;
 * keys left in pSet are appended. Found keys are removed from the caller's hashes. A missing
 * file is created with mode 0644. The number of lines replaced, removed or appended; -1. */
KOVA_API int KLIBFileSetKeys(const char *szPath, PKLIBSZHASH pSet, PKLIBSZHASH pRemove,
                             const char *szFormat);
/* Drops every line of the key: the number dropped; 0 with ERR_KEY_NOT_FOUND (file untouched);
 * -1 (a file that cannot be opened sets no code). */
KOVA_API int KLIBFileRemoveKey(const char *szPath, const char *szKey);
/* Puts '#' in front of every line of the key: the number changed; 0 with ERR_KEY_NOT_FOUND. */
KOVA_API int KLIBFileComment(const char *szPath, const char *szKey);
/* 1 when the key holds exactly szValue; 0 when it differs, is absent or cannot be read. */
KOVA_API int BlKOVAFileCheckKeyValue(const char *szPath, const char *szKey, const char *szValue);
/* Sets a key of "/etc/kovainfo.conf" under lock 0x806 (5 s): 0, or -1 also when the unlock
 * failed. */
KOVA_API int KOVAINFOSetKeyValue(const char *szKey, const char *szValue);

/* Lines by pattern (flags KLIB_FILE_MATCH_*; comment lines never match). */
/* 1 when the line (with or without its line feed) matches the pattern under flags, else 0. */
KOVA_API int KLIBILineMatch(const char *szLine, const char *szPattern, int flags);
/* The matching line, line feed removed, into szBuf: its length with the NUL; 0 with
 * ERR_KEY_NOT_FOUND; -1 with ERR_NOT_ENOUGH_MEMORY when it does not fit. */
KOVA_API int KLIBFileGetLine(const char *szPath, const char *szPattern, char *szBuf, int cbBuf,
                             int flags);
/* Replaces the matching line by szText (null deletes it): 1; 0 with ERR_KEY_NOT_FOUND; a
 * missing file is created holding szText. */
KOVA_API int KLIBFileSetLine(const char *szPath, const char *szPattern, const char *szText,
                             int flags);
/* Inserts szText before the matching line (after it with KLIB_FILE_ADD_AFTER; before line 1, or
 * appended in place with KLIB_FILE_ADD_AFTER, when szPattern is null): 1; 0 with
 * ERR_KEY_NOT_FOUND; a missing file is created holding szText. */
KOVA_API int KLIBFileAddLine(const char *szPath, const char *szPattern, const char *szText,
                             int flags);
/* The number (from 1) of the matching line; 0 with ERR_KEY_NOT_FOUND. */
KOVA_API int KLIBFileMatchLineNo(const char *szPath, const char *szPattern, int flags);
/* blComment 1 comments out every matching line with '#', 0 uncomments the '#' lines whose rest
 * matches: the number changed; 0 with ERR_KEY_NOT_FOUND (file untouched). */
KOVA_API int KOVAFileLineComment(const char *szPath, const char *szPattern, int flags,
                                 int blComment);
/* Replaces every szOld by szNew in the lines that are not comments: the number of lines
 * changed; 0 with ERR_KEY_NOT_FOUND (file untouched). */
KOVA_API int KLIBFileReplaceSubStr(const char *szPath, const char *szOld, const char *szNew);
/* Pushes every line, line feed removed, onto *ppList (made when null): the number pushed. */
KOVA_API int KLIBFileReadLines(const char *szPath, PKLIBSZLIST *ppList);
/* Pushes the directory's entry names ("." and ".." left out), sorted by bytes: the number. */
KOVA_API int KLIBFileEnumDir(const char *szDir, PKLIBSZLIST *ppList);

/* Lines by key. */
/* The whole first line of the key, line feed removed: its length with the NUL; 0 with
 * ERR_KEY_NOT_FOUND; -1 with ERR_NOT_ENOUGH_MEMORY when it does not fit. */
KOVA_API int KLIBFileGetLineByKey(const char *szPath, const char *szKey, char *szBuf, int cbBuf);
/* Replaces the first line of the key by szText (null deletes it): 1; 0 with ERR_KEY_NOT_FOUND. */
KOVA_API int KLIBFileSetLineByKey(const char *szPath, const char *szKey, const char *szText);
/* Inserts szText before the first line of the key (after it with KLIB_FILE_ADD_AFTER): 1; 0 with
 * ERR_KEY_NOT_FOUND. */
KOVA_API int KLIBFileAddLineByKey(const char *szPath, const char *szKey, const char *szText,
                                  int flags);

/*
 * Sectioned files: a header line "[name]" opens a section, whose body runs up to the next line
 * beginning with "[". Pairs are split at their first '=' and trimmed like keys and values.
 */
/* 1 when the line is a section header ("[" in column 0, "]" then white space only), else 0. */
KOVA_API int KLIBIFileIsSection(const char *szLine, int cbLine);
/* 1 when the line is the header of szName (compared as written), 0 when not, -1 for null. */
KOVA_API int KLIBIFileMatchSection(const char *szLine, int cbLine, const char *szName);
/* Adds the first section of that name's pairs to *ppHash (made when null): the hash's pair
 * count, also when there is no such section (no code then); -1. */
KOVA_API int KLIBFileGetSection(const char *szPath, const char *szSection, PKLIBSZHASH *ppHash);
/* Adds every pair line of the file ('#' and ';' lines skipped): the hash's pair count; -1. */
KOVA_API int KLIBFileGetPair(const char *szPath, PKLIBSZHASH *ppHash);
/* Pushes every section name in file order: the list's item count; -1. */
KOVA_API int KLIBFileEnumSection(const char *szPath, PKLIBSZLIST *ppList);
/* Appends the section in place (the file must exist): 1; 0 when a section of that name exists
 * (nothing written); -1 (a failed append is cut back). */
KOVA_API int ErrKLIBFileAddSection(const char *szPath, const char *szSection,
                                   const KLIBSZHASH *pHash, const char *szFormat);
/* Replaces every section of that name (renamed to szNewName unless null), keeping its comment
 * lines: 1; 0 with ERR_KEY_NOT_FOUND; -1. */
KOVA_API int ErrKLIBFileSetSection(const char *szPath, const char *szSection, const char *szNewName,
                                   const KLIBSZHASH *pHash, const char *szFormat);
/* Removes every section of that name, keeping its comment lines: 1; 0 with ERR_KEY_NOT_FOUND. */
KOVA_API int ErrKLIBFileRemoveSection(const char *szPath, const char *szSection);
/* The rewrite behind the two above: blWrite 1 replaces, 0 removes. */
KOVA_API int ErrKLIBIFileModifySection(const char *szPath, const char *szSection,
                                       const char *szNewName, const KLIBSZHASH *pHash, int blWrite,
                                       const char *szFormat);
/* Sets one key of one section, creating the section: the result of the final set, or -1. */
KOVA_API int ErrSetSecKeyVal(const char *szPath, const char *szSection, const char *szKey,
                             const char *szValue, const char *szFormat);
/* KLIBFileSetKeyValue for every pair of the hash, in slot order: 0; -1 (also for an empty hash). */
KOVA_API int KLIBFileMergePairs(const char *szPath, const KLIBSZHASH *pHash, const char *szFormat);
/* Writes the file anew, in place, with the hash's pairs and no header: 0 or -1. */
KOVA_API int ErrKLIBFileSetPair(const char *szPath, const KLIBSZHASH *pHash, const char *szFormat);

/* Locks: a mask is a flock operation (KLIB_LOCK_SH/EX, |KLIB_LOCK_NB) in the low 4 bits and the
 * lock files' bits above; locks nest per process and are never upgraded from shared. */
/* Takes every lock file of the mask, retrying every 50 ms for up to timeout seconds (0: once):
 * 0, or -1 with ERR_LOCK_FAILED having taken none of them. */
KOVA_API int ErrKLIBFileLock(uint32_t mask, int timeout);
/* Releases one nesting level of each held lock of the mask (bits only): 0; -1. */
KOVA_API int ErrKLIBFileUnlock(uint32_t mask);
/* Keeps the held locks of the mask at one level and releases every other lock: 0; -1. */
KOVA_API int ErrKLIBFileResetLock(uint32_t mask);
/* Closes every held lock file (as a child does before running a program): 0; -1. */
KOVA_API int ErrKLIBFileCloseLock(void);
/* Makes "/tmp/lock/" (refused when a symlink or owned by another user) and its lock files: 0;
 * -1. */
KOVA_API int ErrKLIBILockCheckDir(void);

/* Temporary files and small wrappers. */
/* mkstemp on the template (close-on-exec), opened "w": the stream, or NULL. */
KOVA_API FILE *KLIBFileTempFileOpen(char *szTemplate);
/* szBase followed by "<pid>-<counter>" into szDst: 0; -1 (no code) when it does not fit. */
KOVA_API int KLIBFileITmpName(const char *szBase, char *szDst, int cbDst);
/* 1 when the path exists and is a regular file, else 0. */
KOVA_API int BlKLIBFileExist(const char *szPath);
/* fopen, fdopen, freopen with the mode formatted into 8 bytes first; the last two put a literal
 * "s" ahead of the mode, which the C library refuses (kept). */
KOVA_API FILE *pfKLIBSysFopen(const char *szPath, const char *szModeFormat, ...);
KOVA_API FILE *pfKLIBSysFdopen(int fd, const char *szModeFormat, ...);
KOVA_API FILE *pfKLIBSysFreopen(const char *szPath, FILE *stream, const char *szModeFormat, ...);
/* The C library's remove, rename, rmdir and unlink, results unchanged. */
KOVA_API int KLIBSysRemove(const char *szPath);
KOVA_API int KLIBSysRename(const char *szOld, const char *szNew);
KOVA_API int KLIBSysRmdir(const char *szPath);
KOVA_API int KLIBSysUnlink(const char *szPath);

KOVA_END_DECLS

#endif /* KOVASDK_FILE_H */
