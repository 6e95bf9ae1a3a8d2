#include <cstring>

#include "core/raise.h"
#include "kovasdk/kstring.h"
#include "string/string_internal.h"

int KLIBStrDecodeColon(const char *szIn, char *szOut, int cbOut) {
    if (szIn == nullptr || szOut == nullptr) {
        kova::raise(ERR_BAD_PARAMETERS);
        return -1;
    }
    const size_t len = strlen(szIn);
    if (kova::str::overlaps(szIn, len + 1, szOut, len + 1)) {
        kova::raise(ERR_BAD_PARAMETERS, 35);
        return -1;
    }
    if (cbOut < 0 || len > static_cast<size_t>(cbOut)) {
        kova::raise(ERR_NOT_ENOUGH_MEMORY, 40);
        return -1;
    }
    char *out = szOut;
    for (const char *p = szIn; *p != '\0'; ++p) {
        if (*p != ';') {
            *out++ = *p;
        } else if (p[1] == ',' || p[1] == ';') {
            *out++ = p[1] == ',' ? ':' : ';';
            ++p;
        } else {
            break;  // a ";" that escapes nothing ends the text
        }
    }
    *out = '\0';
    return static_cast<int>(out - szOut);
}
