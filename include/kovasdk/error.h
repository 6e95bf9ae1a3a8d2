/*
 * Error state and reporting.
 *
 * Every failing call of the SDK returns its failure value (-1, a null pointer, false) and leaves
 * an error code in one process-wide state, with the source file and line that raised it and a
 * back trace of the call stack at that moment. A code is a message-table index times 256.
 */
#ifndef KOVASDK_ERROR_H
#define KOVASDK_ERROR_H

#include <stdint.h>

#include "export.h"

KOVA_BEGIN_DECLS

#define ERR_SUCCESS 0x0000
#define ERR_NOT_ENOUGH_MEMORY 0x0100
#define ERR_OUT_OF_MEMORY 0x0200
#define ERR_ACCESS_DENIED 0x0300
#define ERR_LOCK_FAILED 0x0400
#define ERR_UNLOCK_FAILED 0x0500
#define ERR_PATH_NOT_FOUND 0x0600
#define ERR_FILE_NOT_FOUND 0x0700
#define ERR_FILE_EXISTS 0x0800
#define ERR_OPEN_FAILED 0x0900
#define ERR_READ_FAILED 0x0A00
#define ERR_WRITE_FAILED 0x0B00
#define ERR_CREATE_FAILED 0x0C00
#define ERR_BAD_PARAMETERS 0x0D00
#define ERR_INVALID_SERVERNAME 0x0E00
#define ERR_INVALID_DOMAINNAME 0x0F00
#define ERR_INVALID_NETNAME 0x1000
#define ERR_SERVER_UNREACHABLE 0x1100
#define ERR_INVALID_SHARENAME 0x1200
#define ERR_SHARE_EXISTS 0x1300
#define ERR_NO_SUCH_SHARE 0x1400
#define ERR_TOO_MANY_SHARES 0x1500
#define ERR_INVALID_GROUPNAME 0x1600
#define ERR_GROUP_EXISTS 0x1700
#define ERR_NO_SUCH_GROUP 0x1800
#define ERR_TOO_MANY_GROUPS 0x1900
#define ERR_INVALID_USERNAME 0x1A00
#define ERR_INVALID_PASSWORDNAME 0x1B00
#define ERR_USER_EXISTS 0x1C00
#define ERR_NO_SUCH_USER 0x1D00
#define ERR_WRONG_PASSWORD 0x1E00
#define ERR_TOO_MANY_USERS 0x1F00
#define ERR_KEY_NOT_FOUND 0x2000
#define ERR_KEY_EXISTS 0x2100
#define ERR_SECTION_NOT_FOUND 0x2200
#define ERR_SECTION_EXISTS 0x2300
#define ERR_NOT_ENOUGH_QUOTA 0x2400
#define ERR_NOT_ENOUGH_VOLUME_SPACE 0x2500
#define ERR_SEEK_FAILED 0x2600
#define ERR_STAT_FAILED 0x2700
#define ERR_RENAME_FAILED 0x2800
#define ERR_NOT_ENOUGH_SPACE 0x2900
#define ERR_OP_FAILURE 0x2A00
#define ERR_DEV_UNCONFIG 0x2B00
#define ERR_DEV_UNMOUNTED 0x2C00
#define ERR_OP_UNREGISTERED 0x2D00
#define ERR_TIMER_EXPIRED 0x2E00
#define ERR_READ_GEO 0x3000
#define ERR_USAGE 0x3100
#define ERR_UPDATE_OFFSET 0x3200
#define ERR_CHECKSUM 0x3300
#define ERR_OPEN_RAWDEVICE 0x3400
#define ERR_OPEN_OPTFILE 0x3500
#define ERR_READ_RAWDEVICE 0x3600
#define ERR_WRITE_RAWDEVICE 0x3700
#define ERR_BADPATCH 0x3800
#define ERR_FORMAT_ERROR 0x4000
#define ERR_NO_VOLUME_ID 0x6000
#define ERR_NO_DISK_ID 0x6100
#define ERR_NOT_ENOUGH_SD 0x6200
#define ERR_SD_SIZE_NOT_ALIGN 0x6300
#define ERR_DEVICE_BUSY 0x6400
#define ERR_INVALID_SD 0x6500
#define ERR_FORMAT_FAIL 0x6600
#define ERR_CANNOT_REBUILD_DISK 0x6700
#define ERR_BROKEN_RAID_CONF 0x6800
#define ERR_DISK_TOO_SMALL 0x6900
#define ERR_CANNOT_GET_MNTINFO 0x6A00
#define ERR_BROKEN_DISK_INFO 0x6B00
#define ERR_DISK_IO_FAILED 0x6C00
#define ERR_BAD_DISKSECTOR 0x6D00
#define ERR_UDPD_INVALID_HANDLE 0x7100
#define ERR_UDPD_RUNNING_HANDLE 0x7200
#define ERR_UDPD_INVALID_EVENT 0x7300
#define ERR_UDPD_INVALID_PARAMETER 0x7400
#define ERR_UDPD_EXIT_ABNORMAL 0x7500
#define ERR_UDPD_NOT_ENOUGH_SPACE 0x7600
#define ERR_UDPD_TIMEOUT 0x7700
#define ERR_UDPD_INIT_FAIL 0x7800
#define ERR_UDPD_SEND_FAIL 0x7900
#define ERR_UDPD_RECV_FAIL 0x7A00
#define ERR_UNKNOWN 0x8000
#define ERR_SYS_UNKNOWN 0x8100
#define ERR_VOLUME_SIZE_TOO_LARGE 0x8200
#define ERR_YP_BIND 0x9000

