// The group cache's records: walking, testing, writing and removing groups, the free id.
#include <cstring>

#include "core/alloc.h"
#include "core/owners.h"
#include "group/group_internal.h"

namespace kova::group {
namespace {

// The upper-cased name's group line: 0, or -1 (ERR_NO_SUCH_GROUP when absent).
int line_of(PKOVAGROUPDB db, const char *upper, Text &line) {
    if (user::get_text(db->pGRPName, upper, static_cast<int32_t>(strlen(upper) + 1), &line.data,
                       &line.cap) == 0) {
        return 0;
    }
    return KLIBErrGet() == ERR_KEY_NOT_FOUND ? fail(ERR_NO_SUCH_GROUP) : -1;
}

}  // namespace
}  // namespace kova::group

int KOVAGroupDBGetByCursor(PKOVAGROUPDB pGroupDb, int32_t cursorType, PKOVAGROUP *ppGroup) {
    if (pGroupDb == nullptr || ppGroup == nullptr) return kova::fail(ERR_BAD_PARAMETERS);
    if (KOVABDbCursorSetType(pGroupDb->pGRPName, cursorType) != 0) return -1;
    void *key = nullptr, *line = nullptr;
    int32_t key_len = 0, line_len = 0;
    int result = KOVABDbCursorGet(pGroupDb->pGRPName, 1, &key, &key_len, &line, &line_len);
    if (result == 0) {
        result = line_len > 0 && static_cast<char *>(line)[line_len - 1] == '\0'
                     ? KOVAGroupDBUnpack(static_cast<char *>(line), ppGroup)
                     : kova::fail(ERR_FORMAT_ERROR);
    }
    free(key);
    free(line);
    return result;
}

int KOVAGroupDBCheckExists(PKOVAGROUPDB pGroupDb, const char *szUpperName) {
    using namespace kova::group;
    if (pGroupDb == nullptr || szUpperName == nullptr) return kova::fail(ERR_BAD_PARAMETERS);
    Text line;
    if (line_of(pGroupDb, szUpperName, line) == 0) return 1;
    return KLIBErrGet() == ERR_NO_SUCH_GROUP ? 0 : -1;
}

int KOVAGroupDBDelete(PKOVAGROUPDB pGroupDb, const char *szUpperName) {
    using namespace kova::group;
    if (pGroupDb == nullptr || szUpperName == nullptr) return kova::fail(ERR_BAD_PARAMETERS);
    Text line;
    if (line_of(pGroupDb, szUpperName, line) != 0) return -1;
    Fields fields{};
    const auto len = static_cast<int32_t>(strlen(szUpperName) + 1);
    char id[16];
    if (split_line(line.data, &fields)) {
        gid_key(static_cast<uint32_t>(strtoul(fields.gid, nullptr, 10)), id);
        if (user::delete_if_there(pGroupDb->pGRPGID, id, kGidKeyLen) != 0) return -1;
    }
    if (user::delete_if_there(pGroupDb->pGRPName, szUpperName, len) != 0 ||
        user::delete_if_there(pGroupDb->pGRPDesc, szUpperName, len) != 0) {
        return -1;
    }
    return 0;
}

int KOVAGroupDBSet(PKOVAGROUPDB pGroupDb, const char *szOldUpperName, PKOVAGROUP pGroup) {
    using namespace kova::group;
    if (pGroupDb == nullptr || pGroup == nullptr || pGroup->szName == nullptr) {
        return kova::fail(ERR_BAD_PARAMETERS);
    }
    if (strchr(pGroup->szName, '\\') != nullptr) {
        return kova::fail(ERR_INVALID_USERNAME, kova::Site(),
                          "%s:%d Cannot set not-local group. group name=[%s]", pGroup->szName);
    }
    char upper[kKeySize];
    const int upper_len =
        BlKLIBIsGroupName(pGroup->szName) == 1 ? kova::user::upper_key(pGroup->szName, upper) : -1;
    if (upper_len < 0) return kova::fail(ERR_INVALID_USERNAME);
    // The description follows a renamed group.
    Text desc;
    if (szOldUpperName != nullptr) {
        const auto old_len = static_cast<int32_t>(strlen(szOldUpperName) + 1);
        if (kova::user::get_text(pGroupDb->pGRPDesc, szOldUpperName, old_len, &desc.data,
                                 &desc.cap) != 0 &&
            KLIBErrGet() != ERR_KEY_NOT_FOUND) {
            return -1;
        }
        if (KOVAGroupDBDelete(pGroupDb, szOldUpperName) != 0) return -1;
    }
    kova::UniqueMalloc<char> line(static_cast<char *>(kova::xmalloc(kLineSize)));
    if (!line) return kova::fail(ERR_OUT_OF_MEMORY);
    const int packed = kova::user::kept().read([&](void *users) {
        return KOVAGroupDBPackFromUnix(static_cast<PKOVAUSERDB>(users), pGroup, line.get(),
                                       kLineSize);
    });
    if (packed < 0) return -1;
    if (KOVABDbSet(pGroupDb->pGRPName, upper, upper_len, line.get(), packed) != 0) {
        return kova::fail(KLIBErrGet(), kova::Site(),
                          "%s:%d KOVABDbSet pGRPName failed, str=%s. kovaerr=0x%04X", line.get(),
                          KLIBErrGet());
    }
    char id[16];
    gid_key(pGroup->gid, id);
    if (KOVABDbSet(pGroupDb->pGRPGID, id, kGidKeyLen, upper, upper_len) != 0) {
        return kova::fail(KLIBErrGet(), kova::Site(),
                          "%s:%d KOVABDbSet pGRPGID failed. kovaerr=0x%04X", KLIBErrGet());
    }
    if (desc.data != nullptr) {
        const char *colon = strchr(desc.data, ':');
        const char *text = colon != nullptr ? colon + 1 : "";
        const size_t size = strlen(pGroup->szName) + 1 + strlen(text) + 1;
        kova::UniqueMalloc<char> moved(static_cast<char *>(kova::xmalloc(size)));
        if (!moved) return kova::fail(ERR_OUT_OF_MEMORY);
        snprintf(moved.get(), size, "%s:%s", pGroup->szName, text);
        if (KOVABDbSet(pGroupDb->pGRPDesc, upper, upper_len, moved.get(),
                       static_cast<int32_t>(size)) != 0) {
            return -1;
        }
    }
    return 0;
}

int KOVAGroupDBGetFreeGid(PKOVAGROUPDB pGroupDb) {
    if (pGroupDb == nullptr) return kova::fail(ERR_BAD_PARAMETERS);
    return static_cast<int>(kova::user::free_id(kova::group::group_ids(pGroupDb)));
}
