// The sandbox root. Every absolute path that the library itself names (settings, accounts,
// locks, caches, logs, procfs, sysfs, devices, the appliance's own programs) is resolved under
// the directory in KOVA_ROOT; unset or empty means "/". Paths given by callers are used as is.
#pragma once

#include <climits>

namespace kova {

// The root directory without a trailing slash; "" for the real root.
const char *sandbox_root();

// A library path resolved under the sandbox root, held in place (no allocation).
class RootedPath {
  public:
    explicit RootedPath(const char *absolute_path);
    // The resolved path; "" when it would not fit in PATH_MAX (every open of it then fails).
    const char *c_str() const { return path_; }
    bool ok() const { return path_[0] != '\0'; }

  private:
    char path_[PATH_MAX];
};

// A device, sysfs or procfs path: the appliance's own namespace whoever names it, so a path
// under /dev/, /sys/ or /proc/ resolves under the sandbox root also when a caller passes it
// (a record's "/dev/sda" can be handed back as it is). Any other path is used as given.
class DevicePath {
  public:
    explicit DevicePath(const char *path);
    const char *c_str() const { return path_; }
    bool ok() const { return path_[0] != '\0'; }

  private:
    char path_[PATH_MAX];
};

}  // namespace kova
