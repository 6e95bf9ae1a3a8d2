#include <cstdint>
#include <cstring>

#include "core/endian.h"
#include "kovasdk/hash.h"

int KLIBIRadixHashCode(const char *szKey, int nSlot) {
    if (szKey == nullptr || nSlot <= 0) return -1;
    const auto *p = reinterpret_cast<const unsigned char *>(szKey);
    size_t left = strlen(szKey);
    uint32_t sum = 0;  // wraps modulo 2^32
    for (; left >= 4; p += 4, left -= 4)
        sum += kova::load_be32(p);
    if (left > 0) {
        unsigned char tail[4] = {};  // the last 1 to 3 bytes, left-aligned
        memcpy(tail, p, left);
        sum += kova::load_be32(tail);
    }
    return static_cast<int>(sum % static_cast<uint32_t>(nSlot));
}
