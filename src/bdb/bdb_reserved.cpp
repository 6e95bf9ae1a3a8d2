// The reserved records' 4-byte values, shared by their getters and setters.
#include <cstdlib>
#include <cstring>

#include "bdb/bdb_internal.h"

namespace kova::bdb {

int reserved_int_set(PKOVABDB db, const char *key, int32_t key_len, int32_t value) {
    return KOVABDbSet(db, key, key_len, &value, sizeof value);
}

int reserved_int_get(PKOVABDB db, const char *key, int32_t key_len, int32_t **out) {
    if (db == nullptr || out == nullptr) {
        raise(ERR_BAD_PARAMETERS);
        return -1;
    }
    void *buffer = *out;
    int32_t size = 0;  // a buffer already held is refused by the growth rule
    if (KOVABDbGet(db, key, key_len, &buffer, &size) != 0) return -1;
    if (size != sizeof(int32_t)) {  // not written by this layer
        free(buffer);
        raise(ERR_BDB_GET_FAILED);
        return -1;
    }
    *out = static_cast<int32_t *>(buffer);
    return 0;
}

int reserved_int_read(PKOVABDB db, const char *key, int32_t key_len, int32_t *value) {
    int32_t *buffer = nullptr;
    if (reserved_int_get(db, key, key_len, &buffer) != 0) return -1;
    memcpy(value, buffer, sizeof *value);
    free(buffer);
    return 0;
}

}  // namespace kova::bdb
