// What the backup family's files share: the paths, the event keys of each section, the block
// writer every exporter goes through, the item reader every importer goes through, and the
// settings sections made of keys of "/etc/kovainfo.conf".
#pragma once

#include <cstdint>
#include <string>
#include <utility>
#include <vector>

#include "core/fail.h"
#include "kovasdk/sysbkp.h"

namespace kova::sysbkp {

inline constexpr char kHostnameFile[] = "/etc/hostname";
inline constexpr char kServiceDir[] = "/usr/kova/etc/rc.d/";

// The longest string item an importer accepts: nothing the appliance keeps comes near it, and a
// damaged length must not become a huge allocation.
inline constexpr uint32_t kMaxString = 1u << 20;

// Logs format at LOG_ERR with the function's name and the line in front ("%s(%d): ...") and
// raises code at this source file and line. Returns -1.
template <class... Args>
int fail_in(const char *function, uint32_t code, Site site, const char *format, Args... args) {
    log(LOG_ERR, format, function, site.line, args...);
    KLIBErrSetEx(code, site.file, site.line);
    return -1;
}

// Records the section's failure event (system class, type error, four empty arguments).
void record_failure(uint32_t event);

// Writes one block: header with the section's bit, the body written by body(fd) (false on a
// failure it has logged), the size filled in. Logs the framing failures with the caller's
// function name; false on any failure.
template <class Body>
bool write_block(int fd, uint32_t bit, const char *function, Body &&body);
bool begin_block(int fd, uint32_t bit, const char *function, long *start);
bool end_block(int fd, long start, const char *function);

template <class Body>
bool write_block(int fd, uint32_t bit, const char *function, Body &&body) {
    long start = 0;
    return begin_block(fd, bit, function, &start) && body(fd) && end_block(fd, start, function);
}

// Reads a body's items in order; the first failure sticks (later reads return empty values)
// so that a parser can read a whole record and check once.
class ItemReader {
  public:
    explicit ItemReader(int fd) : fd_(fd) {}
    std::string text();
    uint32_t number();
    bool ok() const { return ok_; }
    // True when the body holds nothing more (reading further would meet the end of the file).
    bool at_end();

  private:
    int fd_;
    bool ok_ = true;
};

// The import's cache of restored record counts (gpshSysbkpImported).
void note_restored(const char *desc, int records);

// A settings section: its keys of "/etc/kovainfo.conf". The body is a long (the number of
// pairs) and that many pairs of strings, key and value; a key the appliance does not have is
// not written. The importer accepts only the section's own keys and writes them in one rewrite.
struct KeySection {
    uint32_t bit;
    const char *desc;
    uint32_t export_event;
    uint32_t import_event;
    std::vector<const char *> keys;
};
int export_keys(int fd, const KeySection &section);
int import_keys(int fd, const KeySection &section);

// Settings of "/etc/kovainfo.conf" (under the sandbox root): the value, or "" when absent; the
// bool says whether the key was there. set_settings writes all pairs under the settings lock.
std::pair<bool, std::string> get_setting(const char *key);
bool set_settings(const std::vector<std::pair<std::string, std::string>> &pairs);

// Bodies of the account sections: parse all, then apply (all or nothing for the parse).
int import_users(int fd);
int import_groups(int fd);
int import_shares(int fd);

}  // namespace kova::sysbkp
