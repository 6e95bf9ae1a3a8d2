/*
 * Volumes: what users see of the storage, a file system mounted at /volume1, /volumeX1,
 * /volumeUSB1/usbshare ... The internal volume /volumeN lies on the array /dev/md(N + 1) (md0
 * and md1 are the system and swap arrays) or, as a logical volume, in the volume group
 * /dev/vgN, whose physical volumes are arrays; the expansion unit's /volumeXN lies on
 * /dev/md(N + 100).
 *
 * The volume record joins the mounted file system, the volume group and the arrays beneath.
 * The file system of a path is the last line of "/proc/mounts" mounted there, with the state
 * FS_STATE_WRITABLE, or FS_STATE_READONLY when it is mounted read-only (its first option is
 * "ro", or statfs reports ST_RDONLY): the state the kernel leaves a file system in after
 * errors, so a read-only file system counts as unhealthy.
 *
 * Volume groups are read from "/tmp/lvm.status", one line per physical volume:
 *     VG PV STATE        e.g. "vg1 /dev/md2 0"
 * VG is the group's name ("vgN"), PV the array's path, STATE PV_STATE_NORMAL (0) or
 * PV_STATE_MISSING (1: missing or failed). Blank lines, lines beginning with '#' and lines
 * that do not have this form are skipped; a missing file holds no groups.
 *
 * Every fixed path resolves under the sandbox root (KOVA_ROOT), mount points included; devices
 * handed to mount are rooted and quoted as every device path is.
 */
#ifndef KOVASDK_VOLUME_H
#define KOVASDK_VOLUME_H

#include <stdint.h>

#include "export.h"
#include "raid.h"

KOVA_BEGIN_DECLS

/* Location types, from the path's prefix. */
#define VOLUME_LOCATION_INTERNAL 1 /* /volumeN */
#define VOLUME_LOCATION_EBOX 2     /* /volumeXN: an expansion unit */
#define VOLUME_LOCATION_USB 4      /* /volumeUSBN/usbshare */
#define VOLUME_LOCATION_SATA 8     /* /volumeSATAN */

/* VolumePathSwitch options. */
#define VOLUME_SWITCH_VOL_TO_VG 1   /* /volumeN -> /dev/vgN */
#define VOLUME_SWITCH_VOL_TO_MD 2   /* /volumeN -> /dev/md(N+1), /volumeXN -> /dev/md(N+100) */
#define VOLUME_SWITCH_MD_TO_VOL 3   /* the reverse, through the groups of /tmp/lvm.status */
#define VOLUME_SWITCH_VG_TO_VOL 4   /* /dev/vgN -> /volumeN */
#define VOLUME_SWITCH_VOL_OF_PATH 5 /* /volume1/share/dir -> /volume1 */

/* Health flags (VolumeHealthyCheck). */
#define VOLUME_NOT_MOUNTED 0x01
#define VOLUME_FS_STATE2 0x02
#define VOLUME_PV_STATE1_INTERNAL 0x04
#define VOLUME_PV_STATE1_EBOX 0x08
#define VOLUME_RAID_DEGRADE 0x10
#define VOLUME_RAID_CRASHED 0x20
#define VOLUME_SYSTEM_PARTITION_ABNORMAL 0x40

/* File-system states. */
#define FS_STATE_WRITABLE 1
#define FS_STATE_READONLY 2

/* Physical-volume states. */
#define PV_STATE_NORMAL 0
#define PV_STATE_MISSING 1

/* The file system mounted at a path. */
typedef struct _tag_FS_INFO {
    char szMountPoint[128];
    char szDevice[128]; /* the source: "/dev/md2", "/dev/vg1/lv1" ... */
    char szType[32];    /* "ext4" */
    int32_t state;      /* FS_STATE_... */
} FS_INFO, *PFS_INFO;

/* One physical volume of a group. */
typedef struct _tag_PV_INFO {
    char szPath[128]; /* "/dev/md2" */
    int32_t state;    /* PV_STATE_... */
    struct _tag_PV_INFO *pNext;
} PV_INFO, *PPV_INFO;

/* A volume group with its physical volumes in the order of /tmp/lvm.status. */
typedef struct _tag_VG_INFO {
    char szName[64];  /* "vg1" */
    char szPath[128]; /* "/dev/vg1" */
    int32_t pvCount;
    PPV_INFO pPVList;
} VG_INFO, *PVG_INFO;

/* One volume (VolumeInfoGet, zero-filled; VolumeInfoFree frees the three parts too).
 * VolumePathParse fills num and location only. */
