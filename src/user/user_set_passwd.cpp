// A new password: the shadow hash and both file-sharing hashes change, nothing else.
#include <cstdio>
#include <cstring>
#include <ctime>

#include "core/alloc.h"
#include "core/owners.h"
#include "user/user_internal.h"

namespace kova::user {
namespace {

constexpr int kSmbFields = 7;
constexpr int kShadowFields = 9;

int set_line(PKOVABDB store, const char *upper, int32_t len, const char *line) {
    return KOVABDbSet(store, upper, len, line, static_cast<int32_t>(strlen(line) + 1));
}

int change_password(PKOVAUSERDB db, const char *upper, int32_t len, const char *clear) {
    PKOVAUSER user = nullptr;
    if (KOVAUserDBGet(db, upper, &user) != 0) return -1;
    const UniqueMalloc<KOVAUSER> owner(user);
    if (user->type != KOVA_USER_TYPE_LOCAL) return fail(ERR_INVALID_USERNAME);

    char hash[256];
    char lm[33];
    char nt[33];
    if (!crypt_md5(clear, user->szPassword, hash, sizeof hash) || !smb_hashes(clear, lm, nt)) {
        return -1;
    }
    char uid[16];
    snprintf(uid, sizeof uid, "%d", static_cast<int>(user->uid));
    char lct[16];
    snprintf(lct, sizeof lct, "LCT-%08X", static_cast<unsigned>(time(nullptr)));
    char day[24];
    snprintf(day, sizeof day, "%ld", today());

    // The old lines give what stays: the smbpasswd flags, the shadow expiry.
    Text smb_text;
    char *smb[kSmbFields] = {};
    const char *flags = "[U          ]";
    if (get_text(db->pPWDSmb, upper, len, &smb_text.data, &smb_text.cap) == 0 &&
        split_fields(smb_text.data, smb, kSmbFields) == kSmbFields) {
        flags = smb[4];
    }
    Text shadow_text;
    char *shadow[kShadowFields] = {};
    const char *expire = "";
    if (get_text(db->pPWDShadow, upper, len, &shadow_text.data, &shadow_text.cap) != 0) return -1;
    if (split_fields(shadow_text.data, shadow, kShadowFields) != kShadowFields) {
        return fail(ERR_FORMAT_ERROR);
    }
    expire = shadow[7];

    const size_t size = strlen(user->szName) + strlen(hash) + strlen(flags) + strlen(expire) + 160;
    UniqueMalloc<char> line(static_cast<char *>(xmalloc(size)));
    if (!line) return fail(ERR_OUT_OF_MEMORY);
    snprintf(line.get(), size, "%s:%s:%s:%s:%s:%s:", user->szName, uid, lm, nt, flags, lct);
    if (set_line(db->pPWDSmb, upper, len, line.get()) != 0) return -1;
    snprintf(line.get(), size, "%s:%s:%s:0:99999:7::%s:", user->szName, hash, day, expire);
    return set_line(db->pPWDShadow, upper, len, line.get());
}

}  // namespace
}  // namespace kova::user

int KOVAUserSetPasswd(const char *szName, const char *szPassword) {
    using namespace kova::user;
    if (szName == nullptr || szPassword == nullptr) return kova::fail(ERR_BAD_PARAMETERS);
    char upper[kKeySize];
    const int len = upper_key(szName, upper);
    if (len < 0) return kova::fail(ERR_NO_SUCH_USER);
    Writer writer;
    if (!writer.ok() || change_password(writer.db(), upper, len, szPassword) != 0) return -1;
    return writer.finish();
}
