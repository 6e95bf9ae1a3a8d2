// What the event-log files share: the classes and their configuration keys, the retried open
// and lock, the record layout and the ring's walking rules.
#pragma once

#include <sys/types.h>

#include <cerrno>
#include <cstdint>
#include <cstring>

#include "core/owners.h"
#include "kovasdk/log.h"

namespace kova::log_file {

constexpr uint32_t kStart = KOVA_LOG_HEADER_SIZE;  // first byte of the record area
constexpr int kRecordFixed = KOVA_LOG_RECORD_FIXED;
constexpr int kMarkerSize = 2;           // the zero end marker of a wrapped ring
constexpr int kConfPathMax = 32;         // bytes read for a file path from the configuration
constexpr int kConfSizeMax = 11;         // bytes read for a size
constexpr int kTries = 10;               // opens and locks: once a second, at most this often
constexpr int kDefaultSize = 65536;      // the classes' size when nothing else says
constexpr int kSysCreateSize = 131072;   // classes 1 and 2 when the writer made the configuration
constexpr int kShrinkRecordLimit = 256;  // records this long are not carried over a shrink

// A class's configuration keys and default file.
struct ClassKeys {
    const char *file_key;
    const char *size_key;
    const char *default_file;
};

// The keys for reading and resizing (class 2 has its own file); null for classes without a file
// (4) and outside 1..8.
const ClassKeys *class_keys(int log_class);
// The writer's keys: as class_keys, but class 2 writes into the system log.
const ClassKeys *write_class_keys(int log_class);

// The class's log file: the configured path (at most kConfPathMax bytes) or the default,
// resolved under the sandbox root. False when it does not fit.
bool class_file(const ClassKeys &keys, char *path, size_t size);
// The configured size of the class: true with *size when the key holds a number.
bool class_size(const ClassKeys &keys, int *size);
// The configuration file, resolved.
const char *conf_path(char *path, size_t size);

// open() retried once a second, at most kTries times; -1 when every try failed.
int open_retrying(const char *path, int flags, mode_t mode);
// An exclusive non-blocking flock retried once a second, at most kTries times.
bool lock_retrying(int fd);

// Host-order fields.
inline uint16_t get16(const void *at) {
    uint16_t v;
    memcpy(&v, at, sizeof v);
    return v;
}
inline uint32_t get32(const void *at) {
    uint32_t v;
    memcpy(&v, at, sizeof v);
    return v;
}
inline void put16(void *at, uint16_t v) {
    memcpy(at, &v, sizeof v);
}
inline void put32(void *at, uint32_t v) {
    memcpy(at, &v, sizeof v);
}

// Repeats io(done) (a read or write of the bytes from done on, returning what the kernel call
// returns) until size bytes are through; false when a call fails or moves nothing. Interrupted
// calls are repeated.
template <class Io>
bool all_bytes(size_t size, Io io) {
    for (size_t done = 0; done < size;) {
        const ssize_t n = io(done);
        if (n < 0 && errno == EINTR) continue;
        if (n <= 0) return false;
        done += static_cast<size_t>(n);
    }
    return true;
}
// Raises the failure of a write of size bytes, with the defined log text of KOVALogWriteByte.
void write_failed(size_t size);

// pread/pwrite of exactly size bytes at offset through the syscall seam.
bool read_at(int fd, void *buffer, size_t size, off_t offset);
bool write_at(int fd, const void *buffer, size_t size, off_t offset);

// Whether head and tail lie in the record area of a file of file_size bytes: an end outside it
// could only point a write over the header or past the data, so it is as good as unreadable.
inline bool ends_in_area(uint32_t head, uint32_t tail, uint64_t file_size) {
    return head >= kStart && tail >= kStart && head <= file_size && tail <= file_size;
}
// The 2-byte record length at offset; -1 when it cannot be read.
int length_at(int fd, off_t offset);

// The head and tail when both are readable and inside the file's record area, else false.
bool read_ends(int fd, uint32_t *head, uint32_t *tail);

// A log file read whole (a log is no larger than its configured size), so that walking its
// records costs no system call each.
class LogBytes {
  public:
    // Reads the open file from its start; false when it cannot be read or memory ran out
    // (raised).
    bool load(int fd);
    const unsigned char *data() const { return data_.get(); }
    size_t size() const { return size_; }
    bool has_magic() const { return size_ >= 4 && memcmp(data(), "KOVA", 4) == 0; }
    // Head and tail when both lie in the record area of the file, as read_ends.
    bool ends(uint32_t *head, uint32_t *tail) const;
    // The 2-byte length at pos; -1 past the end.
    int length_at(uint32_t pos) const { return pos + 2 <= size_ ? get16(data() + pos) : -1; }

  private:
    UniqueMalloc<unsigned char> data_;
    size_t size_ = 0;
};

// Walks the live records of a ring from head to tail: from head up to the end marker and on
// from the record area when the ring has wrapped (head > tail), else from head up to tail.
class RingWalk {
  public:
    enum class Step { kRecord, kEnd, kDamaged };

    RingWalk(const LogBytes &bytes, uint32_t head, uint32_t tail)
        : bytes_(bytes), tail_(tail), pos_(head), first_run_(head > tail), wrapped_(head > tail) {}

    // The next record (at(), length(), record()), the end of the live records, or a damaged
    // record at at(): a length below 2, or one that runs past the tail or the file's end.
    Step next();
    // Moves past the record next() found.
    void advance() { pos_ += length_; }

    uint32_t at() const { return pos_; }
    int length() const { return length_; }
    const unsigned char *record() const { return bytes_.data() + pos_; }
    bool wrapped() const { return wrapped_; }

  private:
    const LogBytes &bytes_;
    uint32_t tail_;
    uint32_t pos_;
    bool first_run_;
    bool wrapped_;
    int length_ = 0;
};

}  // namespace kova::log_file
