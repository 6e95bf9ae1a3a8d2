// The user record: one block, the header followed by its strings.
#include <cstdint>
#include <cstdlib>
#include <cstring>

#include "user/user_internal.h"

namespace {

bool points_into(const void *block, size_t size, const char *text) {
    const auto begin = reinterpret_cast<uintptr_t>(block);
    const auto at = reinterpret_cast<uintptr_t>(text);
    return block != nullptr && text != nullptr && at >= begin && at < begin + size;
}

size_t text_size(const char *text) {
    return text != nullptr ? strlen(text) + 1 : 0;
}

// Copies text to *cursor and returns where it now stands; NULL stands for the empty string.
char *place(char **cursor, const char *text, char *empty) {
    if (text == nullptr) return empty;
    const size_t size = strlen(text) + 1;
    char *at = *cursor;
    memcpy(at, text, size);
    *cursor += size;
    return at;
}

}  // namespace

int KOVAUserAlloc(PKOVAUSER *ppUser, const char *szName, const char *szPassword, uint32_t uid,
                  uint32_t gid, const char *szDescription, const char *szHomeDir,
                  const char *szShell, int32_t expireDay, const char *szMail, int32_t privilege) {
    if (ppUser == nullptr || szName == nullptr || szName[0] == '\0') {
        return kova::fail(ERR_BAD_PARAMETERS);
    }
    PKOVAUSER old = *ppUser;
    const size_t old_size = old != nullptr ? static_cast<size_t>(old->cbAlloc) : 0;
    for (const char *text : {szName, szPassword, szDescription, szHomeDir, szShell, szMail}) {
        if (points_into(old, old_size, text)) return kova::fail(ERR_BAD_PARAMETERS);
    }
    const size_t need = sizeof(KOVAUSER) + text_size(szName) + text_size(szPassword) +
                        text_size(szDescription) + text_size(szHomeDir) + text_size(szShell) +
                        text_size(szMail) + 1;
    if (need > INT32_MAX) return kova::fail(ERR_BAD_PARAMETERS);
    void *block = old;
    int32_t capacity = old != nullptr ? old->cbAlloc : 0;
    if (KOVACheckAndRealloc(&block, &capacity, static_cast<int32_t>(need)) != 0) {
        *ppUser = nullptr;  // the old block is gone with the failed growth
        return -1;
    }
    auto *user = static_cast<PKOVAUSER>(block);
    char *cursor = reinterpret_cast<char *>(user + 1);
    char *empty = reinterpret_cast<char *>(user) + need - 1;
    *empty = '\0';
    user->szName = place(&cursor, szName, empty);
    user->szPassword = place(&cursor, szPassword, empty);
    user->uid = uid;
    user->gid = gid;
    user->szDescription = place(&cursor, szDescription, empty);
    user->szHomeDir = place(&cursor, szHomeDir, empty);
    user->szShell = place(&cursor, szShell, empty);
    user->expireDay = expireDay;
    user->szMail = place(&cursor, szMail, empty);
    user->type = strchr(szName, '\\') != nullptr ? KOVA_USER_TYPE_DOMAIN : KOVA_USER_TYPE_LOCAL;
    user->privilege = privilege;
    user->cbAlloc = capacity;
    *ppUser = user;
    return 0;
}

void KOVAUserFree(PKOVAUSER pUser) {
    free(pUser);
}
