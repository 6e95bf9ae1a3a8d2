// A record as its passwd line.
#include <cstdio>
#include <cstring>

#include "kovasdk/kstring.h"
#include "user/user_internal.h"

namespace {
const char *or_empty(const char *text) {
    return text != nullptr ? text : "";
}
}  // namespace

// The description is written as it stands in the record: callers colon-encode it first.
int KOVAUserDBPack(const KOVAUSER *pUser, char *szBuf, int32_t cbBuf) {
    if (pUser == nullptr || szBuf == nullptr || cbBuf <= 0) return kova::fail(ERR_BAD_PARAMETERS);
    if (pUser->szName == nullptr || pUser->szName[0] == '\0') {
        return kova::fail(ERR_INVALID_USERNAME);
    }
    char ids[32];
    snprintf(ids, sizeof ids, "%d:%d", static_cast<int>(pUser->uid), static_cast<int>(pUser->gid));
    const int len = snprintf(szBuf, static_cast<size_t>(cbBuf), "%s:x:%s:%s:%s:%s", pUser->szName,
                             ids, or_empty(pUser->szDescription), or_empty(pUser->szHomeDir),
                             or_empty(pUser->szShell));
    if (len < 0 || len >= cbBuf) {
        szBuf[0] = '\0';
        return kova::fail(ERR_NOT_ENOUGH_MEMORY);
    }
    return len + 1;
}
