// What is checked before a file is handed to the btree library, which loops forever or crashes
// on some files any local user can plant beside the caches in /tmp.
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstdio>
#include <cstring>
#include <ctime>

#include "bdb/bdb_internal.h"
#include "core/owners.h"
#include "core/sys.h"

namespace kova::bdb {
namespace {

// The btree metadata page as the library writes it, in the creating machine's byte order.
constexpr size_t kMagicAt = 12, kVersionAt = 16, kPageSizeAt = 20, kTypeAt = 25, kLastPageAt = 32;
constexpr size_t kMinKeysAt = 76;  // keys per page at least: 0 crashes the library
constexpr size_t kMetaSize = 80;
constexpr uint32_t kBtreeMagic = 0x053162;
constexpr uint32_t kOldestVersion = 8, kBtreeVersion = 9;  // what the library still opens
constexpr uint8_t kBtreeMetaPage = 9;
constexpr uint32_t kMinPageSize = 512, kMaxPageSize = 65536;

// A zero-length "__db.<name>" older than this is the leftover of a creator that was killed.
constexpr double kStaleSeconds = 2.0;
constexpr int kWaitSteps = 10;  // of 100 ms: how long another creator is given
constexpr useconds_t kWaitStep = 100 * 1000;

// A word in this machine's order, or in the other one (the library reads both).
uint32_t read32(const unsigned char *at, bool swapped) {
    uint32_t word;
    memcpy(&word, at, sizeof word);
    return swapped ? __builtin_bswap32(word) : word;
}

// The metadata page of an existing, non-empty store: magic, version, type, page size and the
// file's size agreeing with its pages. EINVAL when it does not hold.
int check_header(const char *path, const struct stat &st) {
    const UniqueFd fd(sys::open(path, O_RDONLY | O_NONBLOCK | O_CLOEXEC));
    if (!fd) return 0;  // the library reports why it cannot be opened
    unsigned char meta[kMetaSize];
    if (pread(fd.get(), meta, sizeof meta, 0) != static_cast<ssize_t>(sizeof meta)) return EINVAL;
    bool swapped = false;
    if (read32(meta + kMagicAt, false) != kBtreeMagic) {
        swapped = true;
        if (read32(meta + kMagicAt, true) != kBtreeMagic) return EINVAL;
    }
    const uint32_t page_size = read32(meta + kPageSizeAt, swapped);
    const uint64_t last_page = read32(meta + kLastPageAt, swapped);
    const bool page_size_ok = page_size >= kMinPageSize && page_size <= kMaxPageSize &&
                              (page_size & (page_size - 1)) == 0;
    const uint32_t version = read32(meta + kVersionAt, swapped);
    if (version < kOldestVersion || version > kBtreeVersion || meta[kTypeAt] != kBtreeMetaPage ||
        !page_size_ok || read32(meta + kMinKeysAt, swapped) < 2) {
        return EINVAL;
    }
    const uint64_t size = static_cast<uint64_t>(st.st_size);
    if (size % page_size != 0 || (last_page + 1) * page_size > size) return EINVAL;
    return 0;
}

// Since the file was last modified, to the nanosecond: whole seconds would make a file of
// 1.1 seconds look 2 seconds old across a second's boundary.
double age_seconds(const struct stat &st) {
    struct timespec now {};
    clock_gettime(CLOCK_REALTIME, &now);
    return static_cast<double>(now.tv_sec - st.st_mtim.tv_sec) +
           static_cast<double>(now.tv_nsec - st.st_mtim.tv_nsec) / 1e9;
}

// A file at the creation name makes the library retry without end. One of our own that a
// killed creator left is removed; another creator's is given a second; anything else refuses.
int clear_creation_name(const char *path) {
    char planted[PATH_MAX];
    if (!creation_name(path, planted, sizeof planted)) return ENAMETOOLONG;
    for (int step = 0;; ++step) {
        struct stat st {};
        if (lstat(planted, &st) != 0) return 0;
        const bool stale = S_ISREG(st.st_mode) && st.st_size == 0 && st.st_uid == geteuid() &&
                           age_seconds(st) >= kStaleSeconds;
        if (stale && sys::unlink(planted) == 0) return 0;
        if (step == kWaitSteps) return EEXIST;
        usleep(kWaitStep);
    }
}

}  // namespace

bool creation_name(const char *path, char *out, size_t size) {
    const char *slash = strrchr(path, '/');
    const int dir_len = slash == nullptr ? 0 : static_cast<int>(slash - path + 1);
    const char *name = slash == nullptr ? path : slash + 1;
    const int n = snprintf(out, size, "%.*s__db.%s", dir_len, path, name);
    return n > 0 && static_cast<size_t>(n) < size;
}

unsigned cache_size_for(off_t size) {
    constexpr off_t kDefault = 256 * 1024, kStep = 1024 * 1024, kMax = 16 * kStep;
    if (size <= kDefault) return 0;
    return static_cast<unsigned>(std::min(kMax, (size + kStep - 1) / kStep * kStep));
}

int check_store_file(const char *path, int flags, off_t *size) {
    struct stat st {};
    if (stat(path, &st) != 0) {
        if (errno == ENOENT && (flags & O_CREAT) != 0) return clear_creation_name(path);
        return 0;  // the library reports the same failure
    }
    if (S_ISDIR(st.st_mode)) return EISDIR;
    if (!S_ISREG(st.st_mode)) return EINVAL;  // a FIFO would block the open
    *size = st.st_size;
    return st.st_size == 0 ? 0 : check_header(path, st);
}

}  // namespace kova::bdb
