// Reading groups: one by name or id, their names, their number, members and descriptions.
#include <cstring>

#include "group/group_internal.h"
#include "kovasdk/kstring.h"

namespace kova::group {
namespace {

PKOVAGROUPDB as_db(void *handle) {
    return static_cast<PKOVAGROUPDB>(handle);
}

// The group under a name given in any case into *group: 0, or -1 (ERR_NO_SUCH_GROUP).
int get(PKOVAGROUPDB db, const char *name, PKOVAGROUP *group) {
    char upper[kKeySize];
    const int len = user::upper_key(name, upper);
    if (len < 0) return fail(ERR_NO_SUCH_GROUP);
    Text line;
    if (user::get_text(db->pGRPName, upper, len, &line.data, &line.cap) != 0) {
        return KLIBErrGet() == ERR_KEY_NOT_FOUND ? fail(ERR_NO_SUCH_GROUP) : -1;
    }
    return KOVAGroupDBUnpack(line.data, group);
}

// Every group name in key order, as the group lines have them: visit(name) false stops (-1).
template <class Visit>
int each_group(PKOVAGROUPDB db, Visit &&visit) {
    if (KOVABDbCursorSetType(db->pGRPName, KOVA_BDB_CURSOR_FIRST) != 0) return -1;
    void *key = nullptr, *line = nullptr;
    int32_t key_len = 0, line_len = 0;
    int result = 0;
    while (KOVABDbCursorGet(db->pGRPName, 1, &key, &key_len, &line, &line_len) == 0) {
        auto *text = static_cast<char *>(line);
        if (line_len == 0 || text[line_len - 1] != '\0') continue;
        char *colon = strchr(text, ':');
        if (colon != nullptr) *colon = '\0';
        if (!visit(static_cast<const char *>(text))) {
            result = -1;
            break;
        }
    }
    if (result == 0 && KLIBErrGet() != ERR_BDB_END_OF_RECORDS) result = -1;
    free(key);
    free(line);
    return result;
}

int enumerate(PKLIBSZLIST *list, const char *prefix) {
    if (list == nullptr || *list == nullptr) return fail(ERR_BAD_PARAMETERS);
    user::NamePusher push(list, prefix);
    if (!push.ok()) return -1;
    const int walked = kept().read([&](void *db) { return each_group(as_db(db), push); });
    return walked != 0 ? -1 : push.count();
}

}  // namespace
}  // namespace kova::group

using kova::group::as_db;
using kova::group::kept;

int KOVAGroupGet(const char *szName, PKOVAGROUP *ppGroup) {
    if (szName == nullptr || ppGroup == nullptr) return kova::fail(ERR_BAD_PARAMETERS);
    return kept().read([&](void *db) { return kova::group::get(as_db(db), szName, ppGroup); });
}

int KOVAGroupGetByGID(uint32_t gid, PKOVAGROUP *ppGroup) {
    using namespace kova::group;
    if (ppGroup == nullptr) return kova::fail(ERR_BAD_PARAMETERS);
    char id[16];
    gid_key(gid, id);
    return kept().read([&](void *handle) {
        PKOVAGROUPDB db = as_db(handle);
        Text upper, line;
        if (user::get_text(db->pGRPGID, id, kGidKeyLen, &upper.data, &upper.cap) != 0 ||
            user::get_text(db->pGRPName, upper.data, upper.cap, &line.data, &line.cap) != 0) {
            return KLIBErrGet() == ERR_KEY_NOT_FOUND ? kova::fail(ERR_NO_SUCH_GROUP) : -1;
        }
        return KOVAGroupDBUnpack(line.data, ppGroup);
    });
}

int KOVAGroupEnum(PKLIBSZLIST *ppList) {
    return kova::group::enumerate(ppList, nullptr);
}

int KOVAGroupEnumByPrefix(PKLIBSZLIST *ppList, const char *szPrefix) {
    if (szPrefix == nullptr) return kova::fail(ERR_BAD_PARAMETERS);
    return kova::group::enumerate(ppList, szPrefix);
}

int KOVAGroupTotalNum(void) {
    int count = 0;
    const int walked = kept().read([&](void *db) {
        return kova::group::each_group(as_db(db), [&](const char *) { return ++count > 0; });
    });
    return walked != 0 ? -1 : count;
}

int KOVAGroupListMember(const char *szName, PKLIBSZLIST *ppList) {
    if (szName == nullptr || ppList == nullptr || *ppList == nullptr) {
        return kova::fail(ERR_BAD_PARAMETERS);
    }
    PKOVAGROUP group = nullptr;
    if (KOVAGroupGet(szName, &group) != 0) return -1;
    const int pushed = group->szMembers[0] == '\0' ? 0 : KLIBStrTok(group->szMembers, ",", ppList);
    KOVAGroupFree(group);
    return pushed;
}

int KOVAGroupDescGet(const char *szName, char *szDesc, int cbDesc) {
    using namespace kova::group;
    if (szName == nullptr || szDesc == nullptr || cbDesc <= 0) {
        return kova::fail(ERR_BAD_PARAMETERS);
    }
    char upper[kKeySize];
    const int len = user::upper_key(szName, upper);
    if (len < 0) return kova::fail(ERR_NO_SUCH_GROUP);
    return kept().read([&](void *handle) {
        PKOVAGROUPDB db = as_db(handle);
        Text line;
        if (user::get_text(db->pGRPName, upper, len, &line.data, &line.cap) != 0) {
            return KLIBErrGet() == ERR_KEY_NOT_FOUND ? kova::fail(ERR_NO_SUCH_GROUP) : -1;
        }
        const char *text = "";
        if (user::get_text(db->pGRPDesc, upper, len, &line.data, &line.cap) == 0) {
            const char *colon = strchr(line.data, ':');
            text = colon != nullptr ? colon + 1 : "";
        } else if (KLIBErrGet() != ERR_KEY_NOT_FOUND) {
            return -1;
        }
        const size_t size = strlen(text) + 1;
        if (size > static_cast<size_t>(cbDesc)) return kova::fail(ERR_NOT_ENOUGH_MEMORY);
        memcpy(szDesc, text, size);
        return static_cast<int>(size);
    });
}
