// What the record-store operations share: the library's header, the errno-to-code tables,
// the failure log line and the reserved-record helpers.
#pragma once

// clang-format off: the 1.85 header must come first, it enables DBTSet/DBTCopyOut in ours.
#include <db_185.h>
#include "kovasdk/bdb.h"
// clang-format on

#include <cerrno>
#include <cstddef>
#include <cstdint>

#include "core/fail.h"

namespace kova::bdb {

// The library's calls whose failures are logged and mapped (the text after "db->").
enum class Call { kClose, kGet, kPut, kDel, kSeq };

// The error code for a failed call with this errno; 0 when none is set (close only).
constexpr uint32_t code_for_errno(Call call, int err) {
    if (err == EIO) return ERR_DISK_IO_FAILED;
    if (err == EINTR) return ERR_INTERRUPTED;
    switch (call) {
        case Call::kClose:
            if (err == ENOSPC) return ERR_NOT_ENOUGH_SPACE;
            return err == EROFS ? ERR_READ_ONLY_FS : 0;
        case Call::kPut:
            return err == ENOSPC ? ERR_NOT_ENOUGH_SPACE : ERR_BDB_PUT_FAILED;
        case Call::kDel:
            return err == ENOSPC ? ERR_NOT_ENOUGH_SPACE : ERR_BDB_DEL_FAILED;
        case Call::kGet:
        case Call::kSeq:
            return ERR_BDB_GET_FAILED;
    }
    return 0;
}

constexpr const char *call_name(Call call) {
    switch (call) {
        case Call::kClose:
            return "close";
        case Call::kGet:
            return "get";
        case Call::kPut:
            return "put";
        case Call::kDel:
            return "del";
        case Call::kSeq:
            return "seq";
    }
    return "?";
}

// "%s:%d errno=%d/%m, db->get failed." at LOG_ERR, then the code mapped from errno raised at
// the same line (none for an unmapped close failure).
inline void fail_call(Call call, int line = __builtin_LINE(), const char *file = __builtin_FILE()) {
    const Site site(line, file);
    const int err = errno;
    log_at(LOG_ERR, site, "%s:%d errno=%d/%m, db->%s failed.", err, call_name(call));
    if (const uint32_t code = code_for_errno(call, err); code != 0) fail(code, site);
}

inline bool is_reserved(const void *key, size_t len) {
    return len > 0 && *static_cast<const char *>(key) == KOVA_BDB_RESERVED_PREFIX;
}

// Fills a pair for the library (DBT.data is not const, the library does not write keys).
inline DBT make_dbt(const void *data, size_t size) {
    DBT dbt;
    dbt.data = const_cast<void *>(data);
    dbt.size = size;
    return dbt;
}

// A reserved record holding one 4-byte native integer (the device is big-endian; the records
// are read only by the machine that wrote them, so no conversion).
int reserved_int_set(PKOVABDB db, const char *key, int32_t key_len, int32_t value);
// Hands out a new 4-byte buffer in *out (which must be NULL); ERR_KEY_NOT_FOUND when absent.
int reserved_int_get(PKOVABDB db, const char *key, int32_t key_len, int32_t **out);
// Reads the value into *value without handing out a buffer; 0 or -1 as reserved_int_get.
int reserved_int_read(PKOVABDB db, const char *key, int32_t key_len, int32_t *value);

// Checks a path before dbopen: 0 when the library may have it, else the errno to fail with
// (EINVAL for what is no btree store or no regular file, EISDIR, EEXIST for a creation that
// another file blocks).
int check_store_file(const char *path, int flags, off_t *size);
// The page cache for a store of this size: 0 (the library's default) up to a quarter MiB, the
// file's size (whole MiB) above that, at most 16 MiB.
unsigned cache_size_for(off_t size);
// "<dir>/__db.<name>": where the library writes a new store before renaming it into place.
bool creation_name(const char *path, char *out, size_t size);

// The library's del: 0 deleted, 1 absent (nothing raised), -1 failed (logged and raised).
int delete_key(PKOVABDB db, const void *key, int32_t key_len);

}  // namespace kova::bdb

// A string list as a record: the list block byte for byte, with the string area start, the
// empty item and every item pointer replaced by its offset from the block's start, each in a
// slot of the pointer's own width (byte order and width are the machine's: records are read
// only where they were written).
namespace kova::bdb::list_record {

constexpr size_t kStrStartAt = offsetof(KLIBSZLIST, pszStrStart);
constexpr size_t kEmptyAt = offsetof(KLIBSZLIST, pszEmpty);
constexpr size_t kItemsAt = offsetof(KLIBSZLIST, pszItem);
constexpr size_t kSlot = sizeof(char *);
static_assert(sizeof(uintptr_t) == kSlot, "an offset fills a pointer's slot");

// Lines of the raises and logs of the list-record functions.
constexpr int kLineBadArguments = 39;
constexpr int kLineOutOfMemory = 45;
constexpr int kLinePackFailed = 62;
constexpr int kLineSetFailed = 70;

}  // namespace kova::bdb::list_record
