// A user or a group renamed or removed: every share list that names it is rewritten with the
// new name, or without it, and smb.conf is written once.
#include <cstring>

#include "core/alloc.h"
#include "core/owners.h"
#include "group/group_internal.h"
#include "share/share_internal.h"

namespace kova::share {
namespace {

constexpr size_t kListSize = 65536;

// The share's lists with old_name renamed (or dropped): true when one of them named it.
bool renamed_lists(const KOVASHARE &share, const char *old_name, const char *name,
                   char (*lists)[kListSize]) {
    bool any = false;
    const char *given[3] = {share.szDenyList, share.szRWList, share.szROList};
    for (int i = 0; i < 3; ++i) {
        if (user::replace_in_list(given[i], old_name, name, lists[i], kListSize)) {
            any = true;
        } else {
            snprintf(lists[i], kListSize, "%s", given[i]);
        }
    }
    return any;
}

int rename_in_lists(const char *old_name, const char *name) {
    Writer writer;
    if (!writer.ok()) return -1;
    PKOVASHAREDB db = writer.db();
    UniqueMalloc<char[kListSize]> lists(static_cast<char(*)[kListSize]>(xmalloc(3 * kListSize)));
    PKLIBSZLIST names = PslKLIBSzListAlloc(0);
    if (!lists || names == nullptr || KOVAShareEnum(&names) < 0) {
        KLIBSzListFree(names);
        return fail(ERR_OUT_OF_MEMORY);
    }
    PKOVASHARE share = nullptr;
    int changed = 0;
    int result = 0;
    for (int i = 0; result == 0 && i < names->nItem; ++i) {
        if (KOVAShareDBGet(db, SzKLIBSzListGet(names, i), &share) != 0) {
            result = -1;
            break;
        }
        if (!renamed_lists(*share, old_name, name, lists.get())) continue;
        KOVASHARE updated = *share;
        updated.szDenyList = lists.get()[0];
        updated.szRWList = lists.get()[1];
        updated.szROList = lists.get()[2];
        result = KOVAShareDBSet(db, share->szName, &updated);
        ++changed;
    }
    KOVAShareFree(share);
    KLIBSzListFree(names);
    if (result != 0 || changed == 0) return result;
    return writer.finish();
}

}  // namespace
}  // namespace kova::share

namespace kova::user {

// The shares follow a renamed user; a deleted user leaves their lists.
void modify_smb_conf(const KOVAUSER *old_user, const KOVAUSER *user) {
    if (old_user == nullptr) return;
    if (user != nullptr && strcmp(old_user->szName, user->szName) == 0) return;
    if (share::rename_in_lists(old_user->szName, user != nullptr ? user->szName : nullptr) != 0) {
        log_at(LOG_ERR, Site(), "%s:%d KOVAUserModifySmbConf failed. kovaerr=0x%04X", KLIBErrGet());
    }
}

}  // namespace kova::user

namespace kova::group {

void rename_in_shares(const char *old_name, const char *name) {
    if (old_name == nullptr || old_name[0] == '\0') return;
    char old_entry[kKeySize + 1], entry[kKeySize + 1];
    snprintf(old_entry, sizeof old_entry, "@%s", old_name);
    if (name != nullptr) snprintf(entry, sizeof entry, "@%s", name);
    if (share::rename_in_lists(old_entry, name != nullptr ? entry : nullptr) != 0) {
        log_at(LOG_ERR, Site(), "%s:%d Rename group in smb.conf failed.");
    }
}

}  // namespace kova::group
