// What the share family's files share.
#pragma once

#include <cstddef>
#include <optional>

#include "bdb/bdb_cache.h"
#include "core/fail.h"
#include "kovasdk/share.h"
#include "user/user_internal.h"

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

namespace user = kova::user;
using user::kKeySize;
using user::Text;

inline constexpr char kSmbConf[] = KOVA_SHARE_CONF;
inline constexpr char kSmbConfTmp[] = KOVA_SHARE_CONF ".tmp";

const cache::Family &family();
cache::Kept &kept();
inline void **as_handle(PKOVASHAREDB *db) {
    return reinterpret_cast<void **>(db);
}

// What follows a share outside smb.conf (old null for a new share): its folder and the
// settings that name it. Failures are logged.
void after_share_set(const KOVASHARE *old, const KOVASHARE &share);
void after_share_delete(const KOVASHARE &share);

// Removes the temporary file of a dump that a killed writer left.
void recover_text_files();

// The share's key: its name upper-cased, with the NUL (the length), or -1 (raised).
int share_key(const char *name, char (&key)[kKeySize]);

// Creates (old name null) or changes many shares under one writer: one copy of the cache and
// one dump of smb.conf for the lot, as a restore needs; then each share's folder and settings
// follow it as after KOVAShareSet. 0, or -1 with nothing written.
int set_many(const char *const *old_names, const KOVASHARE *const *shares, int count);

// The writers' frame (cache::Writer) with the configuration lock on smb.conf.
class Writer : public cache::Writer {
  public:
    Writer();
    PKOVASHAREDB db() const { return static_cast<PKOVASHAREDB>(handle()); }
};

}  // namespace kova::share
