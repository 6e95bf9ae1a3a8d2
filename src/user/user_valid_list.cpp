// A list of names kept to the users that exist.
#include <cstring>

#include "core/owners.h"
#include "kovasdk/kstring.h"
#include "user/user_internal.h"

namespace kova::user {
namespace {

// The user's name as the passwd line has it, into name (kKeySize bytes): true when the user
// exists, false when not or on failure (then -1 is left in *failed).
bool stored_name(PKOVAUSERDB db, const char *given, char (&name)[kKeySize], bool *failed) {
    char upper[kKeySize];
    const int len = upper_key(given, upper);
    if (len < 0) return false;  // a name that cannot be keyed names nobody
    Text line;
    if (get_text(db->pPWDName, upper, len, &line.data, &line.cap) != 0) {
        *failed = KLIBErrGet() != ERR_KEY_NOT_FOUND;
        return false;
    }
    const char *colon = strchr(line.data, ':');
    const size_t n = colon != nullptr ? static_cast<size_t>(colon - line.data) : strlen(line.data);
    if (n >= sizeof name) return false;
    memcpy(name, line.data, n);
    name[n] = '\0';
    return true;
}

}  // namespace
}  // namespace kova::user

int KOVAUserGetValidUserList(PKOVAUSERDB pUserDb, const char *szUsers, PKLIBSZLIST *ppList) {
    using namespace kova::user;
    if (pUserDb == nullptr || szUsers == nullptr || ppList == nullptr || *ppList == nullptr) {
        return kova::fail(ERR_BAD_PARAMETERS);
    }
    PKLIBSZLIST given = nullptr;
    if (KLIBStrSep(szUsers, ",", &given) < 0) return -1;
    int count = 0;
    bool failed = false;
    for (int i = 0; i < given->nItem && !failed; ++i) {
        const char *item = SzKLIBSzListGet(given, i);
        if (item[0] == '\0' || strcmp(item, "nobody") == 0) continue;
        char name[kKeySize];
        if (!stored_name(pUserDb, item, name, &failed)) continue;
        if (KLIBSzListCaseFind(*ppList, name) >= 0) continue;
        if (KLIBSzListPush(ppList, name) < 0) {
            failed = true;
            break;
        }
        ++count;
    }
    KLIBSzListFree(given);
    return failed ? -1 : count;
}
