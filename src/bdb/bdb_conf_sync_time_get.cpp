#include "bdb/bdb_internal.h"

int KOVABDbConfSyncTimeGet(PKOVABDB pDb, int32_t **ppTime) {
    return kova::bdb::reserved_int_get(pDb, KOVA_BDB_KEY_SYNC_TIME, KOVA_BDB_KEY_SYNC_TIME_LEN,
                                       ppTime);
}
