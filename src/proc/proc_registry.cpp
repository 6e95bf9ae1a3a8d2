#include <sys/ipc.h>
#include <sys/shm.h>

#include <cstring>

#include "core/root.h"
#include "kovasdk/proc.h"
#include "proc/proc_internal.h"

namespace kova::proc {

// The appliance's registry lives at key 888. A sandbox root gets its own segment, keyed by a
// hash of the root's path (FNV-1a), so test runs and offline images on one machine never see
// each other's entries or the real ones; the hash never yields 888 or IPC_PRIVATE.
key_t registry_key() {
    const char *root = sandbox_root();
    if (root[0] == '\0') return kRegistryKey;
    size_t len = strlen(root);
    while (len > 0 && root[len - 1] == '/')
        --len;  // "/x/" and "/x" are one root
    uint32_t hash = 2166136261u;
    for (size_t i = 0; i < len; ++i) {
        hash = (hash ^ static_cast<unsigned char>(root[i])) * 16777619u;
    }
    const key_t key = static_cast<key_t>(hash & 0x7FFFFFFF);
    return key == IPC_PRIVATE || key == kRegistryKey ? key ^ 0x4B000000 : key;
}

RegistryLock::RegistryLock(int *budget_ms) {
    const RootedPath path(kRegistryLockFile);
    fd_ = GetExclusiveFileLock(path.c_str(), budget_ms);
}

RegistryLock::~RegistryLock() {
    if (fd_ >= 0) ReleaseExclusiveFileLock(fd_);
}

AttachedRegistry::AttachedRegistry(bool create) {
    const int id = shmget(registry_key(), sizeof(Registry), create ? IPC_CREAT | 0600 : 0);
    if (id < 0) return;
    void *address = shmat(id, nullptr, 0);
    if (address == reinterpret_cast<void *>(-1)) return;
    registry_ = static_cast<Registry *>(address);
    // A damaged count must not lead the walk out of the segment.
    if (registry_->count > kRegistrySlots) registry_->count = kRegistrySlots;
}

AttachedRegistry::~AttachedRegistry() {
    if (registry_ != nullptr) shmdt(registry_);
}

void remove_entry(Registry *registry, uint32_t i) {
    const uint32_t last = registry->count - 1;
    registry->entries[i] = registry->entries[last];
    registry->entries[last] = {0, 0};
    registry->count = last;
}

}  // namespace kova::proc
