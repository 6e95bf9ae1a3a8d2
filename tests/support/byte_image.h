// Byte images of the binary formats, built from field widths and a byte order: the one place
// where the tests know how a machine lays out a number. The appliance is 32-bit big-endian; the
// suite also runs on i386 and s390x (make test-i386, make test-s390x), so a format stated with
// these helpers is checked at both word sizes and in both orders.
#pragma once

#include <bit>
#include <cstddef>
#include <cstdint>
#include <string>

namespace kova::test {

// value as width bytes (1 to 8), most significant first.
inline std::string be_bytes(uint64_t value, size_t width) {
    std::string out(width, '\0');
    for (size_t i = 0; i < width; ++i)
        out[width - 1 - i] = static_cast<char>(value >> (8 * i) & 0xFF);
    return out;
}

// value as width bytes in this machine's own order (records the appliance keeps "in host order").
inline std::string native_bytes(uint64_t value, size_t width) {
    std::string out = be_bytes(value, width);
    if constexpr (std::endian::native == std::endian::little) return {out.rbegin(), out.rend()};
    return out;
}

// A pointer-sized slot holding an offset, as the packed records store them.
inline std::string native_slot(uint64_t offset) {
    return native_bytes(offset, sizeof(void *));
}

}  // namespace kova::test
