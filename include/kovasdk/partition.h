/*
 * Partitions: the MS-DOS partition type table that the disk and partition code share.
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

KOVA_END_DECLS

#endif /* KOVASDK_PARTITION_H */
