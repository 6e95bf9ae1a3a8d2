// The classes' configuration, the retried open and lock, and positioned reads and writes.
#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <syslog.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>

#include "core/alloc.h"
#include "core/fail.h"
#include "core/root.h"
#include "core/sys.h"
#include "kovasdk/file.h"
#include "log/log_internal.h"

namespace kova::log_file {

namespace {

constexpr ClassKeys kSys = {"syslogfile", "syslogfilesize_MAX", "/var/log/kovasys.log"};
constexpr ClassKeys kMan = {"manlogfile", "manlogfilesize_MAX", "/var/log/kovaman1.log"};
constexpr ClassKeys kConn = {"connlogfile", "connlogfilesize_MAX", "/var/log/kovaconn.log"};
constexpr ClassKeys kBkp = {"bkplogfile", "bkplogfilesize_MAX", "/var/log/kovabackup.log"};
constexpr ClassKeys kCopy = {"copylogfile", "copylogfilesize_MAX", "/var/log/kovacopy.log"};
constexpr ClassKeys kNetBkp = {"netbkplogfile", "netbkplogfilesize_MAX", "/var/log/kovanetbkp.log"};
constexpr ClassKeys kSur = {"surlogfile", "surlogfilesize_MAX", "/var/log/kovasur.log"};

// Indexed by class; class 4 has no file.
constexpr const ClassKeys *kClasses[] = {nullptr, &kSys,  &kMan,    &kConn, nullptr,
                                         &kBkp,   &kCopy, &kNetBkp, &kSur};

}  // namespace

const ClassKeys *class_keys(int log_class) {
    if (log_class < 1 || log_class > 8) return nullptr;
    return kClasses[log_class];
}

const ClassKeys *write_class_keys(int log_class) {
    return class_keys(log_class == KOVA_LOG_CLASS_MAN ? KOVA_LOG_CLASS_SYS : log_class);
}

const char *conf_path(char *path, size_t size) {
    const RootedPath conf(KOVA_LOG_CONF);
    snprintf(path, size, "%s", conf.c_str());
    return path;
}

bool class_file(const ClassKeys &keys, char *path, size_t size) {
    char conf[PATH_MAX];
    char value[kConfPathMax];
    const char *file = keys.default_file;
    if (KLIBFileGetKeyValue(conf_path(conf, sizeof conf), keys.file_key, value, sizeof value, 0) >
            1 &&
        value[0] == '/') {
        file = value;
    }
    const RootedPath rooted(file);
    const int n = snprintf(path, size, "%s", rooted.c_str());
    return rooted.ok() && n > 0 && static_cast<size_t>(n) < size;
}

bool class_size(const ClassKeys &keys, int *size) {
    char conf[PATH_MAX];
    char value[kConfSizeMax];
    if (KLIBFileGetKeyValue(conf_path(conf, sizeof conf), keys.size_key, value, sizeof value, 0) <=
        1) {
        return false;
    }
    char *end = nullptr;
    errno = 0;
    const long n = strtol(value, &end, 10);
    if (end == value || errno != 0 || n <= 0 || n > INT32_MAX) return false;
    *size = static_cast<int>(n);
    return true;
}

int open_retrying(const char *path, int flags, mode_t mode) {
    for (int attempt = 1;; ++attempt) {
        const int fd = sys::open(path, flags | O_CLOEXEC, mode);
        if (fd >= 0 || attempt == kTries) return fd;
        sys::sleep(1);
    }
}

bool lock_retrying(int fd) {
    for (int attempt = 1;; ++attempt) {
        if (sys::flock(fd, LOCK_EX | LOCK_NB) == 0) return true;
        if (attempt == kTries) return false;
        sys::sleep(1);
    }
}

void write_failed(size_t size) {
    log(LOG_ERR, "KOVALogWriteByte(): write() error!, input count is [%d]", static_cast<int>(size));
    fail(ERR_WRITE_FAILED);
}

bool read_at(int fd, void *buffer, size_t size, off_t offset) {
    auto *at = static_cast<char *>(buffer);
    if (all_bytes(size, [&](size_t done) {
            return sys::pread(fd, at + done, size - done, offset + static_cast<off_t>(done));
        })) {
        return true;
    }
    fail(ERR_READ_FAILED);
    return false;
}

bool write_at(int fd, const void *buffer, size_t size, off_t offset) {
    const auto *at = static_cast<const char *>(buffer);
    if (all_bytes(size, [&](size_t done) {
            return sys::pwrite(fd, at + done, size - done, offset + static_cast<off_t>(done));
        })) {
        return true;
    }
    write_failed(size);
    return false;
}

int length_at(int fd, off_t offset) {
    unsigned char field[2];
    if (!read_at(fd, field, sizeof field, offset)) return -1;
    return get16(field);
}

bool read_ends(int fd, uint32_t *head, uint32_t *tail) {
    const int h = KOVALogGetHead(fd);
    const int t = KOVALogGetTail(fd);
    struct stat st {};
    if (h < 0 || t < 0 || sys::fstat(fd, &st) != 0) return false;
    if (!ends_in_area(h, t, static_cast<uint64_t>(st.st_size))) return false;
    *head = static_cast<uint32_t>(h);
    *tail = static_cast<uint32_t>(t);
    return true;
}

bool LogBytes::load(int fd) {
    const auto failed = [](uint32_t code) {
        fail(code);
        return false;
    };
    struct stat st {};
    if (sys::fstat(fd, &st) != 0) return failed(ERR_STAT_FAILED);
    const size_t size = static_cast<size_t>(st.st_size);
    data_.reset(static_cast<unsigned char *>(xmalloc(size > 0 ? size : 1)));
    if (!data_) return failed(ERR_OUT_OF_MEMORY);
    // A file that shrank meanwhile is taken as far as it goes.
    size_ = 0;
    if (sys::lseek(fd, 0, SEEK_SET) != 0) return failed(ERR_SEEK_FAILED);
    while (size_ < size) {
        const ssize_t n = sys::read(fd, data_.get() + size_, size - size_);
        if (n < 0 && errno == EINTR) continue;
        if (n < 0) return failed(ERR_READ_FAILED);
        if (n == 0) break;
        size_ += static_cast<size_t>(n);
    }
    return true;
}

bool LogBytes::ends(uint32_t *head, uint32_t *tail) const {
    if (size_ < kStart) return false;
    const uint32_t h = get32(data() + 8);
    const uint32_t t = get32(data() + 12);
    if (!ends_in_area(h, t, size_)) return false;
    *head = h;
    *tail = t;
    return true;
}

RingWalk::Step RingWalk::next() {
    for (;;) {
        const int n = bytes_.length_at(pos_);
        if (first_run_) {
            // The oldest run ends at the zero marker (or the file's end); the rest starts at
            // the record area.
            if (n <= 0) {
                first_run_ = false;
                pos_ = kStart;
                continue;
            }
            if (n < 2 || pos_ + static_cast<size_t>(n) > bytes_.size()) return Step::kDamaged;
        } else {
            if (pos_ >= tail_) return Step::kEnd;
            if (n < 2 || pos_ + static_cast<uint32_t>(n) > tail_) return Step::kDamaged;
        }
        length_ = n;
        return Step::kRecord;
    }
}

}  // namespace kova::log_file
