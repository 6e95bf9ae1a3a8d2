#include <cstring>

#include "core/raise.h"
#include "kovasdk/kstring.h"
#include "string/string_internal.h"

int KLIBStrEncodeColon(const char *szIn, char *szOut, int cbOut) {
    if (szIn == nullptr || szOut == nullptr) {
        kova::raise(ERR_BAD_PARAMETERS);
        return -1;
    }
    const size_t len = strlen(szIn);
    size_t count = 0;
    for (size_t i = 0; i < len; ++i)
        count += szIn[i] == ':' || szIn[i] == ';' ? 2 : 1;
    if (kova::str::overlaps(szIn, len + 1, szOut, count + 1)) {
        kova::raise(ERR_BAD_PARAMETERS, 34);
        return -1;
    }
    // The size bounds the characters; the NUL goes after them (kept as it is).
    if (cbOut < 0 || count > static_cast<size_t>(cbOut)) {
        kova::raise(ERR_NOT_ENOUGH_MEMORY, 65);
        return -1;
    }
    char *out = szOut;
    for (size_t i = 0; i < len; ++i) {
        if (szIn[i] == ':' || szIn[i] == ';') {
            *out++ = ';';
            *out++ = szIn[i] == ':' ? ',' : ';';
        } else {
            *out++ = szIn[i];
        }
    }
    *out = '\0';
    return static_cast<int>(count);
}
