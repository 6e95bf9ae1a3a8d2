// What the partition family's files share.
#pragma once

#include "core/fail.h"
#include "kovasdk/partition.h"

namespace kova::partition {

inline constexpr char kSfdisk[] = "/sbin/sfdisk";

// One layout: partition 1 (start 63) and 2 sizes, and the gap before partition 3.
struct Layout {
    int id;
    unsigned long system_sectors;
    unsigned long swap_sectors;
    unsigned long data_gap;
};
// The layout of an id (1 or 2), or null.
const Layout *layout_of(int id);

// The partition-entry remover: empties entry n of the disk's table.
int remove_entry(const char *disk, int partition);

}  // namespace kova::partition
