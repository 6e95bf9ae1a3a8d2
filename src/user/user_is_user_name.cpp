// The user-name rule.
#include <cstring>

#include "user/user_internal.h"

namespace {
bool allowed_ascii(unsigned char c) {
    return (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z') || (c >= '0' && c <= '9') || c == '.' ||
           c == '-' || c == '_' || c == ' ';
}
}  // namespace

int BlKLIBIsUserName(const char *szName) {
    if (szName == nullptr || szName[0] == '\0') return 0;
    const size_t len = strlen(szName);
    if (szName[0] == ' ' || szName[0] == '-' || szName[len - 1] == ' ') return 0;
    int characters = 0;
    for (size_t i = 0; i < len; ++i) {
        const auto c = static_cast<unsigned char>(szName[i]);
        if ((c & 0xC0) != 0x80) ++characters;  // a byte that begins a character
        if (c < 0x80 && !allowed_ascii(c)) return 0;
    }
    return characters <= KOVA_USER_NAME_MAX_CHARS ? 1 : 0;
}
