#include "core/root.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>

namespace kova {

const char *sandbox_root() {
    const char *root = getenv("KOVA_ROOT");
    if (root == nullptr || strcmp(root, "/") == 0) return "";
    return root;
}

RootedPath::RootedPath(const char *absolute_path) {
    const char *root = sandbox_root();
    size_t root_len = strlen(root);
    while (root_len > 0 && root[root_len - 1] == '/')
        --root_len;
    int n =
        snprintf(path_, sizeof path_, "%.*s%s", static_cast<int>(root_len), root, absolute_path);
    if (n < 0 || static_cast<size_t>(n) >= sizeof path_) path_[0] = '\0';
}

DevicePath::DevicePath(const char *path) {
    path_[0] = '\0';
    if (path == nullptr) return;
    const bool appliance = strncmp(path, "/dev/", 5) == 0 || strncmp(path, "/sys/", 5) == 0 ||
                           strncmp(path, "/proc/", 6) == 0;
    if (appliance) {
        const RootedPath rooted(path);
        memcpy(path_, rooted.c_str(), strlen(rooted.c_str()) + 1);
    } else if (strlen(path) < sizeof path_) {
        memcpy(path_, path, strlen(path) + 1);
    }
}

}  // namespace kova
