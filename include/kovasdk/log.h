/*
 * Event logs: bounded binary ring files of event records, rendered as text from per-language
 * message catalogues, and the list of current file-service connections.
 *
 * A log file is a 16-byte header ("KOVA", 4 unused bytes, head, tail: host byte order) and a
 * ring of records from offset 16 up to the configured maximum size. A record holds an event
 * key and up to four argument strings, never the text itself; the reader looks the key up in
 * "/usr/kova/kovasdk/texts/<lang>/events" and fills the placeholders "@1".."@4".
 *
 * Log classes: 1 system, 2 management (written into the system log, read from its own file),
 * 3 connections, 4 none, 5 backup, 6 copy, 7 network backup, 8 "sur". The configuration file
 * "/etc/kovalog.conf" names each class's file and maximum size.
 *
 * Opens and locks are polled once a second, at most 10 times. The static result buffers and
 * gpshEvent make the text functions unsafe for concurrent threads.
 */
#ifndef KOVASDK_LOG_H
#define KOVASDK_LOG_H

#include <stdint.h>
#include <stdio.h>
#include <time.h>

#include "export.h"
#include "hash.h"
#include "list.h"

KOVA_BEGIN_DECLS

#define KOVA_LOG_CLASS_SYS 1
#define KOVA_LOG_CLASS_MAN 2
#define KOVA_LOG_CLASS_CONN 3
#define KOVA_LOG_CLASS_NONE 4
#define KOVA_LOG_CLASS_BKP 5
#define KOVA_LOG_CLASS_COPY 6
#define KOVA_LOG_CLASS_NETBKP 7
#define KOVA_LOG_CLASS_SUR 8

#define KOVA_LOG_TYPE_INFO 1
#define KOVA_LOG_TYPE_WARN 2
#define KOVA_LOG_TYPE_ERR 3

#define KOVA_LOG_CONF "/etc/kovalog.conf"
#define KOVA_LOG_HEADER_SIZE 16
#define KOVA_LOG_RECORD_FIXED 24
/* Size of the buffers KOVALogConvertTime1 and KOVALogICovertTimeFmt fill. */
#define KOVA_LOG_TIME_MAX 100

/* The maximum size of the log being written (initially 65536). */
extern KOVA_API int glogsizeMax;
/* Catalogue texts cached by KOVALogConvertEventKey; freed after each KOVALogGet1. */
extern KOVA_API PKLIBSZHASH gpshEvent;

/* Writing. A null argument is stored as "", an empty one as " ". 0; -1. */
KOVA_API int KOVALogSet1(int iClass, int iType, uint32_t dwEventKey, const char *szArg1,
                         const char *szArg2, const char *szArg3, const char *szArg4);
/* The append itself on a named log file, within glogsizeMax bytes. 0; -1. */
KOVA_API int KOVALogSet1a(const char *szLogPath, int iType, uint32_t dwEventKey, const char *szArg1,
                          const char *szArg2, const char *szArg3, const char *szArg4);
/* Builds one record (program name, KOVALogObtainUser, the arguments as given) into a buffer the
 * caller frees: its length, or 0 when memory ran out. */
KOVA_API int KOVALogInitEventBuffer(char **ppBuffer, int iType, uint32_t dwEventKey,
                                    const char *szArg1, const char *szArg2, const char *szArg3,
                                    const char *szArg4);

/* Reading. Writes the class's whole log as text lines "type\ttype text\ttime\tprogram\tuser\t
 * event text\n", oldest first, into szOutput (null: "./output", replaced) in language szLang
 * (null: "enu"). 0; -1. */
KOVA_API int KOVALogGet1(int iClass, const char *szOutput, const char *szLang);
KOVA_API int KOVALogGet1a(const char *szLogPath, const char *szOutput, const char *szLang);
/* Formats one record without its 2-byte length field (cbRecord bytes) as a text line on pf.
 * A record too short for its fields is passed over quietly. 0; -1 when no text was found. */
KOVA_API int KOVALogEventSpread(FILE *pf, const char *pRecord, const char *szLang, int cbRecord);

