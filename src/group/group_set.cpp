// Creating, renaming, changing and deleting groups, and their descriptions.
#include <cstring>

#include "core/alloc.h"
#include "core/owners.h"
#include "group/group_internal.h"

namespace kova::group {
namespace {

// The upper-cased form of a group name given in any case; -1 when it cannot be keyed.
int upper_of(const char *name, char (&upper)[kKeySize]) {
    return name != nullptr ? user::upper_key(name, upper) : -1;
}

// The gid of an existing group, or -1 (ERR_NO_SUCH_GROUP).
long gid_of(PKOVAGROUPDB db, const char *upper) {
    Text line;
    if (user::get_text(db->pGRPName, upper, static_cast<int32_t>(strlen(upper) + 1), &line.data,
                       &line.cap) != 0) {
        return KLIBErrGet() == ERR_KEY_NOT_FOUND ? fail(ERR_NO_SUCH_GROUP) : -1;
    }
    Fields fields{};
    if (!split_line(line.data, &fields)) return fail(ERR_FORMAT_ERROR);
    return static_cast<long>(strtoul(fields.gid, nullptr, 10));
}

int create(PKOVAGROUPDB db, PKOVAGROUP group, const char *upper) {
    const int exists = KOVAGroupDBCheckExists(db, upper);
    if (exists != 0) {
        return exists < 0
                   ? -1
                   : fail(ERR_GROUP_EXISTS, Site(), "%s:%d Group [%s] is EXIST.", group->szName);
    }
    const int gid = KOVAGroupDBGetFreeGid(db);
    if (gid < 0) return -1;
    group->gid = static_cast<uint32_t>(gid);
    if (KOVAGroupDBSet(db, nullptr, group) != 0) return -1;
    return user::current_id_set(group_ids(db), group->gid);
}

int change(PKOVAGROUPDB db, const char *old_name, PKOVAGROUP group, const char *upper) {
    char old_upper[kKeySize];
    if (upper_of(old_name, old_upper) < 0) return fail(ERR_NO_SUCH_GROUP);
    const long gid = gid_of(db, old_upper);
    if (gid < 0) return -1;
    if (strcmp(old_upper, upper) != 0) {
        const int exists = KOVAGroupDBCheckExists(db, upper);
        if (exists != 0) {
            return exists < 0 ? -1
                              : fail(ERR_GROUP_EXISTS, Site(), "%s:%d Group [%s] is EXIST.",
                                     group->szName);
        }
    }
    group->gid = static_cast<uint32_t>(gid);  // a group keeps its id
    return KOVAGroupDBSet(db, old_upper, group);
}

// The description line of an existing group into the cache.
int store_desc(PKOVAGROUPDB db, const char *upper, int len, const char *desc_text) {
    Text line;
    if (user::get_text(db->pGRPName, upper, len, &line.data, &line.cap) != 0) {
        return KLIBErrGet() == ERR_KEY_NOT_FOUND ? fail(ERR_NO_SUCH_GROUP) : -1;
    }
    char *colon = strchr(line.data, ':');
    if (colon != nullptr) *colon = '\0';
    const size_t size = strlen(line.data) + 1 + strlen(desc_text) + 1;
    UniqueMalloc<char> desc(static_cast<char *>(xmalloc(size)));
    if (!desc) return fail(ERR_OUT_OF_MEMORY);
    snprintf(desc.get(), size, "%s:%s", line.data, desc_text);
    return KOVABDbSet(db->pGRPDesc, upper, len, desc.get(), static_cast<int32_t>(size));
}

}  // namespace
}  // namespace kova::group

int KOVAGroupSet(const char *szOldName, PKOVAGROUP pGroup) {
    using namespace kova::group;
    if (pGroup == nullptr || pGroup->szName == nullptr) return kova::fail(ERR_BAD_PARAMETERS);
    char upper[kKeySize];
    if (BlKLIBIsGroupName(pGroup->szName) != 1 || upper_of(pGroup->szName, upper) < 0) {
        return kova::fail(ERR_INVALID_USERNAME, kova::Site(), "%s:%d Group name [%s] is BAD.",
                          pGroup->szName);
    }
    // The old name as the group file has it, for the share lists.
    char old_stored[kKeySize] = "";
    {
        Writer writer;
        if (!writer.ok()) return -1;
        if (szOldName != nullptr) {
            PKOVAGROUP old = nullptr;
            if (KOVAGroupGet(szOldName, &old) == 0) {
                snprintf(old_stored, sizeof old_stored, "%s", old->szName);
                KOVAGroupFree(old);
            }
        }
        const int result = szOldName == nullptr ? create(writer.db(), pGroup, upper)
                                                : change(writer.db(), szOldName, pGroup, upper);
        if (result != 0 || writer.finish() != 0) return -1;
    }
    if (old_stored[0] != '\0' && strcmp(old_stored, pGroup->szName) != 0) {
        rename_in_shares(old_stored, pGroup->szName);
    }
    return 0;
}

int KOVAGroupDelete(const char *szName) {
    using namespace kova::group;
    char upper[kKeySize];
    if (upper_of(szName, upper) < 0) return kova::fail(ERR_NO_SUCH_GROUP);
    char stored[kKeySize] = "";
    {
        Writer writer;
        if (!writer.ok()) return -1;
        PKOVAGROUP old = nullptr;
        if (KOVAGroupGet(szName, &old) == 0) {
            snprintf(stored, sizeof stored, "%s", old->szName);
            KOVAGroupFree(old);
        }
        if (KOVAGroupDBDelete(writer.db(), upper) != 0 || writer.finish() != 0) return -1;
    }
    rename_in_shares(stored, nullptr);
    return 0;
}

int KOVAGroupDescSet(const char *szName, const char *szDesc) {
    using namespace kova::group;
    if (szName == nullptr || szDesc == nullptr || strpbrk(szDesc, "\n\r") != nullptr) {
        return kova::fail(ERR_BAD_PARAMETERS);
    }
    char upper[kKeySize];
    const int len = upper_of(szName, upper);
    if (len < 0) return kova::fail(ERR_NO_SUCH_GROUP);
    Writer writer;
    if (!writer.ok() || store_desc(writer.db(), upper, len, szDesc) != 0) return -1;
    return writer.finish();
}

int kova::group::set_many(const char *const *old_names, PKOVAGROUP const *groups,
                          const char *const *descs, int count) {
    char upper[kKeySize];
    for (int i = 0; i < count; ++i) {
        if (groups[i] == nullptr || groups[i]->szName == nullptr ||
            BlKLIBIsGroupName(groups[i]->szName) != 1 || upper_of(groups[i]->szName, upper) < 0 ||
            (descs[i] != nullptr && strpbrk(descs[i], "\n\r") != nullptr)) {
            return fail(ERR_BAD_PARAMETERS);
        }
    }
    Writer writer;
    if (!writer.ok()) return -1;
    for (int i = 0; i < count; ++i) {
        const int len = upper_of(groups[i]->szName, upper);
        const int result = old_names[i] == nullptr
                               ? create(writer.db(), groups[i], upper)
                               : change(writer.db(), old_names[i], groups[i], upper);
        if (result != 0) return -1;
        if (descs[i] != nullptr && store_desc(writer.db(), upper, len, descs[i]) != 0) return -1;
    }
    return writer.finish();
}
