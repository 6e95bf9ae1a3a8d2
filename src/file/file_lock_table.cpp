// The process-wide lock table: one entry per lock file, nothing held at start.
#include "core/paths.h"
#include "kovasdk/file.h"

KLIBFILELOCK rgslckList[KLIB_LOCK_ENTRIES + 1] = {
    {nullptr, KOVA_LOCK_DIR "lock_kovainfo", KLIB_LOCK_KOVAINFO, 0, 0},
    {nullptr, KOVA_LOCK_DIR "lock_pw", KLIB_LOCK_PW, 0, 0},
    {nullptr, KOVA_LOCK_DIR "lock_gr", KLIB_LOCK_GR, 0, 0},
    {nullptr, KOVA_LOCK_DIR "lock_rc", KLIB_LOCK_RC, 0, 0},
    {nullptr, KOVA_LOCK_DIR "lock_host", KLIB_LOCK_HOST, 0, 0},
    {nullptr, KOVA_LOCK_DIR "lock_smb", KLIB_LOCK_SMB, 0, 0},
    {nullptr, KOVA_LOCK_DIR "lock_exports", KLIB_LOCK_EXPORTS, 0, 0},
    {nullptr, KOVA_LOCK_DIR "lock_nw", KLIB_LOCK_NW, 0, 0},
    {nullptr, KOVA_LOCK_DIR "lock_apple", KLIB_LOCK_APPLE, 0, 0},
    {nullptr, KOVA_LOCK_DIR "lock_snmp", KLIB_LOCK_SNMP, 0, 0},
    {nullptr, KOVA_LOCK_DIR "lock_win", KLIB_LOCK_WIN, 0, 0},
    {nullptr, KOVA_LOCK_DIR "lock_tapebkp", KLIB_LOCK_TAPEBKP, 0, 0},
    {nullptr, KOVA_LOCK_DIR "lock_connect", KLIB_LOCK_CONNECT, 0, 0},
    {nullptr, KOVA_LOCK_DIR "lock_usbidmap", KLIB_LOCK_USBIDMAP, 0, 0},
    {nullptr, KOVA_LOCK_DIR "lock_duseruid", KLIB_LOCK_DUSERUID, 0, 0},
    {nullptr, KOVA_LOCK_DIR "lock_dusergid", KLIB_LOCK_DUSERGID, 0, 0},
    {nullptr, KOVA_LOCK_DIR "lock_fstab", KLIB_LOCK_FSTAB, 0, 0},
    {nullptr, KOVA_LOCK_DIR "lock_hotswap", KLIB_LOCK_HOTSWAP, 0, 0},
    {nullptr, nullptr, 0, 0, 0},
};
