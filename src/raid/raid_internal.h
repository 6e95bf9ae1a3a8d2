// What the RAID family's files share: the defined texts, the level table, md path parsing, and
// the read side's way of failing (its lines go out at LOG_DEBUG).
#pragma once

#include <cstdint>

#include "core/fail.h"
#include "kovasdk/raid.h"

struct mdu_array_info_s;

namespace kova::raid {

inline constexpr char kSysBlock[] = "/sys/block/";
inline constexpr char kMd0[] = "/dev/md0";
inline constexpr char kMd1[] = "/dev/md1";
inline constexpr int kInternalMax = 99;  // arrays above belong to expansion units
inline constexpr int kEboxMin = 101;
inline constexpr int kReadAhead = 1024;
inline constexpr int kStripeCache = 1024;
inline constexpr uint64_t kMemberReserve = 65536;  // bytes a replacement needs beyond the data
// The rebuild progress request of the appliance's md driver (a read of three words).
inline constexpr unsigned long kRebuildRequest = 0x400C0960;

inline constexpr char kBadParams[] = "%s:%d Bad parameters";
inline constexpr char kBadPath[] = "%s:%d invalide path %s, errno=%m";
inline constexpr char kOpenFailed[] = "%s:%d Failed to open %s, errno=%m";
inline constexpr char kAllocateFailed[] = "%s:%d Failed to allocate, errno=%m";

// A read-side failure: the line at LOG_DEBUG, the code raised at the same site; -1.
template <class... Args>
int read_fail(uint32_t code, Site site, const char *format, Args... args) {
    log_at(LOG_DEBUG, site, format, args...);
    KLIBErrSetEx(code, site.file, site.line);
    return -1;
}

// N of "/dev/md%d" (scanf's reading: digits after the prefix); false when it does not parse.
bool parse_md(const char *path, int *number);

// The library's level code of an md level (0: not supported), and what it tolerates.
int level_code(int md_level);
int tolerance(int md_level, int raid_disks);
// The level text mdadm -l takes for a code, or null.
const char *level_text(int code);

// GET_ARRAY_INFO of a running array: 1 with *info, 0 not running (ERR_PATH_NOT_FOUND raised),
// -1 failed. A missing node is an array that is not running: the kernel's /dev has none.
int array_info(const char *md_path, mdu_array_info_s *info);

// The disk part of a partition path, cut at its first digit ("/dev/sda3" -> "/dev/sda").
void disk_of(const char *partition, char (&out)[128]);

}  // namespace kova::raid
