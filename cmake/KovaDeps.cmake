# The system libraries the SDK stands on. Each is a Debian package installed by
# scripts/install-deps; a missing one stops the configure step with its package name.

find_package(ICU 70 REQUIRED COMPONENTS uc i18n)

find_path(KOVA_DB185_INCLUDE_DIR db_185.h)
find_library(KOVA_DB_LIBRARY NAMES db-5.3 db)
if(NOT KOVA_DB185_INCLUDE_DIR OR NOT KOVA_DB_LIBRARY)
    message(FATAL_ERROR "Berkeley DB 1.85 interface not found: install libdb5.3-dev")
endif()

find_path(KOVA_LIBNET_INCLUDE_DIR libnet.h)
find_library(KOVA_LIBNET_LIBRARY NAMES net)
if(NOT KOVA_LIBNET_INCLUDE_DIR OR NOT KOVA_LIBNET_LIBRARY)
    message(FATAL_ERROR "libnet 1.1 not found: install libnet1-dev")
endif()

find_library(KOVA_CRYPT_LIBRARY NAMES crypt)
find_library(KOVA_NETTLE_LIBRARY NAMES nettle)
if(NOT KOVA_CRYPT_LIBRARY OR NOT KOVA_NETTLE_LIBRARY)
    message(FATAL_ERROR "libcrypt or nettle not found: install libcrypt-dev nettle-dev")
endif()

# Only the partition tool (tools/sfdisk) links libfdisk; the library itself does not.
find_path(KOVA_FDISK_INCLUDE_DIR libfdisk.h PATH_SUFFIXES libfdisk)
find_library(KOVA_FDISK_LIBRARY NAMES fdisk)
if(NOT KOVA_FDISK_INCLUDE_DIR OR NOT KOVA_FDISK_LIBRARY)
    message(FATAL_ERROR "libfdisk not found: install libfdisk-dev")
endif()

set(KOVA_DEP_LIBS
    ICU::i18n ICU::uc
    ${KOVA_DB_LIBRARY} ${KOVA_LIBNET_LIBRARY} ${KOVA_CRYPT_LIBRARY} ${KOVA_NETTLE_LIBRARY})