/* Sizes and the configuration file. */
/* Classes 1, 2, 3, 5, 6: stores the size in the configuration and shrinks the file. 0; -1. */
KOVA_API int KOVALogSetSize(int iSize, int iClass);
/* Drops the oldest records of the class's file until it is at most iSize bytes. 0; -1. */
KOVA_API int KOVALogChangeSize(int iSize, int iClass);
/* Rewrites the file without its oldest records totalling at least iExcess bytes. 0; -1. */
KOVA_API int KOVALogChangeSize_a(int iExcess, const char *szLogPath);
/* Writes the default configuration file. 0; -1 with ERR_OPEN_FAILED. */
KOVA_API int KOVASetLogConf(void);

/* The file header, on an open descriptor. */
/* 4 when the magic is there; else writes magic, head 16, tail 16 and returns the bytes
 * written; -1 when that write fails. */
KOVA_API int KOVALogInit(int fd);
/* The head (offset 8) or tail (offset 12); -1 on a short read or a value above INT32_MAX. */
KOVA_API int KOVALogGetHead(int fd);
KOVA_API int KOVALogGetTail(int fd);
/* The head write is followed by fsync, the tail write preceded by one. 0; -1. */
KOVA_API int KOVALogSetHead(int fd, uint32_t dwHead);
KOVA_API int KOVALogSetTail(int fd, uint32_t dwTail);
/* cbLength bytes at the current position: cbLength; -1 when fewer came or went. */
KOVA_API int KOVALogReadByte(int fd, void *pBuffer, int cbLength);
KOVA_API int KOVALogWriteByte(int fd, const void *pBuffer, int cbLength);
/* The current position; -1. */
KOVA_API long KOVALogTell(int fd);

/* Texts. */
/* The event's text with the arguments that are not empty filled in (the caller frees it), or
 * NULL when the catalogue has no text for it. */
KOVA_API char *KOVALogConvertEventKey(uint32_t dwEventKey, const char *szLang, const char *szArg1,
                                      const char *szArg2, const char *szArg3, const char *szArg4);
/* The type's text in a static 12-byte buffer ("Unknown" when the catalogue has none). */
KOVA_API char *KOVALogConvertType(int iType, const char *szLang);
/* "%Y/%m/%d %H:%M:%S" in local time, in a static buffer. */
KOVA_API char *KOVALogConvertTime1(time_t tTime);
/* The same from decimal seconds into szOut (KOVA_LOG_TIME_MAX bytes). 0; -1. */
KOVA_API int KOVALogICovertTimeFmt(const char *szTime, char *szOut);
/* The user name for new records in a static 256-byte buffer: $USERNAME, else the effective
 * user's name ("root" recorded as "admin"), else "". */
KOVA_API char *KOVALogObtainUser(void);
/* Does nothing: 0. */
KOVA_API int KOVALogIDump(void);

/* Current file-service connections. */
/* One connection: the time as text, the source's fields 3 and 2, a fourth text and the type
 * (4 SMB, 5 Apple, 7 FTP). */
typedef struct _tag_KOVALOGCONN {
    char *szTime;
    char *szField3;
    char *szField2;
    char *szInfo;
    int iType;
} KOVALOGCONN, *PKOVALOGCONN;

/* Class 2, mode 1 only (else ERR_BAD_PARAMETERS): the number of current connections, written
 * as lines into szOutput or, when it is null, into *ppConn (one block the caller frees, the
 * records followed by their strings). -1. */
KOVA_API int KOVALogGet(int iClass, int iMode, PKOVALOGCONN *ppConn, const char *szOutput);
/* Keeps the lines of szList whose numeric first field is a running szProcess, rewriting the
 * list through szTmp. 0; -1. */
KOVA_API int KOVALogICheckLog(const char *szList, const char *szTmp, const char *szProcess);
/* Adds the connection lines of one source to *ppList in the common form. 0; -1. */
KOVA_API int KOVALogIProcSmb(const char *szSource, PKLIBSZLIST *ppList);
KOVA_API int KOVALogIProcApp(const char *szSource, PKLIBSZLIST *ppList);
KOVA_API int KOVALogIProcFTP(const char *szSource, PKLIBSZLIST *ppList);
/* Parses the list's lines into one block of KOVALOGCONN records (caller frees): the count;
 * -1. */
KOVA_API int KOVALogIWrite2Mem(PKLIBSZLIST pList, PKOVALOGCONN *ppConn);

KOVA_END_DECLS

#endif /* KOVASDK_LOG_H */
