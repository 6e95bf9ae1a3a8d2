// The one place where the library reads and writes big-endian words: the same on every host, so
// that results that depend on byte order (hash slot order, on-disk integers) match the appliance.
#pragma once

#include <cstdint>

namespace kova {

// The 4 bytes at p as a big-endian number: the first byte is the most significant.
inline uint32_t load_be32(const unsigned char *p) {
    return uint32_t{p[0]} << 24 | uint32_t{p[1]} << 16 | uint32_t{p[2]} << 8 | uint32_t{p[3]};
}

// n as 4 big-endian bytes at p.
inline void store_be32(unsigned char *p, uint32_t n) {
    p[0] = static_cast<unsigned char>(n >> 24);
    p[1] = static_cast<unsigned char>(n >> 16);
    p[2] = static_cast<unsigned char>(n >> 8);
    p[3] = static_cast<unsigned char>(n);
}

}  // namespace kova
