/*
 * Partitions: every disk of the storage pool carries three primary MS-DOS partitions of type
 * 0xFD (system array, swap array, data), in one of two layouts; this family creates, wipes and
 * recognises them by running the appliance's partition tool "/sbin/sfdisk" through the shell.
 * Disk paths go to the tool resolved under the sandbox root and quoted for the shell.
 */
#ifndef KOVASDK_PARTITION_H
#define KOVASDK_PARTITION_H

#include <stdint.h>

#include "export.h"

KOVA_BEGIN_DECLS

/* One row of PartType; the table ends with a row whose szName is NULL. */
typedef struct _tag_PART_TYPE {
    uint32_t type;
    const char *szName;
    uint32_t flag; /* 1: a FAT or NTFS type that another system can read */
} PART_TYPE;

/* The 48 partition types, in the appliance's order. */
extern KOVA_API const PART_TYPE PartType[];

/* The two layouts (sectors of 512 bytes). */
#define PARTITION_LAYOUT_1 1
#define PARTITION_LAYOUT_2 2

/* PartitionCreate and PartitionClean masks. */
#define PARTITION_SYSTEM 1 /* partitions 1 and 2 */
#define PARTITION_DATA 2   /* partition 3 (and 4 when cleaning) */

/* What the USB identity of a disk is (sysfs idVendor, idProduct, strings). */
typedef struct _tag_KOVAUSBDEVINFO {
    uint32_t vendor;
    uint32_t product;
    char szManufacturer[64];
    char szProduct[64];
    char szSerial[64];
} KOVAUSBDEVINFO, *PKOVAUSBDEVINFO;

/* Partition n of a disk ("sda" or "/dev/sda"): its sector count with *pStart and *pType, or
 * -1 (outputs untouched). */
KOVA_API int64_t RCPartitionConfigs(int partition, const char *szDisk, uint32_t *pStart,
                                    uint32_t *pType);
/* 1 with *pLayout when partitions 1-3 match a row of that flag (1: the RAID layouts), else 0. */
KOVA_API int BlKOVACheckPartitionLayout(const char *szDisk, int flag, int *pLayout);
KOVA_API int PartitionLayoutGet(int *pLayout);
KOVA_API int PartitionCreate(const char *szDiskPath, int mask, const int *pLayout);
KOVA_API int PartitionCleanFS(const char *szDiskPath, int partition);
KOVA_API int PartitionCleanRAID(const char *szDiskPath, int partition);
KOVA_API int PartitionClean(const char *szDiskPath, int mask);
KOVA_API int KOVAUSBDevGetInfo(const char *szDevPath, PKOVAUSBDEVINFO pInfo);
KOVA_API int KOVACheckSpecialDevice(const char *szDevPath);

KOVA_END_DECLS

#endif /* KOVASDK_PARTITION_H */
