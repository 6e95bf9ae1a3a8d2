// The group record: one block, the header followed by its strings.
#include <cstdint>
#include <cstdlib>
#include <cstring>

#include "core/alloc.h"
#include "group/group_internal.h"

namespace {

bool points_into(const void *block, size_t size, const char *text) {
    const auto begin = reinterpret_cast<uintptr_t>(block);
    const auto at = reinterpret_cast<uintptr_t>(text);
    return block != nullptr && text != nullptr && at >= begin && at < begin + size;
}

// The record with members already joined (the list form joins them first).
int alloc(PKOVAGROUP *ppGroup, const char *name, uint32_t gid, const char *members,
          size_t members_len) {
    if (ppGroup == nullptr || name == nullptr || name[0] == '\0') {
        return kova::fail(ERR_BAD_PARAMETERS);
    }
    PKOVAGROUP old = *ppGroup;
    const size_t old_size = old != nullptr ? static_cast<size_t>(old->cbAlloc) : 0;
    if (points_into(old, old_size, name) || points_into(old, old_size, members)) {
        return kova::fail(ERR_BAD_PARAMETERS);
    }
    constexpr char kPassword[] = "x";
    const size_t name_len = strlen(name);
    const size_t need = sizeof(KOVAGROUP) + name_len + 1 + sizeof kPassword + members_len + 1;
    if (need > INT32_MAX) return kova::fail(ERR_BAD_PARAMETERS);
    void *block = old;
    int32_t capacity = old != nullptr ? old->cbAlloc : 0;
    if (KOVACheckAndRealloc(&block, &capacity, static_cast<int32_t>(need)) != 0) {
        *ppGroup = nullptr;  // the old block is gone with the failed growth
        return -1;
    }
    auto *group = static_cast<PKOVAGROUP>(block);
    char *cursor = reinterpret_cast<char *>(group + 1);
    group->szName = cursor;
    memcpy(cursor, name, name_len + 1);
    cursor += name_len + 1;
    group->szPassword = cursor;
    memcpy(cursor, kPassword, sizeof kPassword);
    cursor += sizeof kPassword;
    group->szMembers = cursor;
    if (members_len > 0) memcpy(cursor, members, members_len);
    cursor[members_len] = '\0';
    group->gid = gid;
    group->cbAlloc = capacity;
    *ppGroup = group;
    return 0;
}

}  // namespace

int KOVAGroupAlloc(PKOVAGROUP *ppGroup, const char *szName, uint32_t gid, const char *szMembers) {
    return alloc(ppGroup, szName, gid, szMembers, szMembers != nullptr ? strlen(szMembers) : 0);
}

int KOVAGroupAlloc2(PKOVAGROUP *ppGroup, const char *szName, uint32_t gid,
                    const KLIBSZLIST *pMembers) {
    if (pMembers == nullptr) return alloc(ppGroup, szName, gid, nullptr, 0);
    size_t len = 0;
    for (int i = 0; i < pMembers->nItem; ++i)
        len += strlen(pMembers->pszItem[i]) + 1;
    kova::UniqueMalloc<char> joined(static_cast<char *>(kova::xmalloc(len + 1)));
    if (!joined) return kova::fail(ERR_OUT_OF_MEMORY);
    char *at = joined.get();
    for (int i = 0; i < pMembers->nItem; ++i) {
        if (i > 0) *at++ = ',';
        const size_t n = strlen(pMembers->pszItem[i]);
        memcpy(at, pMembers->pszItem[i], n);
        at += n;
    }
    return alloc(ppGroup, szName, gid, joined.get(), static_cast<size_t>(at - joined.get()));
}

void KOVAGroupFree(PKOVAGROUP pGroup) {
    free(pGroup);
}
