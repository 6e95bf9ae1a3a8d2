// What the group family's files share: its files, the cache's description, the line form and
// the writers' frame. Keys, record texts and source reading are the account helpers of the
// user family.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>

#include "bdb/bdb_cache.h"
#include "kovasdk/group.h"
#include "user/user_internal.h"

namespace kova::group {

namespace user = kova::user;
using user::kKeySize;
using user::Text;

inline constexpr char kGroup[] = "/etc/group";
inline constexpr char kGroupDesc[] = "/etc/group_desc";
// Renamed in this order; the first name has an underscore, the second a ".tmp" (both defined).
inline constexpr char kGroupTmp[] = "/etc/group_tmp";
inline constexpr char kGroupDescTmp[] = "/etc/group_desc.tmp";

inline constexpr char kGidMarkerName[] = "_@GID__INDEX@_";
inline constexpr char kNobody[] = "nobody";
inline constexpr uint32_t kFramedAbove = 65535;  // ids above it frame their members
inline constexpr int kLineSize = 65536;          // the longest group line written

// Ids are keyed as users' are: "%06d" with its NUL.
inline void gid_key(uint32_t gid, char (&key)[16]) {
    user::uid_key(gid, key);
}
inline constexpr size_t kGidKeyLen = user::kUidKeyLen;

const cache::Family &family();
cache::Kept &kept();
inline void **as_handle(PKOVAGROUPDB *db) {
    return reinterpret_cast<void **>(db);
}

// The fields of a group line, split in place: name, password, id and members (the rest).
// False when the line has fewer than four fields.
struct Fields {
    char *name;
    char *password;
    char *gid;
    char *members;
};
bool split_line(char *line, Fields *fields);

inline user::IdStore group_ids(PKOVAGROUPDB db) {
    return {db->pGRPGID,        KOVA_GROUP_KEY_CURRENT_GID, KOVA_GROUP_KEY_CURRENT_GID_LEN,
            KOVA_GROUP_GID_MIN, KOVA_GROUP_GID_MAX,         ERR_TOO_MANY_GROUPS};
}

// Completes or removes the temporary files of a dump that a killed writer left.
void recover_text_files();

// The writers' frame (cache::Writer) with this family's lock and files.
class Writer : public cache::Writer {
  public:
    Writer();
    PKOVAGROUPDB db() const { return static_cast<PKOVAGROUPDB>(handle()); }
};

// Creates (old name null) or changes many groups, each with its description when one is given,
// under one writer: one copy of the cache and one write of the files for the lot, as a restore
// needs. A group is not renamed here (no share list follows). 0, or -1 with nothing written.
int set_many(const char *const *old_names, PKOVAGROUP const *groups, const char *const *descs,
             int count);

// The call sites of the share family's updates: a group renamed (old and new name) or
// removed (new name null) in every share list.
void rename_in_shares(const char *old_name, const char *name);

}  // namespace kova::group