typedef struct _tag_VOLUME_INFO {
    int32_t num;
    int32_t location; /* VOLUME_LOCATION_... */
    char szPath[128];
    PFS_INFO pFSInfo;     /* NULL: nothing mounted there */
    PVG_INFO pVGInfo;     /* NULL: not a logical volume */
    PRAID_LIST pRaidList; /* the arrays beneath, or NULL */
} VOLUME_INFO, *PVOLUME_INFO;

/* A list of volumes (VolumeInfoListPush appends). */
typedef struct _tag_VOLUME_LIST {
    PVOLUME_INFO pVolume;
    struct _tag_VOLUME_LIST *pNext;
} VOLUME_LIST, *PVOLUME_LIST;

/* The volume tool's running operation ("/tmp/webman/modules/volume"). */
typedef struct _tag_VOLUME_ACTION {
    int32_t pid;
    char szVolPath[64];
    int32_t action;
    int32_t step;
} VOLUME_ACTION, *PVOLUME_ACTION;

/* What KOVAVolInfoGet reports of /volumeN. The 64-bit fields are 8-aligned on every target. */
typedef struct _tag_VOL_MOUNT_INFO {
    int32_t num;
    int32_t valid; /* always 1 */
    char szDev[32];
    int32_t mounted; /* 1 or 0 */
    char szMountPoint[32];
    uint64_t ullAvail __attribute__((aligned(8))); /* bytes free for users */
    uint64_t ullTotal __attribute__((aligned(8))); /* bytes */
    int32_t writable;
} VOL_MOUNT_INFO, *PVOL_MOUNT_INFO;

/* Paths. */
/* 1 with pInfo->num and pInfo->location; 0 for a path that is not a volume path; -1. */
KOVA_API int VolumePathParse(const char *szPath, PVOLUME_INFO pInfo);
/* One of the VOLUME_SWITCH_... conversions into szBuf: 0; -1 (ERR_NOT_ENOUGH_MEMORY when
 * cbBuf is too small). */
KOVA_API int VolumePathSwitch(const char *szPath, int option, char *szBuf, int cbBuf);
/* The number of a path inside a volume ("/volume%d/..." or "/volume%d.snap_%d/..."); -1 with
 * ERR_BAD_PARAMETERS for a path that is not 8 to 485 characters long beginning with "/volume",
 * or with 0x9900 when no number can be read. */
KOVA_API int KOVAVolIDParse(const char *szPath);

/* Records. */
/* 1 with a record, 0 when nothing exists under the path, -1. */
KOVA_API int VolumeInfoGet(const char *szPath, PVOLUME_INFO *ppInfo);
KOVA_API void VolumeInfoFree(PVOLUME_INFO pInfo);
/* Every volume: from the mounted file systems, the volume groups, the arrays (md0, md1 aside),
 * each path once. The number of volumes; -1. */
KOVA_API int VolumeInfoEnum(PVOLUME_LIST *ppList);
KOVA_API int VolumeInfoListPush(PVOLUME_LIST *ppList, PVOLUME_INFO pInfo);
/* 1 with *ppFound (owned by the list), 0 absent, -1. */
KOVA_API int VolumeInfoListSearch(PVOLUME_LIST pList, const char *szPath, PVOLUME_INFO *ppFound);
KOVA_API void VolumeInfoListFree(PVOLUME_LIST pList);
/* The records, or only those of a location (VOLUME_LOCATION_INTERNAL or _EBOX) when
 * pLocation is not NULL. */
KOVA_API int VolumeCount(PVOLUME_LIST pList, const int *pLocation);

/* Health. */
/* 0 with the VOLUME_... flags; -1. */
KOVA_API int VolumeHealthyCheck(const VOLUME_INFO *pInfo, uint32_t *pFlags);
/* 1 writable, 0 not, -1; the flags are passed out when pFlags is not NULL. */
KOVA_API int VolumeIsWritable(const VOLUME_INFO *pInfo, uint32_t *pFlags);
/* 1 for a single-disk volume, 0 otherwise; -1 for a NULL record. */
KOVA_API int VolumeIsBasic(const VOLUME_INFO *pInfo);
/* 1 while the volume tool's live process works on the volume (copied to pAction when not
 * NULL), 0 otherwise; -1. */
KOVA_API int VolumeIsActioning(const char *szPath, PVOLUME_ACTION pAction);
/* /volumeN's device, mount point, sizes and writability: 0 (mounted 0 when not mounted); -1. */
KOVA_API int KOVAVolInfoGet(int num, PVOL_MOUNT_INFO pInfo);

/* Mounting: 0; -1. */
KOVA_API int VolumeMount(const char *szDevice, const char *szMountPoint);
KOVA_API int VolumeUnmount(const char *szMountPoint);

KOVA_END_DECLS

#endif /* KOVASDK_VOLUME_H */
