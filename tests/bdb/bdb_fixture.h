// A record store in the sandbox, with helpers to read and write string records.
#pragma once

#include <db_185.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <syslog.h>

#include <string>
#include <vector>

#include "kovasdk/bdb.h"
#include "kovasdk/error.h"
#include "support/sandbox.h"

namespace kova::test {

inline std::string bytes(const void *data, int32_t size) {
    return std::string(static_cast<const char *>(data), static_cast<size_t>(size));
}

class BdbTest : public SandboxTest {
  protected:
    void SetUp() override { mkdir(path("/tmp").c_str(), 0755); }
    void TearDown() override {
        if (db_ != nullptr) KOVABDbClose(db_);
        KOVABDbFree(key_);
        KOVABDbFree(value_);
    }

    std::string db_path() const { return path("/tmp/test.db"); }
    // Opens the sandbox's store (created by default); the fixture closes it.
    PKOVABDB open_store(int dup_mode = 0, int flags = O_RDWR | O_CREAT) {
        return db_ = KOVABDbOpen(db_path().c_str(), flags, dup_mode);
    }
    void close_store() {
        EXPECT_EQ(KOVABDbClose(db_), 0);
        db_ = nullptr;
    }

    int set(const std::string &key, const std::string &value) {
        return KOVABDbSet(db_, key.data(), static_cast<int32_t>(key.size()), value.data(),
                          static_cast<int32_t>(value.size()));
    }
    // The value under key, or "<absent>" with the error code left in the state.
    std::string get(const std::string &key) {
        return KOVABDbGet(db_, key.data(), static_cast<int32_t>(key.size()), &value_, &cb_value_) ==
                       0
                   ? bytes(value_, cb_value_)
                   : "<absent>";
    }
    // One cursor read into the fixture's buffers: "key=value", or "" at a failure.
    std::string cursor_get(int skip_reserved = 1) {
        if (KOVABDbCursorGet(db_, skip_reserved, &key_, &cb_key_, &value_, &cb_value_) != 0) {
            return "";
        }
        return bytes(key_, cb_key_) + "=" + bytes(value_, cb_value_);
    }
    // Reads with the cursor until it fails (the code stays in the error state); a walk that
    // never ends stops at 100 records.
    std::vector<std::string> walk(int start_mode, int skip_reserved = 1) {
        std::vector<std::string> records;
        EXPECT_EQ(KOVABDbCursorSetType(db_, start_mode), 0);
        for (std::string r; records.size() < 100 && !(r = cursor_get(skip_reserved)).empty();)
            records.push_back(r);
        return records;
    }

    PKOVABDB db_ = nullptr;
    void *key_ = nullptr;
    int32_t cb_key_ = 0;
    void *value_ = nullptr;
    int32_t cb_value_ = 0;
};

}  // namespace kova::test
