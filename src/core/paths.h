// The appliance's fixed files, named once. Each is resolved under the sandbox root
// (kova::RootedPath) where it is opened.
#pragma once

namespace kova::paths {

// Settings: the system information file and its factory copy.
inline constexpr char kKovaInfo[] = "/etc/kovainfo.conf";
inline constexpr char kKovaInfoDefaults[] = "/etc.defaults/kovainfo.conf";

// Accounts and shares: the master text files.
inline constexpr char kPasswd[] = "/etc/passwd";
inline constexpr char kShadow[] = "/etc/shadow";
inline constexpr char kGroup[] = "/etc/group";
inline constexpr char kUserMisc[] = "/etc/kovauser.conf";
inline constexpr char kSmbPasswd[] = "/usr/kova/etc/private/smbpasswd";
inline constexpr char kSmbConf[] = "/usr/kova/etc/smb.conf";

// The lock directory; the lock files in it are the entries of the lock table (rgslckList).
#define KOVA_LOCK_DIR "/tmp/lock/"
inline constexpr char kLockDir[] = KOVA_LOCK_DIR;

}  // namespace kova::paths
