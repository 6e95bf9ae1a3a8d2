// Account expiry: from the end of the expiry day, local time.
#include <ctime>

#include "user/user_internal.h"

int KOVAUserIsExpired(int32_t expireDay) {
    tzset();
    const long long end = static_cast<long long>(expireDay) * 86400 + timezone + 86400;
    return static_cast<long long>(time(nullptr)) >= end ? 1 : 0;
}

int KOVAUserCheckExpired(const char *szName) {
    PKOVAUSER user = nullptr;
    if (KOVAUserGet(szName, &user) != 0) return -1;
    const int32_t day = user->expireDay;
    KOVAUserFree(user);
    return day <= 0 ? 0 : KOVAUserIsExpired(day);
}