/* Codes raised without an entry of their own in the message table (numbers are fixed). */
#define ERR_REMOVE_TMP_FAILED 0x3900  /* removing the account/share databases' temporary files */
#define ERR_COPY_SOURCE_FAILED 0x3A00 /* file copy: the source cannot be read */
#define ERR_COPY_FAILED 0x3B00        /* file copy: the copy itself failed */
#define ERR_WRITE_IO 0x3C00           /* a write failed for a reason other than a full disk */
#define ERR_BACKUP_CONF_OPEN 0x5000   /* backup configuration cannot be read */
#define ERR_BACKUP_CONF_ITEM 0x5400   /* backup configuration item rejected */
#define ERR_SYS_CALL_FAILED 0x8300
#define ERR_READ_ONLY_FS 0x8400

/* Family codes above the table. */
#define ERR_SHARE_PATH_NOT_ABSOLUTE 0x9900
#define ERR_INTERRUPTED 0xAA00
#define ERR_BDB_INVALID 0xB100
#define ERR_BDB_GET_FAILED 0xB200
#define ERR_BDB_PUT_FAILED 0xB300
#define ERR_BDB_DEL_FAILED 0xB400
#define ERR_BDB_END_OF_RECORDS 0xB500
#define ERR_BDB_USER_NOT_FOUND 0xB800
#define ERR_RAID_BAD_PATH 0xBE00

/* Number of entries of rgszErrMsg. */
#define KOVA_ERR_MSG_COUNT 145

/* The process's error state: the last code set (read it with KLIBErrGet). */
extern KOVA_API uint32_t kovaerrno;
/* The message names, indexed by code >> 8. */
extern KOVA_API const char *const rgszErrMsg[KOVA_ERR_MSG_COUNT];
/* errNum: the number of message names (KLIBErrPrint's bound); codeNum: kept for the appliance's
 * programs; volerr: the volume family's slot (KOVAVolISetErr); gDiskErr, gRaidErr: zero, for
 * the storage programs. */
extern KOVA_API int32_t errNum;
extern KOVA_API int32_t codeNum;
extern KOVA_API uint32_t volerr;
extern KOVA_API uint32_t gDiskErr;
extern KOVA_API uint32_t gRaidErr;

/* Stores code with no file (null) and line 0, then captures a back trace. */
KOVA_API void KLIBErrSet(uint32_t code);
/* Stores code, the source file name (kept by pointer: pass a literal) and line; back trace. */
KOVA_API void KLIBErrSetEx(uint32_t code, const char *file, int32_t line);
/* The last code set. Success never clears it: read it only after a failure. */
KOVA_API uint32_t KLIBErrGet(void);
/* The source file name and line recorded with the last code. */
KOVA_API const char *KOVAErrorGetFile(void);
KOVA_API int32_t KOVAErrorGetLine(void);

/* The back trace of the last raise, innermost frame first: to standard output... */
KOVA_API void KOVAErrorBackTracePrint(void);
/* ...or to "/dev/console" and to syslog at LOG_ERR. */
KOVA_API void KOVAErrorBackTracePanic(void);

/* Prints the message name of errno (not of kovaerrno) when errno has the shape of a code. */
KOVA_API void KLIBErrPrint(void);

/* Empties (creates) the log file; failures are silent. */
KOVA_API void KLIBErrLogInitial(const char *path);
/* Appends text and a line feed to the log file; text is used as a printf format. 0 or -1. */
KOVA_API int KLIBErrLogSet(const char *path, const char *text);

/* The volume family's own code slot; independent of kovaerrno. */
KOVA_API void KOVAVolISetErr(uint32_t code);
KOVA_API uint32_t KOVAVolGetErr(void);

KOVA_END_DECLS

#endif /* KOVASDK_ERROR_H */
