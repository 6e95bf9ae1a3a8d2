/*
 * RAID arrays: the md arrays of the appliance, read through the md driver (ioctls on /dev/mdN)
 * and its sysfs directories, changed by running mdadm through the shell and judging its exit
 * status. Partition 1 of every disk forms the system array /dev/md0, partition 2 the swap
 * array /dev/md1, partitions 3 the user's arrays /dev/md2 and up; arrays numbered above 100
 * belong to expansion units.
 *
 * Device and sysfs paths resolve under the sandbox root (KOVA_ROOT) as every /dev, /sys and
 * /proc path does; the paths handed to mdadm are resolved the same way and quoted for the
 * shell. Reading functions never change an array; an array that is not running is a normal
 * answer (0, ERR_PATH_NOT_FOUND), not a failure.
 */
#ifndef KOVASDK_RAID_H
#define KOVASDK_RAID_H

#include <stdint.h>

#include "export.h"
#include "list.h"

KOVA_BEGIN_DECLS

/* The library's level codes. */
#define RAID_LEVEL_RAID0 1
#define RAID_LEVEL_RAID1 2
#define RAID_LEVEL_RAID5 3
#define RAID_LEVEL_RAID6 4
#define RAID_LEVEL_LINEAR 5

/* Array status codes. */
#define RAID_STATUS_NORMAL 1
#define RAID_STATUS_DEGRADE 2
#define RAID_STATUS_CRASHED 3

/* Member status codes. */
#define RAID_DISK_IN_SYNC 0
#define RAID_DISK_FAULTY 1
#define RAID_DISK_ERROR 2
#define RAID_DISK_RECOVERING 3 /* a spare that holds a slot: being rebuilt in */
#define RAID_DISK_SPARE 4      /* a hot spare without a slot */

/* Rebuild states (RAID_INFO.rebuild[0]). */
#define RAID_REBUILD_NONE 0
#define RAID_REBUILD_RUNNING 1
#define RAID_REBUILD_PENDING 2

/* RAIDScan modes: every array, or only expansion units' arrays (numbered above 100). */
#define RAID_SCAN_ALL 1
#define RAID_SCAN_EBOX 2

/* RAIDListSearch modes. */
#define RAID_SEARCH_PATH 1   /* the array whose path is the key */
#define RAID_SEARCH_MEMBER 2 /* the array with a member of that path */

/* RAIDDiskInit modes. */
#define RAID_DISK_INIT_JOIN 1  /* system partitions joined to md0/md1, data partition made */
#define RAID_DISK_INIT_CLEAN 2 /* every partition removed */

/* One member of an array. */
typedef struct _tag_RAID_DISK {
    char szPath[128]; /* "/dev/sda3" */
    int32_t status;   /* RAID_DISK_... */
    struct _tag_RAID_DISK *pNext;
} RAID_DISK, *PRAID_DISK;

/* One array (RAIDInfoGet, zero-filled; RAIDInfoFree frees the member list too). The 64-bit
 * fields are 8-aligned on every target, as on the appliance. */
typedef struct _tag_RAID_INFO {
    int32_t mdNum;      /* N of /dev/mdN */
    int32_t eboxIdx;    /* -1, or the expansion unit of a first member /dev/sdXY (X - 'a') */
    char szPath[128];   /* the md path passed in */
    int32_t level;      /* RAID_LEVEL_..., 0 for a level the appliance does not support */
    int32_t status;     /* RAID_STATUS_... */
    int32_t rebuild[3]; /* state, blocks done, blocks total (the last two while running) */
    uint64_t ullArraySize __attribute__((aligned(8))); /* bytes */
    uint64_t ullDevSize __attribute__((aligned(8)));   /* bytes used on each member */
    int32_t raidDisks;                                 /* member slots */
    PRAID_DISK pDiskList;
} RAID_INFO, *PRAID_INFO;

/* A list of arrays (RAIDListPush). */
typedef struct _tag_RAID_LIST {
    PRAID_INFO pRaid;
    struct _tag_RAID_LIST *pNext;
} RAID_LIST, *PRAID_LIST;

/* What a member's superblock says (mdadm -E -b): 200 bytes, zero-filled. */
typedef struct _tag_RAID_SB {
    char szUUID[128];
    char szMdPath[64];
    int32_t level; /* RAID_LEVEL_... */
    int32_t numDevices;
} RAID_SB, *PRAID_SB;

typedef struct _tag_RAID_SB_LIST {
    PRAID_SB pSB;
    struct _tag_RAID_SB_LIST *pNext;
} RAID_SB_LIST, *PRAID_SB_LIST;

/* The system arrays. */
typedef struct _tag_RAID_SYSTEM {
    PRAID_INFO pMd0;
    PRAID_INFO pMd1;
} RAID_SYSTEM, *PRAID_SYSTEM;

/* What RAIDListSearch looks for: the key (a path), a wanted rebuild flag (0 idle, 1 rebuilding;
 * NULL: any) and a mode (RAID_SEARCH_...). */
