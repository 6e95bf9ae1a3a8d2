// The target a cross build claims to be for. A toolchain file that silently built for the host
// would let every word-size and byte-order expectation of the suite pass untested.
#include <gtest/gtest.h>

#include <cstdint>
#include <cstring>

namespace {

TEST(Platform, WordSizeAndByteOrderAreTheTargetsOwn) {
#ifndef KOVA_TARGET_ARCH
    GTEST_SKIP() << "native build: no target declared (make test-i386, make test-s390x)";
#else
    const uint32_t word = 0x01020304;
    unsigned char bytes[sizeof word];
    std::memcpy(bytes, &word, sizeof word);
    EXPECT_EQ(sizeof(void *), static_cast<size_t>(KOVA_TARGET_POINTER_SIZE)) << KOVA_TARGET_ARCH;
    EXPECT_EQ(bytes[0], KOVA_TARGET_BIG_ENDIAN ? 0x01 : 0x04) << KOVA_TARGET_ARCH;
#endif
}

}  // namespace
