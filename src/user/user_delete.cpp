// Removing a user.
#include <cstring>

#include "kovasdk/proc.h"
#include "user/user_internal.h"

int KOVAUserDelete(const char *szName) {
    using namespace kova::user;
    if (szName == nullptr) return kova::fail(ERR_BAD_PARAMETERS);
    char upper[kKeySize];
    const int len = upper_key(szName, upper);
    if (len < 0) return kova::fail(ERR_NO_SUCH_USER);
    PKOVAUSER user = nullptr;
    int result = -1;
    {
        Writer writer;
        if (!writer.ok()) return -1;
        // Quotas: the user's quota records belong to the volume code, which has none yet.
        if (KOVAUserDBGet(writer.db(), upper, &user) != 0 ||
            kova::user::delete_user(writer.db(), upper, len, user->uid) != 0) {
            KOVAUserFree(user);
            return -1;
        }
        // The download scheduler is told of account changes by its own daemon's poll.
        KOVADelConnOfSmb(user->szName);  // the user's open file-sharing sessions end
        result = writer.finish();
        if (result == 0) after_delete(*user);
    }
    KOVAUserFree(user);
    return result;
}
