#include <cstring>

#include "core/raise.h"
#include "kovasdk/kstring.h"
#include "string/string_internal.h"

namespace {
// The value of an upper-case hex digit, or -1 (lower case is not a digit here).
int digit(char c) {
    if (c >= '0' && c <= '9') return c - '0';
    if (c >= 'A' && c <= 'F') return c - 'A' + 10;
    return -1;
}
// Decodes in into out (or only counts when out is null); the decoded length.
size_t decode(const char *in, char *out) {
    size_t n = 0;
    for (const char *p = in;; p += 2) {
        if (*p == 'x') ++p;
        const int high = digit(p[0]);
        const int low = high >= 0 ? digit(p[1]) : -1;
        if (low < 0) break;
        if (out != nullptr) out[n] = static_cast<char>(high << 4 | low);
        ++n;
    }
    if (out != nullptr) out[n] = '\0';
    return n;
}

}  // namespace

int KLIBStrHexCodeToString(const char *szIn, char *szOut, int cbOut) {
    if (szIn == nullptr || szOut == nullptr) {
        kova::raise(ERR_BAD_PARAMETERS);
        return -1;
    }
    const size_t len = strlen(szIn);
    // Decoding in place works (the output never overtakes the input); other overlaps do not.
    if (szOut != szIn && kova::str::overlaps(szIn, len + 1, szOut, decode(szIn, nullptr) + 1)) {
        kova::raise(ERR_BAD_PARAMETERS);
        return -1;
    }
    if (cbOut < 0 || len > static_cast<size_t>(cbOut)) {
        kova::raise(ERR_NOT_ENOUGH_MEMORY, 44);
        return -1;
    }
    return static_cast<int>(decode(szIn, szOut));
}
