#include <cstring>

#include "core/raise.h"
#include "kovasdk/kstring.h"

namespace {
// The C locale's tolower, whatever locale the calling program has set.
char lower(char c) {
    return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c;
}
}  // namespace

char *SzKLIBStrCaseLower(char *szStr, int /*nIgnored*/, char *szOut, int cbSize) {
    if (szStr == nullptr) {
        kova::raise(ERR_BAD_PARAMETERS, 60);
        return nullptr;
    }
    // Only the in-place form checks the size (kept as it is).
    if (szOut == nullptr && (cbSize < 0 || strlen(szStr) > static_cast<size_t>(cbSize))) {
        kova::raise(ERR_NOT_ENOUGH_MEMORY, 65);
        return nullptr;
    }
    char *dest = szOut != nullptr ? szOut : szStr;
    size_t i = 0;
    for (; szStr[i] != '\0'; ++i)
        dest[i] = lower(szStr[i]);
    dest[i] = '\0';
    return dest;
}
