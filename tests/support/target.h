// What the tests know about the target they were built for; the cross toolchain files
// (cmake/toolchain-*.cmake) declare it, a native build declares nothing.
#pragma once

#ifndef KOVA_TARGET_EMULATED
#define KOVA_TARGET_EMULATED 0
#endif

namespace kova::test {

// The suite runs under a user-mode emulator (make test-s390x: qemu). A test of something the
// emulator cannot give (real devices, ptrace, the host's view of an emulated process) skips:
//     if (kEmulated) GTEST_SKIP() << "under qemu: <why>";
constexpr bool kEmulated = KOVA_TARGET_EMULATED != 0;

}  // namespace kova::test
