#include <cstring>

#include "core/raise.h"
#include "kovasdk/kstring.h"
#include "string/string_internal.h"

int KLIBStrReplace(char *szStr, const char *szOld, const char *szNew, char *szOut, int cbSize) {
    if (szStr == nullptr || szOld == nullptr || szNew == nullptr) {
        kova::raise(ERR_BAD_PARAMETERS);
        return -1;
    }
    const auto len = static_cast<long long>(strlen(szStr));
    const auto old_len = static_cast<long long>(strlen(szOld));
    // Checked before searching, so a text too long for the buffer fails even when old does
    // not occur (kept as it is).
    if (len - old_len + static_cast<long long>(strlen(szNew)) > cbSize) {
        kova::raise(ERR_NOT_ENOUGH_MEMORY, 70);
        return -1;
    }
    const char *found = strstr(szStr, szOld);
    if (found == nullptr) {
        if (szOut != nullptr && szOut != szStr && len > cbSize) {
            kova::raise(ERR_NOT_ENOUGH_MEMORY, 70);
            return -1;
        }
        kova::str::copy_unchanged(szStr, szOut);
        return 0;
    }
    return kova::str::splice(szStr, static_cast<size_t>(found - szStr),
                             static_cast<size_t>(old_len), szNew, szOut)
               ? 1
               : -1;
}
