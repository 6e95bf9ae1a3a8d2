#include "bdb/bdb_internal.h"

int KOVABDbDeprecatedGet(PKOVABDB pDb) {
    int32_t value = 0;
    if (kova::bdb::reserved_int_read(pDb, KOVA_BDB_KEY_DEPRECATED, KOVA_BDB_KEY_DEPRECATED_LEN,
                                     &value) != 0) {
        return -1;
    }
    return value;
}
