#include "bdb/bdb_internal.h"

// Any difference counts, a file older than the cache as well (restored from a backup).
int KOVABDbIsNeedToRebuild(PKOVABDB pDb, int32_t syncTime) {
    int32_t stored = 0;
    if (kova::bdb::reserved_int_read(pDb, KOVA_BDB_KEY_SYNC_TIME, KOVA_BDB_KEY_SYNC_TIME_LEN,
                                     &stored) != 0) {
        return -1;  // a cache without the record included (kept as it is)
    }
    return stored != syncTime ? 1 : 0;
}
