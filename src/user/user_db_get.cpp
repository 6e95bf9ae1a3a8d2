// One user from the cache: passwd line, and for a local user its shadow and misc lines.
#include <strings.h>

#include <cstdlib>
#include <cstring>

#include "core/alloc.h"
#include "core/owners.h"
#include "user/user_internal.h"

namespace kova::user {
namespace {

// A scratch record for unpacking line.
UniqueMalloc<KOVAUSER> scratch_for(const char *line, int32_t *size) {
    *size = static_cast<int32_t>(sizeof(KOVAUSER) + 2 * (strlen(line) + 1) + 1);
    UniqueMalloc<KOVAUSER> user(static_cast<PKOVAUSER>(xmalloc(static_cast<size_t>(*size))));
    if (!user) fail(ERR_OUT_OF_MEMORY);
    return user;
}

struct Misc {
    int32_t privilege = 0;
    const char *mail = nullptr;
};

// "name:privilege:mail"; absent: privilege 0 and no mail.
int read_misc(PKOVAUSERDB db, const char *upper, int32_t upper_len, Text &text, Misc *misc) {
    if (get_text(db->pPWDMisc, upper, upper_len, &text.data, &text.cap) != 0) {
        return KLIBErrGet() == ERR_KEY_NOT_FOUND ? 0 : -1;
    }
    char *field[3];
    const int n = split_fields(text.data, field, 3);
    if (n < 2) return fail(ERR_FORMAT_ERROR);
    misc->privilege = atoi(field[1]);
    if (n >= 3) misc->mail = field[2];  // the rest of the line
    return 0;
}

}  // namespace
}  // namespace kova::user

int KOVAUserDBGet(PKOVAUSERDB pUserDb, const char *szUpperName, PKOVAUSER *ppUser) {
    using namespace kova::user;
    if (pUserDb == nullptr || szUpperName == nullptr || ppUser == nullptr) {
        return kova::fail(ERR_BAD_PARAMETERS);
    }
    const auto key_len = static_cast<int32_t>(strlen(szUpperName) + 1);
    Text passwd_line;
    if (get_text(pUserDb->pPWDName, szUpperName, key_len, &passwd_line.data, &passwd_line.cap) !=
        0) {
        return KLIBErrGet() == ERR_KEY_NOT_FOUND ? kova::fail(ERR_NO_SUCH_USER) : -1;
    }
    int32_t size = 0;
    auto passwd = scratch_for(passwd_line.data, &size);
    if (!passwd || KOVAUserDBPasswdUnpack(passwd_line.data, passwd.get(), size) != 0) return -1;

    const char *password = nullptr;
    int32_t expire = -1;
    Misc misc;
    Text shadow_line;
    Text misc_line;
    kova::UniqueMalloc<KOVAUSER> shadow;
    if (passwd->type == KOVA_USER_TYPE_LOCAL) {
        if (get_text(pUserDb->pPWDShadow, szUpperName, key_len, &shadow_line.data,
                     &shadow_line.cap) != 0) {
            return -1;
        }
        shadow = scratch_for(shadow_line.data, &size);
        if (!shadow || KOVAUserDBShadowUnpack(shadow_line.data, shadow.get(), size) != 0) {
            return -1;
        }
        password = shadow->szPassword;
        expire = shadow->expireDay;
        if (strcasecmp(passwd->szName, kAdmin) != 0 &&
            read_misc(pUserDb, szUpperName, key_len, misc_line, &misc) != 0) {
            return -1;
        }
    }
    int32_t privilege = misc.privilege;
    if (strcasecmp(passwd->szName, kAdmin) == 0) {
        privilege = KOVA_USER_PRIV_ADMIN;
    } else if (passwd->type == KOVA_USER_TYPE_DOMAIN) {
        privilege = KOVA_USER_PRIV_DOMAIN;
    } else if (strcasecmp(passwd->szName, kGuest) == 0) {
        privilege = KOVA_USER_PRIV_GUEST;
    }
    return KOVAUserAlloc(ppUser, passwd->szName, password, passwd->uid, passwd->gid,
                         passwd->szDescription, passwd->szHomeDir, passwd->szShell, expire,
                         misc.mail, privilege);
}