typedef struct _tag_RAID_SEARCH {
    const char *szKey;
    const int *pRebuild;
    int32_t mode;
} RAID_SEARCH;

/* The md driver's array-information record (<linux/raid/md_u.h>). */
struct mdu_array_info_s;

/* Reading. */
KOVA_API int RAIDIoctlInfo(int fd, struct mdu_array_info_s *pInfo);
KOVA_API int RAIDIoctlSize(int fd, uint64_t *pBytes);
KOVA_API int RAIDRebuildStatusGet(int fd, int32_t rebuild[3]);
KOVA_API int RAIDDiskListGet(const char *szMdPath, PRAID_DISK *ppList);
KOVA_API int RAIDDiskCreate(const char *szMemberDir, PRAID_DISK *ppDisk);
KOVA_API void RAIDDiskListPush(PRAID_DISK *ppList, PRAID_DISK pDisk);
KOVA_API void RAIDDiskListFree(PRAID_DISK pList);
KOVA_API int RAIDDiskListSearch(PRAID_DISK pList, const char *szPath, PRAID_DISK *ppFound);
KOVA_API int RAIDDiskCount(const RAID_DISK *pList, int status);
KOVA_API int RAIDStatusDecide(const struct mdu_array_info_s *pArray, const RAID_DISK *pList,
                              int *pStatus);
/* 1 with a record, 0 when the array is not running, -1. */
KOVA_API int RAIDInfoGet(const char *szMdPath, PRAID_INFO *ppInfo);
KOVA_API void RAIDInfoFree(PRAID_INFO pInfo);
KOVA_API int RAIDIsDetected(const char *szMdPath);
/* Appends "/dev/mdN" of every running array: 0 or -1. */
KOVA_API int RAIDPathEnum(PKLIBSZLIST *ppList);
KOVA_API int RAIDListPush(PRAID_LIST *ppList, PRAID_INFO pInfo);
KOVA_API void RAIDListFree(PRAID_LIST pList);
KOVA_API int RAIDListSearch(PRAID_LIST pList, const RAID_SEARCH *pCriteria, PRAID_INFO *ppFound);
KOVA_API int RAIDSystemGet(PRAID_SYSTEM pSystem);
KOVA_API void RAIDSystemFree(PRAID_SYSTEM pSystem);
KOVA_API int RAIDSystemDiskStatusGet(const RAID_SYSTEM *pSystem, const char *szDisk, int *pStatus);
KOVA_API int RAIDSBGet(const char *szDevPath, PRAID_SB pSB);
KOVA_API int RAIDScan(const KLIBSZLIST *pDevs, int mode, PRAID_SB_LIST *ppList);
KOVA_API int RAIDSBPush(PRAID_SB_LIST *ppList, PRAID_SB pSB);
KOVA_API void RAIDScanFree(PRAID_SB_LIST pNode);
KOVA_API void RAIDSBEnumFree(PRAID_SB_LIST pList);
KOVA_API int RAIDDevRAIDGet(const char *szDevPath, char *szMdPath, int cbMdPath, int *pMdNum);
KOVA_API int RAIDDiskIsUsedByInternalRAID(const char *szDiskPath);
KOVA_API int RAIDRequireDevSizeGet(const RAID_INFO *pInfo, uint64_t *pBytes);
KOVA_API int RAIDExpansible(const RAID_INFO *pInfo, uint64_t *pNewKiB);
KOVA_API int RAIDSizeLimitGet(uint32_t *pKiB);
KOVA_API int RAIDMdStripeSizeGet(const char *szMdPath);
KOVA_API int KOVAMaxDiskGet(void);

/* Changing: 0 or -1. */
KOVA_API int RAIDCreate(const char *szMdPath, int level, int raidDisks, int spares,
                        const KLIBSZLIST *pDevs);
KOVA_API int RAIDAdd(const char *szMdPath, const char *szDevPath);
KOVA_API int RAIDAddRobustCheck(const char *szMdPath, const char *szDevPath);
KOVA_API int RAIDStop(const char *szMdPath);
KOVA_API int RAIDRemove(const RAID_INFO *pInfo);
KOVA_API int RAIDCleanSuperblock(const RAID_INFO *pInfo);
KOVA_API int RAIDDevCountChange(const char *szMdPath, int count);
KOVA_API int RAIDExpand(const char *szMdPath, uint64_t ullKiB);
KOVA_API int RAIDAssemble(const RAID_SB *pSB, const KLIBSZLIST *pDevs);
KOVA_API int RAIDSystemAdd(const char *szDiskPath);
KOVA_API int RAIDDiskInit(const char *szDiskPath, int mode);
KOVA_API int KOVARAIDMdTuningPerformance(const char *szMdPath);
KOVA_API int KOVARAIDMdStripeCacheSizeSet(const char *szMdPath, int value);

KOVA_END_DECLS

#endif /* KOVASDK_RAID_H */
