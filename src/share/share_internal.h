// What the share family's files share.
#pragma once

#include <cstddef>

#include "core/fail.h"
#include "kovasdk/share.h"

namespace kova::share {

// The six strings of a record, in field order.
inline constexpr size_t kStrings = 6;
inline char *KOVASHARE::*const kStringFields[kStrings] = {
    &KOVASHARE::szName,     &KOVASHARE::szComment, &KOVASHARE::szPath,
    &KOVASHARE::szDenyList, &KOVASHARE::szRWList,  &KOVASHARE::szROList,
};

// The record's size as the appliance lays it out (4-byte pointers and integers): header, the
// non-empty strings with their NULs, the closing zero byte. The packed record holds it.
inline constexpr size_t kDeviceHeader = 44;

}  // namespace kova::share
