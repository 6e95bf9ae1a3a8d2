/*
 * Configuration backup: the system's settings, accounts and shares saved section by section into
 * one backup file and restored from it, and the service control that a restore needs.
 *
 * A backup file is a 12-byte header ("KOVA", category 1, the content mask asked for) and one
 * block per section: id (the section's bit), version (2), body size, then the body as a run of
 * items (a string: type 1, length with the NUL, the bytes and the NUL; a long: type 2, length 4,
 * the value). Every integer is a big-endian 32-bit word. The sections, their order in a file, and
 * their exporters and importers are the rows of grgSysRoutine.
 *
 * Only one import runs at a time: "/tmp/importprocess" is both the marker of a running import
 * and the scratch file that each chosen block is copied into for its importer. The network
 * services (all but the web manager's) are stopped for the length of an import.
 */
#ifndef KOVASDK_SYSBKP_H
#define KOVASDK_SYSBKP_H

#include <stdint.h>

#include "export.h"
#include "hash.h"
#include "share.h"
#include "user.h"

KOVA_BEGIN_DECLS

#define KOVA_SYSBKP_MAGIC "KOVA"
#define KOVA_SYSBKP_CATEGORY 1
#define KOVA_SYSBKP_VERSION 2
#define KOVA_SYSBKP_HEADER_SIZE 12
#define KOVA_SYSBKP_BLOCK_HEADER_SIZE 12
#define KOVA_SYSBKP_ITEM_STRING 1
#define KOVA_SYSBKP_ITEM_LONG 2
#define KOVA_SYSBKP_IMPORT_MARKER "/tmp/importprocess"
/* The mask that means every section (export writes all rows, also 0x00800000). */
#define KOVA_SYSBKP_ALL 0x037FFFFBu

/* Section bits, as in the routine table. */
#define KOVA_SYSBKP_TIME 0x00000001u
#define KOVA_SYSBKP_HOSTNAME 0x00000002u
#define KOVA_SYSBKP_INTERFACE 0x00000004u /* KOVASysbkpInterfaceExport only: no table row */
#define KOVA_SYSBKP_LANG 0x00000008u
#define KOVA_SYSBKP_MAIL 0x00000010u
#define KOVA_SYSBKP_SHARE 0x00000020u
#define KOVA_SYSBKP_APPLE 0x00000040u
#define KOVA_SYSBKP_WINDOWS 0x00000080u
#define KOVA_SYSBKP_USER 0x00000100u
#define KOVA_SYSBKP_GROUP 0x00000200u
#define KOVA_SYSBKP_HDSLEEP 0x00000400u
#define KOVA_SYSBKP_FTPD 0x00000800u
#define KOVA_SYSBKP_PPPOE 0x00002000u
#define KOVA_SYSBKP_PHOTO 0x00008000u
#define KOVA_SYSBKP_WEB 0x00010000u
#define KOVA_SYSBKP_MTU 0x00020000u
#define KOVA_SYSBKP_RCPOWER 0x00040000u
#define KOVA_SYSBKP_USBCOPY 0x00080000u
#define KOVA_SYSBKP_HTTPPORT 0x00100000u
#define KOVA_SYSBKP_DCACHE 0x00200000u
#define KOVA_SYSBKP_FETCHBAY 0x00400000u
#define KOVA_SYSBKP_MYSQL 0x00800000u
#define KOVA_SYSBKP_USERQUOTA 0x01000000u
#define KOVA_SYSBKP_FINISH 0x02000000u

/* Events recorded through KOVALogSet1 (system class) at the end of a successful import. */
#define KOVA_SYSBKP_EVENT_IMPORTED 0x12100042u        /* option zero */
#define KOVA_SYSBKP_EVENT_IMPORTED_OPTION 0x12100043u /* option non-zero */

/* One row of the routine table: exporter (fd), importer (fd, version, option), description key,
 * section bit, version. Both functions return a negative number for failure. */
typedef int (*PFN_SYSBKP_EXPORT)(int fd);
typedef int (*PFN_SYSBKP_IMPORT)(int fd, int version, int option);
typedef struct _tag_SYSBKP_ROUTINE {
    PFN_SYSBKP_EXPORT pfnExport;
    PFN_SYSBKP_IMPORT pfnImport;
    const char *szDesc;
    uint32_t dwBit;
    uint32_t dwVersion;
} SYSBKP_ROUTINE, *PSYSBKP_ROUTINE;

/* The 23 sections in file order, then an all-zero row. */
extern KOVA_API const SYSBKP_ROUTINE grgSysRoutine[];

/* The import's cache: description key -> the number of records its importer restored. Filled
 * by the importers, freed by KOVASysbkpFinishImport at the end of every import. */
