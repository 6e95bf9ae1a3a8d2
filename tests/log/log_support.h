// What the event-log tests share: a log fixture in a sandbox root, and an independent reading
// of a log file's bytes (header and live records) to check the library's files against.
#pragma once

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstdint>
#include <cstring>
#include <string>
#include <vector>

#include "core/sys.h"
#include "kovasdk/log.h"
#include "support/sandbox.h"

namespace kova::test {

struct EventRecord {
    uint32_t offset = 0;
    uint16_t length = 0;
    uint16_t type = 0;
    uint32_t time = 0;
    uint32_t key = 0;
    std::string program, user, args[4];
};

struct LogImage {
    bool magic = false;
    uint32_t head = 0, tail = 0;
    std::vector<EventRecord> records;  // live records, oldest first
    bool whole = true;                 // every live record parsed completely
};

inline uint16_t get16(const std::string &b, size_t at) {
    uint16_t v;
    memcpy(&v, b.data() + at, 2);
    return v;
}
inline uint32_t get32(const std::string &b, size_t at) {
    uint32_t v;
    memcpy(&v, b.data() + at, 4);
    return v;
}

// Parses one record at offset (false when it does not fit in the bytes or in itself).
inline bool parse_record(const std::string &b, uint32_t at, EventRecord *r) {
    if (at + 24 > b.size()) return false;
    r->offset = at;
    r->length = get16(b, at);
    r->type = get16(b, at + 2);
    r->time = get32(b, at + 4);
    r->key = get32(b, at + 12);
    const uint16_t lengths[6] = {get16(b, at + 8),  get16(b, at + 10), get16(b, at + 16),
                                 get16(b, at + 18), get16(b, at + 20), get16(b, at + 22)};
    size_t pos = at + 24;
    std::string *out[6] = {&r->program, &r->user,    &r->args[0],
                           &r->args[1], &r->args[2], &r->args[3]};
    for (int i = 0; i < 6; ++i) {
        if (pos + lengths[i] > at + r->length || pos + lengths[i] > b.size()) return false;
        *out[i] = b.substr(pos, lengths[i]);
        pos += lengths[i];
    }
    return pos == at + r->length;
}

// The log as the file format defines it: head to tail, through the end marker when wrapped.
inline LogImage parse_log(const std::string &bytes) {
    LogImage image;
    if (bytes.size() < 16) return image;
    image.magic = bytes.compare(0, 4, "KOVA") == 0;
    image.head = get32(bytes, 8);
    image.tail = get32(bytes, 12);
    uint32_t pos = image.head;
    const bool wrapped = image.head > image.tail;
    auto take = [&](bool until_marker) {
        for (;;) {
            if (!until_marker && pos >= image.tail) return;
            if (pos + 2 > bytes.size()) {
                if (!until_marker) image.whole = false;
                return;
            }
            const uint16_t n = get16(bytes, pos);
            if (n == 0 && until_marker) return;
            EventRecord r;
            if (n < 24 || !parse_record(bytes, pos, &r)) {
                image.whole = false;
                return;
            }
            image.records.push_back(r);
            pos += n;
        }
    };
    if (wrapped) {
        take(true);
        if (!image.whole) return image;
        pos = 16;
    }
    take(false);
    if (pos != image.tail) image.whole = false;
    return image;
}

// The retries' one-second waits, counted and skipped while alive.
class FakeSleep {
  public:
    FakeSleep() {
        count = 0;
        sys::calls().sleep = [](unsigned) -> unsigned {
            ++count;
            return 0;
        };
    }
    ~FakeSleep() { sys::calls().sleep = sys::real_calls().sleep; }
    FakeSleep(const FakeSleep &) = delete;
    FakeSleep &operator=(const FakeSleep &) = delete;
    static inline int count = 0;
};

class LogTest : public SandboxTest {
  protected:
    void SetUp() override {
        saved_program_ = program_invocation_short_name;
        program_invocation_short_name = const_cast<char *>("p");
        setenv("USERNAME", "admin", 1);
        saved_size_ = glogsizeMax;
    }
    void TearDown() override {
        program_invocation_short_name = saved_program_;
        unsetenv("USERNAME");
        glogsizeMax = saved_size_;
    }
    std::string log_path(const char *name = "/var/log/test.log") const { return path(name); }
    LogImage image(const std::string &file) const { return parse_log(read_file(file)); }
    // The reader's text of a log file.
    std::string render(const std::string &file, const char *lang = nullptr) {
        const std::string out = path("/tmp/rendered.txt");
        EXPECT_EQ(KOVALogGet1a(file.c_str(), out.c_str(), lang), 0);
        return read_file(out);
    }

  private:
    char *saved_program_ = nullptr;
    int saved_size_ = 0;
};

}  // namespace kova::test
