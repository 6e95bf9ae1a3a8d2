/*
 * Disks: the appliance's physical disks (/dev/sdX and /dev/sdXY; the internal bays are sda to
 * sdj), their size, model, temperature, write cache and standby settings, and single sectors.
 *
 * Two families live side by side. The Disk... calls work on /dev/sd paths, log their failures at
 * LOG_ERR and return -1 / 0 / 1; the KOVADisk... and KOVAIDisk... calls work on device numbers
 * from "/proc/partitions" or on device paths, raise an error code (error.h) and return -1 / 0.
 *
 * Device names are the appliance's: every path under /dev, /sys and /proc resolves under the
 * sandbox root (KOVA_ROOT), whether the library forms it or a caller passes it, so the records'
 * paths can be handed back as they are.
 */
#ifndef KOVASDK_DISK_H
#define KOVASDK_DISK_H

#include <stdint.h>

#include "export.h"
#include "list.h"

KOVA_BEGIN_DECLS

/* One disk of the path family (DiskInfoGet, zero-filled; DiskInfoFree). ullSize is 8-aligned on
 * every target, as on the appliance. */
typedef struct _tag_DISK_INFO {
    int32_t idx;      /* alphabet position of the name's last letter ("a" = 1) */
    int32_t nameLen;  /* 1 for /dev/sdX, 2 for /dev/sdXY */
    int32_t firstIdx; /* alphabet position of a two-letter name's first letter, else 0 */
    char szPath[128];
    char szModel[128];
    uint64_t ullSize __attribute__((aligned(8))); /* bytes */
    int32_t temperature;                          /* degrees Celsius, -1 when unknown */
} DISK_INFO, *PDISK_INFO;

/* A list of disks, built by prepending (DiskListPush); each node owns its record. */
typedef struct _tag_DISK_LIST {
    PDISK_INFO pDisk;
    struct _tag_DISK_LIST *pNext;
} DISK_LIST, *PDISK_LIST;

/* Container classes of DiskContainerGet. */
#define DISK_CONTAINER_INTERNAL 1   /* sda to sdj, other than the eSATA disk */
#define DISK_CONTAINER_TWO_LETTER 2 /* sdaa ... */
#define DISK_CONTAINER_EXTERNAL 4   /* sdk to sdz */
#define DISK_CONTAINER_ESATA 8      /* the disk named by "esatadiskname" */

/* The only device-number type the KOVADisk... calls accept. */
#define KOVA_DISK_TYPE_LINUX 1

/* Which fields of a KOVADISKINFO hold values: always all three (7). */
#define KOVA_DISK_INFO_DEV 0x1
#define KOVA_DISK_INFO_NAME 0x2
#define KOVA_DISK_INFO_SIZE 0x4

/* One disk of the device-number family: 104 bytes, malloc'ed zero-filled; free with free(). */
typedef struct _tag_KOVADISKINFO {
    uint32_t dev;     /* (minor & 0xFF) | (major << 8 & 0xFFF00) | ((minor & ~0xFF) << 12) */
    char szName[64];  /* kernel name, "sda" */
    uint32_t fields;  /* KOVA_DISK_INFO_DEV | _NAME | _SIZE (7) */
    uint32_t flags;   /* 0 */
    uint32_t sizeMiB; /* sector count >> 11 */
    uint32_t status;  /* 0 */
    uint32_t reserved[5];
} KOVADISKINFO, *PKOVADISKINFO;

/* Results of KOVAIDiskCheckPower (the drive's sector-count register). */
#define KOVA_DISK_POWER_STANDBY 0x00
#define KOVA_DISK_POWER_IDLE 0x80
#define KOVA_DISK_POWER_ACTIVE 0xFF

/* The hardware-monitor daemon's event for a changed standby timer (KLIBScemdNotify). */
#define KOVA_SCEMD_EVENT_STANDBY_TIMER 43

/* Path family. */
KOVA_API int DiskPathParse(const char *szPath, PDISK_INFO pInfo);
/* 1 with a new record, 0 when the disk is absent (ENXIO), -1. */
KOVA_API int DiskInfoGet(const char *szPath, PDISK_INFO *ppInfo);
KOVA_API void DiskInfoFree(PDISK_INFO pInfo);
KOVA_API void DiskListPush(PDISK_LIST *ppList, PDISK_INFO pInfo);
/* The internal bays in ascending order: the number found, or -1. */
KOVA_API int DiskInfoEnum(PDISK_LIST *ppList);
KOVA_API int DiskInfoEnumFromEBox(int host, PDISK_LIST *ppList);
KOVA_API void DiskInfoEnumFree(PDISK_LIST pList);
/* 1 with the 512-byte sector count, 0 when absent, -1. */
KOVA_API int DiskSizeGet(const char *szPath, uint32_t *pSectors);
KOVA_API int DiskIsExist(const char *szPath);
KOVA_API int DiskContainerGet(const char *szPath, int *pClass);

