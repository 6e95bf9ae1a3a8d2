# What the cross toolchain files share. The including file sets KOVA_CROSS_ARCH (Debian's name
# of the architecture), KOVA_CROSS_TRIPLET (the compilers' prefix) and KOVA_CROSS_MULTIARCH (the
# library directory of Debian's packages for it). Compilers and C runtime come from Debian's
# cross compiler packages; the libraries the SDK links come from the sysroot that
# scripts/install-cross-deps unpacks from Debian's packages of that architecture.
set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_C_COMPILER ${KOVA_CROSS_TRIPLET}-gcc)
set(CMAKE_CXX_COMPILER ${KOVA_CROSS_TRIPLET}-g++)

if(DEFINED ENV{KOVA_CROSS_SYSROOTS})
    set(KOVA_CROSS_SYSROOT $ENV{KOVA_CROSS_SYSROOTS}/${KOVA_CROSS_ARCH})
else()
    set(KOVA_CROSS_SYSROOT /opt/kova-cross/${KOVA_CROSS_ARCH})
endif()
if(NOT EXISTS ${KOVA_CROSS_SYSROOT}/.packages)
    message(FATAL_ERROR "no ${KOVA_CROSS_ARCH} sysroot in ${KOVA_CROSS_SYSROOT}: "
                        "run scripts/install-cross-deps ${KOVA_CROSS_ARCH}")
endif()
set(KOVA_CROSS_LIBDIR ${KOVA_CROSS_SYSROOT}/usr/lib/${KOVA_CROSS_MULTIARCH})

# Headers, libraries and CMake packages from the sysroot only, never the native ones.
set(CMAKE_LIBRARY_ARCHITECTURE ${KOVA_CROSS_MULTIARCH})
set(CMAKE_FIND_ROOT_PATH ${KOVA_CROSS_SYSROOT})
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)

set(_kova_includes
    "-isystem ${KOVA_CROSS_SYSROOT}/usr/include/${KOVA_CROSS_MULTIARCH} -isystem ${KOVA_CROSS_SYSROOT}/usr/include")
set(CMAKE_C_FLAGS_INIT "${_kova_includes}")
set(CMAKE_CXX_FLAGS_INIT "${_kova_includes}")
# The programs run from the build tree without installing anything: an RPATH (not RUNPATH,
# which only serves an object's own dependencies) also finds the libraries' own dependencies,
# such as ICU's data library.
set(_kova_link "-L${KOVA_CROSS_LIBDIR} -Wl,-rpath-link,${KOVA_CROSS_LIBDIR} -Wl,--disable-new-dtags")
set(CMAKE_EXE_LINKER_FLAGS_INIT "${_kova_link}")
set(CMAKE_SHARED_LINKER_FLAGS_INIT "${_kova_link}")
set(CMAKE_BUILD_RPATH ${KOVA_CROSS_LIBDIR})
