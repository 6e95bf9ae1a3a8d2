// Calls into the settings-file family. Until that family is part of this branch these are
// minimal stand-ins with the same results for the uses made here.
#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

#include <cstdio>
#include <cstring>

#include "core/owners.h"
#include "core/root.h"
#include "proc/proc_internal.h"

namespace kova::proc {
namespace {
int g_connect_lock = -1;
}  // namespace

void close_held_lock_files() {}

int file_get_line(const char *path, const char *pattern, char *buf, int size, int /*flags*/) {
    UniqueFile file(fopen(path, "r"));
    if (!file) return -1;
    char line[1024];
    while (fgets(line, sizeof line, file.get()) != nullptr) {
        if (strncmp(line, pattern, strlen(pattern)) != 0) continue;
        line[strcspn(line, "\n")] = '\0';
        snprintf(buf, static_cast<size_t>(size), "%s", line);
        return static_cast<int>(strlen(buf)) + 1;
    }
    return 0;
}

int file_get_key_value(const char *path, const char *key, char *buf, int size, int /*flags*/) {
    UniqueFile file(fopen(path, "r"));
    if (!file) return -1;
    char line[1024];
    const size_t key_len = strlen(key);
    while (fgets(line, sizeof line, file.get()) != nullptr) {
        if (strncmp(line, key, key_len) != 0 || line[key_len] != '=') continue;
        char *value = line + key_len + 1;
        value[strcspn(value, "\n")] = '\0';
        if (value[0] == '"') {
            ++value;
            value[strcspn(value, "\"")] = '\0';
        }
        snprintf(buf, static_cast<size_t>(size), "%s", value);
        return static_cast<int>(strlen(buf)) + 1;
    }
    return 0;
}

int file_lock(uint32_t /*mask*/, int /*timeout*/) {
    const RootedPath path("/tmp/lock_connect");
    g_connect_lock = open(path.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0644);
    if (g_connect_lock < 0) return -1;
    if (flock(g_connect_lock, LOCK_EX | LOCK_NB) == 0) return 0;
    close(g_connect_lock);
    g_connect_lock = -1;
    return -1;
}

int file_unlock(uint32_t /*mask*/) {
    const int rc = close(g_connect_lock);
    g_connect_lock = -1;
    return rc;
}

}  // namespace kova::proc
