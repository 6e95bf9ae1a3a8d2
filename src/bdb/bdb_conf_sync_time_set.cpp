#include "bdb/bdb_internal.h"

int KOVABDbConfSyncTimeSet(PKOVABDB pDb, int32_t syncTime) {
    return kova::bdb::reserved_int_set(pDb, KOVA_BDB_KEY_SYNC_TIME, KOVA_BDB_KEY_SYNC_TIME_LEN,
                                       syncTime);
}
