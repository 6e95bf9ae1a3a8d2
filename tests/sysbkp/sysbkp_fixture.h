// What the backup tests share: a sandbox with a backup file path in it, the stand-in service
// scripts' log, and a reader of a file's blocks.
#pragma once

#include <cstdint>
#include <cstring>
#include <string>
#include <utility>
#include <vector>

#include "kovasdk/error.h"
#include "kovasdk/file.h"
#include "kovasdk/sysbkp.h"
#include "support/sandbox.h"

namespace kova::test {

struct Block {
    uint32_t id;
    uint32_t version;
    std::string body;
};

inline uint32_t be32(const std::string &bytes, size_t at) {
    return uint32_t{static_cast<unsigned char>(bytes[at])} << 24 |
           uint32_t{static_cast<unsigned char>(bytes[at + 1])} << 16 |
           uint32_t{static_cast<unsigned char>(bytes[at + 2])} << 8 |
           uint32_t{static_cast<unsigned char>(bytes[at + 3])};
}

inline std::string word(uint32_t n) {
    return {static_cast<char>(n >> 24), static_cast<char>(n >> 16), static_cast<char>(n >> 8),
            static_cast<char>(n)};
}

inline std::string string_item(const std::string &text) {
    return word(1) + word(static_cast<uint32_t>(text.size() + 1)) + text + std::string(1, '\0');
}

inline std::string long_item(uint32_t n) {
    return word(2) + word(4) + word(n);
}

inline std::string block(uint32_t id, const std::string &body) {
    return word(id) + word(2) + word(static_cast<uint32_t>(body.size())) + body;
}

inline std::string file_header(uint32_t mask) {
    return "KOVA" + word(1) + word(mask);
}

// The blocks of a backup file after its 12-byte header; a cut block ends the list.
inline std::vector<Block> blocks_of(const std::string &file) {
    std::vector<Block> blocks;
    for (size_t at = 12; at + 12 <= file.size();) {
        const uint32_t size = be32(file, at + 8);
        if (at + 12 + size > file.size()) break;
        blocks.push_back({be32(file, at), be32(file, at + 4), file.substr(at + 12, size)});
        at += 12 + size;
    }
    return blocks;
}

class SysbkpTest : public SandboxTest {
  protected:
    void TearDown() override { ErrKLIBFileCloseLock(); }
    std::string backup() const { return path("/backup.kbk"); }
    std::string services() const {
        return file_exists(path("/var/log/services.log")) ? read_file(path("/var/log/services.log"))
                                                          : "";
    }
    bool marker_gone() const { return !file_exists(path(KOVA_SYSBKP_IMPORT_MARKER)); }
    // The (type, event key) of every record of the system event log, oldest first: records
    // from offset 16 up to the tail, each a 16-bit length and the key at offset 12, in the
    // byte order of the machine that wrote them.
    std::vector<std::pair<int, uint32_t>> events() const {
        std::vector<std::pair<int, uint32_t>> out;
        if (!file_exists(path("/var/log/kovasys.log"))) return out;
        const std::string log = read_file(path("/var/log/kovasys.log"));
        uint32_t tail = 0;
        if (log.size() < 16) return out;
        memcpy(&tail, log.data() + 12, 4);
        for (size_t at = 16; at + 16 <= tail && at + 16 <= log.size();) {
            uint16_t length = 0, type = 0;
            uint32_t key = 0;
            memcpy(&length, log.data() + at, 2);
            memcpy(&type, log.data() + at + 2, 2);
            memcpy(&key, log.data() + at + 12, 4);
            if (length < 16) break;
            out.emplace_back(type, key);
            at += length;
        }
        return out;
    }
    std::string setting(const char *key) const {
        char value[256] = "";
        KLIBFileGetKeyValue(path("/etc/kovainfo.conf").c_str(), key, value, sizeof value, 0);
        return value;
    }
};

}  // namespace kova::test
