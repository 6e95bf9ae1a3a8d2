// Passwd and shadow lines into a record buffer of a given size.
#include <cstdlib>
#include <cstring>

#include "kovasdk/kstring.h"
#include "user/user_internal.h"

namespace {

constexpr int kPasswdFields = 7;
constexpr int kShadowFields = 9;

// Lays out the header and, behind it, a copy of the line to split and an empty string; the
// string fields all point at the empty string. The copy, or null (raised).
char *prepare(const char *line, PKOVAUSER user, int32_t size) {
    if (line == nullptr || user == nullptr || size < 0) {
        kova::fail(ERR_BAD_PARAMETERS);
        return nullptr;
    }
    const size_t len = strlen(line);
    // The line, its NUL, the empty string, and room for the decoded description (no longer).
    if (static_cast<size_t>(size) < sizeof(KOVAUSER) + 2 * (len + 1) + 1) {
        kova::fail(ERR_NOT_ENOUGH_MEMORY);
        return nullptr;
    }
    char *text = reinterpret_cast<char *>(user + 1);
    memcpy(text, line, len + 1);
    char *empty = text + len + 1;
    *empty = '\0';
    const int32_t capacity = size;
    memset(user, 0, sizeof *user);
    user->szName = user->szPassword = user->szDescription = empty;
    user->szHomeDir = user->szShell = user->szMail = empty;
    user->type = KOVA_USER_TYPE_LOCAL;
    user->cbAlloc = capacity;
    return text;
}

}  // namespace

int KOVAUserDBPasswdUnpack(const char *szLine, PKOVAUSER pUser, int32_t cbUser) {
    char *text = prepare(szLine, pUser, cbUser);
    if (text == nullptr) return -1;
    char *field[kPasswdFields];
    if (kova::user::split_fields(text, field, kPasswdFields) != kPasswdFields) {
        return kova::fail(ERR_FORMAT_ERROR);
    }
    if (field[0][0] == '\0') return kova::fail(ERR_INVALID_USERNAME);
    // The description is decoded behind the empty string (never longer than encoded).
    char *description = text + strlen(szLine) + 2;
    const int max = static_cast<int>(strlen(field[4]));
    if (KLIBStrDecodeColon(field[4], description, max) < 0) return -1;
    pUser->szName = field[0];
    pUser->uid = static_cast<uint32_t>(atoi(field[2]));
    pUser->gid = static_cast<uint32_t>(atoi(field[3]));
    pUser->szDescription = description;
    pUser->szHomeDir = field[5];
    pUser->szShell = field[6];
    pUser->type = strchr(field[0], '\\') != nullptr ? KOVA_USER_TYPE_DOMAIN : KOVA_USER_TYPE_LOCAL;
    return 0;
}

int KOVAUserDBShadowUnpack(const char *szLine, PKOVAUSER pUser, int32_t cbUser) {
    char *text = prepare(szLine, pUser, cbUser);
    if (text == nullptr) return -1;
    char *field[kShadowFields];
    if (kova::user::split_fields(text, field, kShadowFields) != kShadowFields) {
        return kova::fail(ERR_FORMAT_ERROR);
    }
    if (field[0][0] == '\0') return kova::fail(ERR_INVALID_USERNAME);
    pUser->szName = field[0];
    pUser->szPassword = field[1];
    pUser->expireDay = atoi(field[7]);
    pUser->type = strchr(field[0], '\\') != nullptr ? KOVA_USER_TYPE_DOMAIN : KOVA_USER_TYPE_LOCAL;
    return 0;
}
