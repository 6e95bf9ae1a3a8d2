# i386: 32-bit little-endian, 4-byte pointers, as the appliance's word size. The programs run
# natively (the kernel runs 32-bit x86 programs; the loader is libc6-i386's), or under qemu on a
# kernel built without that (scripts/install-cross-deps then registers qemu-i386 for them).
set(KOVA_CROSS_ARCH i386)
set(KOVA_CROSS_TRIPLET i686-linux-gnu)
set(KOVA_CROSS_MULTIARCH i386-linux-gnu)
set(CMAKE_SYSTEM_PROCESSOR i686)
if(EXISTS /proc/sys/fs/binfmt_misc/kova-i386)
    set(CMAKE_CROSSCOMPILING_EMULATOR /usr/bin/qemu-i386-static)
endif()
set(KOVA_TARGET_POINTER_SIZE 4)
set(KOVA_TARGET_BIG_ENDIAN 0)
include(${CMAKE_CURRENT_LIST_DIR}/cross-common.cmake)
