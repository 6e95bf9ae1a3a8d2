#include <strings.h>

#include <cstring>

#include "user/user_internal.h"

int KOVAUserPrivilegeGet(const char *szName) {
    using namespace kova::user;
    if (szName == nullptr) return kova::fail(ERR_BAD_PARAMETERS);
    if (strcasecmp(szName, kAdmin) == 0) return KOVA_USER_PRIV_ADMIN;
    if (strchr(szName, '\\') != nullptr) return KOVA_USER_PRIV_DOMAIN;
    if (strcasecmp(szName, kGuest) == 0) return KOVA_USER_PRIV_GUEST;
    PKOVAUSER user = nullptr;
    if (KOVAUserGet(szName, &user) != 0) return KOVA_USER_PRIV_GUEST;
    const int privilege = user->privilege;
    KOVAUserFree(user);
    return privilege;
}