/* Device-number family. */
KOVA_API int KOVADiskEnum(int type, uint32_t **ppDevs);
KOVA_API int KOVADiskGetInfo(int type, uint32_t dev, PKOVADISKINFO *ppInfo);
/* KOVADiskGetInfo for a device path ("/dev/sda" or "sda"). */
KOVA_API int KOVALnxDiskGetInfo(int type, const char *szDevPath, PKOVADISKINFO *ppInfo);
KOVA_API int KOVALnxDiskGetModel(const char *szDevPath, char *szBuf, int cbBuf);
/* 1 when the disk's ATA commands go through the second command interface, 0, -1. */
KOVA_API int KOVADiskIsMvSocDriver(const char *szDevPath);
KOVA_API int KOVAIDiskRawOpen(const char *szDevPath);
KOVA_API int KOVAReadOneSectorFromDev(const char *szDev, uint32_t sector, void *pBuf);
KOVA_API int KOVAWriteOneSectorToDev(const char *szDev, uint32_t sector, const void *pBuf);
KOVA_API int KOVAIsUSBDiskFATNoPartition(const char *szDev);
KOVA_API int KOVADiskIsSSD(const char *szDevPath);
KOVA_API int KOVADiskTemperatureGet(const char *szDevPath);
KOVA_API int KOVADiskTemperatureC(const char *szDevPath);

/* Write cache: the drive's setting, and the stored "diskcache". */
KOVA_API int KOVADiskWriteCacheGet(const char *szDevPath);
KOVA_API int KOVADiskWriteCacheSet(const char *szDevPath, int on);
KOVA_API int KOVADiskGetFileWCSetting(void);
KOVA_API int KOVADiskSetFileWCSetting(int on);

/* Standby: stored minutes, the drives' timers, standby now, power state. */
KOVA_API int KOVADiskGetStandbyTimer(int *pMinutes);
KOVA_API int KOVADiskGetUSBStandbyTimer(int *pMinutes);
KOVA_API int KOVADiskGetFileSBTimerSetting(void);
KOVA_API int KOVADiskSetFileSBTimerSetting(int minutes);
KOVA_API int KOVADiskSetStandbyTimer(int minutes);
KOVA_API int KOVADiskSetStandbySeconds(int seconds);
KOVA_API int KOVADiskSetUSBStandbyTimer(int minutes);
KOVA_API int KOVAIDiskSetDiskStandbyTimer(const char *szDevPath, int value);
KOVA_API int KOVADiskSetStandby(void);
KOVA_API int KOVAIDiskSetDiskStandby(const char *szDevPath);
KOVA_API int KOVAIDiskCheckPower(const char *szDevPath, unsigned char *pState);
KOVA_API int KOVAIDiskEnterSleep(const char *szDevPath);
KOVA_API int KOVADiskFlushBufferAll(void);
KOVA_API int KOVAIDiskFlushBuffer(const char *szDevPath);
KOVA_API int KOVADiskSetSleepMode(int on);
KOVA_API int KOVAIDiskReset(const char *szDevPath);
KOVA_API int KOVASetRCPowerConfig(int enable);
KOVA_API int KOVADiskTuningPerformance(const char *szDevPath);
/* The block device's read-ahead in 512-byte sectors (BLKRASET): 0 or -1. */
KOVA_API int KOVASysBlkDevReadAheadSet(const char *szDevPath, int sectors);

/* Tells the hardware-monitor daemon of an event: one line "%d\n" into its FIFO
 * "/tmp/scemd.fifo" when it listens. No daemon listening is not an error: 0; -1 on a failed
 * write or a path that is not a FIFO. */
KOVA_API int KLIBScemdNotify(int event);

/*
 * Expansion units: none unless "/usr/kova/etc/ebox.conf" names them, one key per unit, the
 * unit's SCSI host and its disks: host5="/dev/sdk,/dev/sdl".
 */
typedef struct _tag_KOVAEBOXINFO {
    char szHost[16];    /* "host5" */
    PKLIBSZLIST pDisks; /* device paths */
} KOVAEBOXINFO, *PKOVAEBOXINFO;

#define KOVA_EBOX_CONF "/usr/kova/etc/ebox.conf"

/* 1 when the device belongs to an expansion unit, 0 otherwise (also when none is configured). */
KOVA_API int KOVAEBoxDevIs(const char *szDevPath);
/* 0 with a new record of the unit ("host%d"), -1 (ERR_NO_DISK_ID when not configured). */
KOVA_API int KOVAEBoxInfoGet(const char *szHost, PKOVAEBOXINFO *ppInfo);
KOVA_API void KOVAEBoxInfoFree(PKOVAEBOXINFO pInfo);

KOVA_END_DECLS

#endif /* KOVASDK_DISK_H */
