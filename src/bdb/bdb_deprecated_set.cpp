#include "bdb/bdb_internal.h"

int KOVABDbDeprecatedSet(PKOVABDB pDb, int32_t value) {
    return kova::bdb::reserved_int_set(pDb, KOVA_BDB_KEY_DEPRECATED, KOVA_BDB_KEY_DEPRECATED_LEN,
                                       value);
}
