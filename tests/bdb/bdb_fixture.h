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

class BdbTest : public SandboxTest {
  protected:
    void SetUp() override { mkdir(path("/tmp").c_str(), 0755); }
    void TearDown() override {
        if (db_ != nullptr) KOVABDbClose(db_);
        KOVABDbFree(key_);
        KOVABDbFree(value_);
    }

    std::string db_path() const { return path("/tmp/test.db"); }

    // Opens (creating) the sandbox's store; the fixture closes it.
    PKOVABDB open_store(int dup_mode = 0) {
        db_ = KOVABDbOpen(db_path().c_str(), O_RDWR | O_CREAT, dup_mode);
        EXPECT_NE(db_, nullptr) << "error 0x" << std::hex << KLIBErrGet();
        return db_;
    }

    int set(const std::string &key, const std::string &value) {
        return KOVABDbSet(db_, key.data(), static_cast<int32_t>(key.size()), value.data(),
                          static_cast<int32_t>(value.size()));
    }

    // The value under key, or "<absent>" with the error code left in the state.
    std::string get(const std::string &key) {
        if (KOVABDbGet(db_, key.data(), static_cast<int32_t>(key.size()), &value_, &cb_value_) !=
            0) {
            return "<absent>";
        }
        return std::string(static_cast<char *>(value_), static_cast<size_t>(cb_value_));
    }

    // One cursor read into the fixture's buffers: "key=value", or "" at a failure.
    std::string cursor_get(int skip_reserved = 1) {
        if (KOVABDbCursorGet(db_, skip_reserved, &key_, &cb_key_, &value_, &cb_value_) != 0) {
            return "";
        }
        return std::string(static_cast<char *>(key_), static_cast<size_t>(cb_key_)) + "=" +
               std::string(static_cast<char *>(value_), static_cast<size_t>(cb_value_));
    }

    // Reads with the cursor until it fails; the failure's code goes to *end_code. Without
    // skipping the store leaves the mode alone, so the walk turns FIRST/LAST onward itself.
    std::vector<std::string> walk(int start_mode, int skip_reserved, uint32_t *end_code) {
        std::vector<std::string> records;
        EXPECT_EQ(KOVABDbCursorSetType(db_, start_mode), 0);
        for (std::string r; !(r = cursor_get(skip_reserved)).empty();) {
            records.push_back(r);
            if (skip_reserved == 0 && start_mode == KOVA_BDB_CURSOR_FIRST) {
                KOVABDbCursorSetType(db_, KOVA_BDB_CURSOR_NEXT);
            }
        }
        *end_code = KLIBErrGet();
        return records;
    }

    PKOVABDB db_ = nullptr;
    void *key_ = nullptr;
    int32_t cb_key_ = 0;
    void *value_ = nullptr;
    int32_t cb_value_ = 0;
};

}  // namespace kova::test
