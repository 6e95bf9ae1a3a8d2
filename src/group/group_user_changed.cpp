// A user renamed or deleted: every group that lists the user is rewritten with the new name,
// or without it.
#include <strings.h>

#include <cstring>

#include "core/alloc.h"
#include "core/owners.h"
#include "group/group_internal.h"
#include "kovasdk/kstring.h"

namespace kova::group {
namespace {

int rewrite_groups(const char *old_name, const char *name) {
    Writer writer;
    if (!writer.ok()) return -1;
    PKOVAGROUPDB db = writer.db();
    kova::UniqueMalloc<char> members(static_cast<char *>(xmalloc(kLineSize)));
    if (!members) return fail(ERR_OUT_OF_MEMORY);
    // Collect first: the walk's cursor must not see the rewrites.
    PKLIBSZLIST names = PslKLIBSzListAlloc(0);
    if (names == nullptr) return -1;
    PKOVAGROUP group = nullptr;
    int changed = 0;
    int result = 0;
    for (int32_t mode = KOVA_BDB_CURSOR_FIRST;; mode = KOVA_BDB_CURSOR_NEXT) {
        if (KOVAGroupDBGetByCursor(db, mode, &group) != 0) {
            if (KLIBErrGet() != ERR_BDB_END_OF_RECORDS) result = -1;
            break;
        }
        if (user::replace_in_list(group->szMembers, old_name, name, members.get(), kLineSize) &&
            KLIBSzListPush(&names, group->szName) < 0) {
            result = -1;
            break;
        }
    }
    for (int i = 0; result == 0 && i < names->nItem; ++i) {
        char upper[kKeySize];
        PKOVAGROUP old = nullptr;
        Text line;
        const int len = user::upper_key(SzKLIBSzListGet(names, i), upper);
        if (len < 0 || user::get_text(db->pGRPName, upper, len, &line.data, &line.cap) != 0 ||
            KOVAGroupDBUnpack(line.data, &old) != 0) {
            result = -1;
            break;
        }
        user::replace_in_list(old->szMembers, old_name, name, members.get(), kLineSize);
        if (KOVAGroupAlloc(&group, old->szName, old->gid, members.get()) != 0 ||
            KOVAGroupDBSet(db, upper, group) != 0) {
            result = -1;
        }
        KOVAGroupFree(old);
        ++changed;
    }
    KOVAGroupFree(group);
    KLIBSzListFree(names);
    if (result != 0 || changed == 0) return result;
    return writer.finish();
}

}  // namespace
}  // namespace kova::group

namespace kova::user {

// The user's groups follow a rename; a deleted user leaves them. A new user is in no group yet.
void modify_group(const KOVAUSER *old_user, const KOVAUSER *user) {
    if (old_user == nullptr) return;
    if (user != nullptr && strcmp(old_user->szName, user->szName) == 0) return;
    if (group::rewrite_groups(old_user->szName, user != nullptr ? user->szName : nullptr) != 0) {
        log_at(LOG_ERR, Site(), "%s:%d KOVAUserModifyGroup failed. kovaerr=0x%04X", KLIBErrGet());
    }
}

}  // namespace kova::user