extern KOVA_API PKLIBSZHASH gpshSysbkpImported;

/* Writes every section whose bit is in dwMask (all of them for KOVA_SYSBKP_ALL) into szPath,
 * created or truncated. A failure leaves no file. 0; -1. */
KOVA_API int KOVASysbkpExport(const char *szPath, uint32_t dwMask);
/* Restores the sections of szPath whose bit is in dwMask; option is handed to each importer
 * (the host name is set only when it is non-zero). 0 when the file was read to its end and no
 * section failed; -1. */
KOVA_API int KOVASysbkpImport(const char *szPath, uint32_t dwMask, int option);

/* KOVASysbkpImport that tells the caller about each block as it goes: pfnReport(pContext, bit,
 * description key, state, records) with state KOVA_SYSBKP_RESTORED, SKIPPED or FAILED and the
 * number of records the importer restored (0 when it does not count them). */
#define KOVA_SYSBKP_RESTORED 0
#define KOVA_SYSBKP_SKIPPED 1
#define KOVA_SYSBKP_FAILED 2
typedef void (*PFN_SYSBKP_REPORT)(void *pContext, uint32_t dwBit, const char *szDesc, int state,
                                  int records);
KOVA_API int KOVASysbkpImportReport(const char *szPath, uint32_t dwMask, int option,
                                    PFN_SYSBKP_REPORT pfnReport, void *pContext);

/* Framing. The block header with size 0; the size filled in (body end - body start, stored just
 * before the body, the position returned to the body end); one item; one item read back (the
 * string allocated for the caller, who frees it). 0; -1. */
KOVA_API int KOVASysbkpIWriteHeader(int fd, uint32_t dwBit);
KOVA_API int KOVASysbkpIWriteBlkSize(int fd, long lStart, long lEnd);
KOVA_API int KOVASysbkpIWriteLong(int fd, uint32_t dwValue);
KOVA_API int KOVASysbkpIWriteString(int fd, const char *szText);
KOVA_API int KOVASysbkpIReadLong(int fd, uint32_t *pdwValue);
KOVA_API int KOVASysbkpIReadString(int fd, char **pszText);
/* One user (the record's fields, then the file-sharing LAN Manager and NT hashes as 32
 * hexadecimal digits each) and one share (its six strings and three numbers), as runs of items.
 * The readers check what they read: a user whose name, hashes or fields the account files could
 * not hold, or a share that KOVAShareAlloc refuses, fails with ERR_FORMAT_ERROR. The record is
 * built into *ppUser / *ppShare (NULL: a new block); the hash buffers hold 33 bytes. 0; -1. */
KOVA_API int KOVASysbkpIWriteUserData(int fd, const KOVAUSER *pUser, const char *szLMHash,
                                      const char *szNTHash);
KOVA_API int KOVASysbkpIGetUserSetting(int fd, PKOVAUSER *ppUser, char *szLMHash, char *szNTHash);
KOVA_API int KOVASysbkpIWriteShare(int fd, const KOVASHARE *pShare);
KOVA_API int KOVASysbkpIReadShare(int fd, PKOVASHARE *ppShare);
/* The table row of a section bit, or -1. */
KOVA_API int KOVASysbkpIGetIdx(uint32_t dwBit);
/* Whole big-endian words: cbLength positive and a multiple of 4. cbLength; 0 at the end of the
 * file (read); -1. */
KOVA_API int KOVASysbkpRawIntWrite(int fd, const uint32_t *pdwWords, int cbLength);
KOVA_API int KOVASysbkpRawIntRead(int fd, uint32_t *pdwWords, int cbLength);

