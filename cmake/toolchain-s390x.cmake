# s390x: 64-bit big-endian, as the appliance's byte order. The programs run under qemu: ctest
# starts them through the emulator, and binfmt_misc (scripts/install-cross-deps) hands it the
# ones a test starts itself.
set(KOVA_CROSS_ARCH s390x)
set(KOVA_CROSS_TRIPLET s390x-linux-gnu)
set(KOVA_CROSS_MULTIARCH s390x-linux-gnu)
set(CMAKE_SYSTEM_PROCESSOR s390x)
set(CMAKE_CROSSCOMPILING_EMULATOR /usr/bin/qemu-s390x-static -L /usr/${KOVA_CROSS_TRIPLET})
set(KOVA_TARGET_POINTER_SIZE 8)
set(KOVA_TARGET_BIG_ENDIAN 1)
include(${CMAKE_CURRENT_LIST_DIR}/cross-common.cmake)
