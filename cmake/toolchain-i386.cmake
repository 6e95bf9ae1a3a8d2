# i386: 32-bit little-endian, 4-byte pointers, as the appliance's word size. The programs run
# natively (the kernel runs 32-bit x86 programs; the loader is libc6-i386's).
set(KOVA_CROSS_ARCH i386)
set(KOVA_CROSS_TRIPLET i686-linux-gnu)
set(KOVA_CROSS_MULTIARCH i386-linux-gnu)
set(CMAKE_SYSTEM_PROCESSOR i686)
set(KOVA_TARGET_POINTER_SIZE 4)
set(KOVA_TARGET_BIG_ENDIAN 0)
include(${CMAKE_CURRENT_LIST_DIR}/cross-common.cmake)