/* The sections' exporters and importers, in table order. */
KOVA_API int KOVASysbkpTimeExport(int fd);
KOVA_API int KOVASysbkpTimeImport(int fd, int version, int option);
KOVA_API int KOVASysbkpHostnameExport(int fd);
KOVA_API int KOVASysbkpHostnameImport(int fd, int version, int option);
KOVA_API int KOVASysbkpLangExport(int fd);
KOVA_API int KOVASysbkpLangImport(int fd, int version, int option);
KOVA_API int KOVASysbkpMailExport(int fd);
KOVA_API int KOVASysbkpMailImport(int fd, int version, int option);
KOVA_API int KOVASysbkpAppleExport(int fd);
KOVA_API int KOVASysbkpAppleImport(int fd, int version, int option);
KOVA_API int KOVASysbkpWindowsExport(int fd);
KOVA_API int KOVASysbkpWindowsImport(int fd, int version, int option);
KOVA_API int KOVASysbkpUserExport(int fd);
KOVA_API int KOVASysbkpUserImport(int fd, int version, int option);
KOVA_API int KOVASysbkpGroupExport(int fd);
KOVA_API int KOVASysbkpGroupImport(int fd, int version, int option);
KOVA_API int KOVASysbkpShareExport(int fd);
KOVA_API int KOVASysbkpShareImport(int fd, int version, int option);
KOVA_API int KOVASysbkpHDSleepTimeExport(int fd);
KOVA_API int KOVASysbkpHDSleepTimeImport(int fd, int version, int option);
KOVA_API int KOVASysbkpRunFtpdExport(int fd);
KOVA_API int KOVASysbkpRunFtpdImport(int fd, int version, int option);
KOVA_API int KOVASysbkpPPPoEExport(int fd);
KOVA_API int KOVASysbkpPPPoEImport(int fd, int version, int option);
KOVA_API int KOVASysbkpPhotoExport(int fd);
KOVA_API int KOVASysbkpPhotoImport(int fd, int version, int option);
KOVA_API int KOVASysbkpHttpPortExport(int fd);
KOVA_API int KOVASysbkpHttpPortImport(int fd, int version, int option);
KOVA_API int KOVASysbkpMTUExport(int fd);
KOVA_API int KOVASysbkpMTUImport(int fd, int version, int option);
KOVA_API int KOVASysbkpRCPowerExport(int fd);
KOVA_API int KOVASysbkpRCPowerImport(int fd, int version, int option);
KOVA_API int KOVASysbkpUSBCopySetExport(int fd);
KOVA_API int KOVASysbkpUSBCopySetImport(int fd, int version, int option);
KOVA_API int KOVASysbkpWebExport(int fd);
KOVA_API int KOVASysbkpWebImport(int fd, int version, int option);
KOVA_API int KOVASysbkpDCacheExport(int fd);
KOVA_API int KOVASysbkpDCacheImport(int fd, int version, int option);
KOVA_API int KOVASysbkpFetchbayExport(int fd);
KOVA_API int KOVASysbkpFetchbayImport(int fd, int version, int option);
KOVA_API int KOVASysbkpMySQLExport(int fd);
KOVA_API int KOVASysbkpMySQLImport(int fd, int version, int option);
KOVA_API int KOVASysbkpUserQuotaExport(int fd);
KOVA_API int KOVASysbkpUserQuotaImport(int fd, int version, int option);
KOVA_API int KOVASysbkpFinishExport(int fd);
KOVA_API int KOVASysbkpFinishImport(int fd, int version, int option);
/* The network interface settings, in the same block form (bit KOVA_SYSBKP_INTERFACE); no table
 * row, so the driver never calls them. */
KOVA_API int KOVASysbkpInterfaceExport(int fd);
KOVA_API int KOVASysbkpInterfaceImport(int fd, int version, int option);

/* The mail notification settings (kept in "/etc/kovainfo.conf": mail_smtp, mail_addr1,
 * mail_addr2, mail_test). One heap block; strings never NULL. */
typedef struct _tag_KOVAMAIL {
    char *szSmtp;
    char *szMail1;
    char *szMail2;
    int32_t blTest;
} KOVAMAIL, *PKOVAMAIL;
/* 0 and a new record in *ppMail; -1. */
KOVA_API int KOVAMailGet(PKOVAMAIL *ppMail);
KOVA_API int KOVAMailSet(const KOVAMAIL *pMail);
KOVA_API void KOVAMailFree(PKOVAMAIL pMail);

/* The appliance's host name: "hostname" of "/etc/kovainfo.conf" and "/etc/hostname" of the
 * appliance root (never this machine's own name). 1 to 63 letters, digits and hyphens, neither
 * first nor last a hyphen (ERR_INVALID_SERVERNAME). 0; -1. */
KOVA_API int KOVALnxSetHostname(const char *szHostname);

/* Service control: starts or stops every service of the mask through its program under
 * "/usr/kova/etc/rc.d/" (stopped in the reverse of the order they are started in). A service
 * whose program is not installed is passed over. 0; -1 when a program failed (the others are
 * still run). */
#define KOVA_SERVICE_STOP 0
#define KOVA_SERVICE_START 1
#define KOVA_SERVICE_SMB 0x00000001u
#define KOVA_SERVICE_AFP 0x00000002u
#define KOVA_SERVICE_NFS 0x00000004u
#define KOVA_SERVICE_FTP 0x00000008u
#define KOVA_SERVICE_PHOTO 0x00000010u
#define KOVA_SERVICE_DOWNLOAD 0x00000020u
#define KOVA_SERVICE_MYSQL 0x00000040u
#define KOVA_SERVICE_WEB 0x00010000u
#define KOVA_SERVICE_ALL_BUT_WEB 0xFFFEFFFFu
KOVA_API int KOVANetService(uint32_t dwMask, int action);

KOVA_END_DECLS

#endif /* KOVASDK_SYSBKP_H */
