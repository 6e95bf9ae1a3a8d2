// /etc/group and /etc/group_desc written from the cache, in the order of the group ids, through
// their temporary files; both are complete before the first is renamed.
#include <cstring>

#include "core/rewrite.h"
#include "core/root.h"
#include "group/group_internal.h"

namespace kova::group {
namespace {

bool put_line(Rewrite &out, const char *text) {
    return out.put(text) && out.put("\n");
}

bool write_marker(PKOVAGROUPDB db, Rewrite &out) {
    void *value = nullptr;
    int32_t size = 0;
    int32_t current = 0;
    if (KOVABDbGet(db->pGRPGID, KOVA_GROUP_KEY_CURRENT_GID, KOVA_GROUP_KEY_CURRENT_GID_LEN, &value,
                   &size) == 0 &&
        size == sizeof current) {
        memcpy(&current, value, sizeof current);
    }
    free(value);
    return current == 0 || out.print(__LINE__, "#$%s$%d$\n", kGidMarkerName, current);
}

bool write_groups(PKOVAGROUPDB db, Rewrite &group, Rewrite &desc) {
    if (KOVABDbCursorSetType(db->pGRPGID, KOVA_BDB_CURSOR_FIRST) != 0) return false;
    void *key = nullptr;
    int32_t key_len = 0;
    Text upper, line;
    bool ok = true;
    while (ok) {
        if (KOVABDbCursorGet(db->pGRPGID, 1, &key, &key_len, reinterpret_cast<void **>(&upper.data),
                             &upper.cap) != 0) {
            ok = KLIBErrGet() == ERR_BDB_END_OF_RECORDS;
            break;
        }
        if (upper.cap == 0 || upper.data[upper.cap - 1] != '\0') continue;
        if (user::get_text(db->pGRPName, upper.data, upper.cap, &line.data, &line.cap) != 0) {
            ok = false;
            break;
        }
        ok = put_line(group, line.data);
        if (ok && user::get_text(db->pGRPDesc, upper.data, upper.cap, &line.data, &line.cap) == 0) {
            ok = put_line(desc, line.data);
        } else if (ok && KLIBErrGet() != ERR_KEY_NOT_FOUND) {
            ok = false;
        }
    }
    free(key);
    return ok;
}

}  // namespace
}  // namespace kova::group

int KOVAGroupDBDump(PKOVAGROUPDB pGroupDb) {
    using namespace kova::group;
    if (pGroupDb == nullptr) return kova::fail(ERR_BAD_PARAMETERS);
    const kova::RootedPath group_path(kGroup), group_tmp(kGroupTmp);
    const kova::RootedPath desc_path(kGroupDesc), desc_tmp(kGroupDescTmp);
    kova::Rewrite group(group_path.c_str(), {}, group_tmp.c_str());
    kova::Rewrite desc(desc_path.c_str(), {}, desc_tmp.c_str());
    if (group.open() != kova::Rewrite::Opened::kOk || desc.open() != kova::Rewrite::Opened::kOk ||
        !group.start() || !desc.start() || !write_marker(pGroupDb, group) ||
        !write_groups(pGroupDb, group, desc)) {
        if (KLIBErrGet() == 0) kova::fail(ERR_OPEN_FAILED);
        return -1;  // the temporary files go with the rewrites
    }
    if (!kova::Rewrite::commit_all({&group, &desc})) {
        recover_text_files();  // a rename refused after the first: the second goes in as well
        return -1;
    }
    return 0;
}
