#include <cstring>

#include "core/raise.h"
#include "kovasdk/kstring.h"
#include "string/string_internal.h"

namespace {

// Decodes in into out (or only counts when out is null); the decoded length.
size_t decode(const char *in, char *out) {
    size_t n = 0;
    for (const char *p = in; *p != '\0'; ++p) {
        char c = *p;
        if (c == ';') {
            if (p[1] != ',' && p[1] != ';') break;  // a ";" that escapes nothing ends the text
            c = *++p == ',' ? ':' : ';';
        }
        if (out != nullptr) out[n] = c;
        ++n;
    }
    if (out != nullptr) out[n] = '\0';
    return n;
}

}  // namespace

int KLIBStrDecodeColon(const char *szIn, char *szOut, int cbOut) {
    if (szIn == nullptr || szOut == nullptr) {
        kova::raise(ERR_BAD_PARAMETERS);
        return -1;
    }
    const size_t len = strlen(szIn);
    if (kova::str::overlaps(szIn, len + 1, szOut, decode(szIn, nullptr) + 1)) {
        kova::raise(ERR_BAD_PARAMETERS, 35);
        return -1;
    }
    if (cbOut < 0 || len > static_cast<size_t>(cbOut)) {
        kova::raise(ERR_NOT_ENOUGH_MEMORY, 40);
        return -1;
    }
    return static_cast<int>(decode(szIn, szOut));
}
