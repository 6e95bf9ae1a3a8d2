// The group line: unpacked into a record (the "nobody" framing dropped), packed from one (the
// members kept to existing users, the framing added above 65535).
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "core/alloc.h"
#include "group/group_internal.h"
#include "kovasdk/kstring.h"

namespace {

// The member field without the framing of a group above 65535: "nobody,a,b,nobody" gives
// "a,b" and "nobody,nobody" gives "" (start and length into members).
void unframe(uint32_t gid, const char *members, size_t *start, size_t *len) {
    *start = 0;
    *len = strlen(members);
    if (gid <= kova::group::kFramedAbove) return;
    constexpr char kHead[] = "nobody,";
    constexpr size_t kHeadLen = sizeof kHead - 1;
    if (strcmp(members, "nobody,nobody") == 0) {
        *len = 0;
    } else if (*len >= 2 * kHeadLen && strncmp(members, kHead, kHeadLen) == 0 &&
               strcmp(members + *len - kHeadLen, ",nobody") == 0) {
        *start = kHeadLen;
        *len -= 2 * kHeadLen;
    }
}

}  // namespace

int KOVAGroupDBUnpack(const char *szLine, PKOVAGROUP *ppGroup) {
    if (szLine == nullptr || ppGroup == nullptr) return kova::fail(ERR_BAD_PARAMETERS);
    const size_t size = strlen(szLine) + 1;
    kova::UniqueMalloc<char> copy(static_cast<char *>(kova::xmalloc(size)));
    if (!copy) return kova::fail(ERR_OUT_OF_MEMORY);
    memcpy(copy.get(), szLine, size);
    kova::group::Fields fields{};
    if (!kova::group::split_line(copy.get(), &fields)) return kova::fail(ERR_FORMAT_ERROR);
    if (fields.name[0] == '\0') return kova::fail(ERR_INVALID_USERNAME);
    const auto gid = static_cast<uint32_t>(strtoul(fields.gid, nullptr, 10));
    size_t start = 0, len = 0;
    unframe(gid, fields.members, &start, &len);
    fields.members[start + len] = '\0';
    return KOVAGroupAlloc(ppGroup, fields.name, gid, fields.members + start);
}

int KOVAGroupDBPackFromUnix(PKOVAUSERDB pUserDb, const KOVAGROUP *pGroup, char *szBuf,
                            int32_t cbBuf) {
    if (pGroup == nullptr || szBuf == nullptr || cbBuf <= 0) return kova::fail(ERR_BAD_PARAMETERS);
    if (pGroup->szName == nullptr || pGroup->szName[0] == '\0') {
        return kova::fail(ERR_INVALID_USERNAME);
    }
    const char *members = pGroup->szMembers != nullptr ? pGroup->szMembers : "";
    kova::UniqueMalloc<char> kept;
    if (pUserDb != nullptr) {
        PKLIBSZLIST valid = PslKLIBSzListAlloc(0);
        if (valid == nullptr) return -1;
        const int n = KOVAUserGetValidUserList(pUserDb, members, &valid);
        char *joined = nullptr;
        int joined_size = 0;
        const bool ok =
            n >= 0 && (valid->nItem == 0 ||
                       KOVAStrJoin(valid->pszItem, valid->nItem, ",", &joined, &joined_size) == 0);
        KLIBSzListFree(valid);
        kept.reset(joined);
        if (!ok) return -1;
        members = joined != nullptr ? joined : "";
    }
    const char *password = "x";
    const bool framed = pGroup->gid > kova::group::kFramedAbove;
    int len = 0;
    if (framed && members[0] != '\0') {
        len = snprintf(szBuf, static_cast<size_t>(cbBuf), "%s:%s:%d:nobody,%s,nobody",
                       pGroup->szName, password, static_cast<int>(pGroup->gid), members);
    } else if (framed) {
        len = snprintf(szBuf, static_cast<size_t>(cbBuf), "%s:%s:%d:nobody,nobody", pGroup->szName,
                       password, static_cast<int>(pGroup->gid));
    } else {
        len = snprintf(szBuf, static_cast<size_t>(cbBuf), "%s:%s:%d:%s", pGroup->szName, password,
                       static_cast<int>(pGroup->gid), members);
    }
    if (len < 0 || len >= cbBuf) {
        szBuf[0] = '\0';
        return kova::fail(ERR_NOT_ENOUGH_MEMORY);
    }
    return len + 1;
}
