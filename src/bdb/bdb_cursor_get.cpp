#include "bdb/bdb_internal.h"

namespace {

u_int seq_flag(int32_t mode) {
    switch (mode) {
        case KOVA_BDB_CURSOR_SET:
            return R_CURSOR;
        case KOVA_BDB_CURSOR_FIRST:
            return R_FIRST;
        case KOVA_BDB_CURSOR_LAST:
            return R_LAST;
        case KOVA_BDB_CURSOR_PREV:
            return R_PREV;
        default:
            return R_NEXT;  // NEXT, and any mode out of range
    }
}

// The mode in which a skipping walk goes on: begun at the first (last) record it continues
// forward (backward) after the first record read, reserved or not, so that reading until the
// end works from either side. SET goes on forward past a reserved record: searching again from
// the reserved key just copied out would find the same record for ever.
int32_t onward_mode(int32_t mode, bool reserved) {
    switch (mode) {
        case KOVA_BDB_CURSOR_FIRST:
            return KOVA_BDB_CURSOR_NEXT;
        case KOVA_BDB_CURSOR_LAST:
            return KOVA_BDB_CURSOR_PREV;
        case KOVA_BDB_CURSOR_SET:
            return reserved ? KOVA_BDB_CURSOR_NEXT : mode;
        default:
            return mode;
    }
}

}  // namespace

int KOVABDbCursorGet(PKOVABDB pDb, int blSkipReserved, void **ppKey, int32_t *pcbKey, void **ppData,
                     int32_t *pcbData) {
    if (pDb == nullptr || ppKey == nullptr || pcbKey == nullptr || ppData == nullptr ||
        pcbData == nullptr) {
        kova::raise(ERR_BAD_PARAMETERS);
        return -1;
    }
    DB *db = pDb->pDb;
    for (;;) {
        DBT key{};
        DBT value{};
        if (pDb->nCursorType == KOVA_BDB_CURSOR_SET) {
            if (*ppKey == nullptr || *pcbKey <= 0) {  // the search key is missing
                kova::raise(ERR_BAD_PARAMETERS);
                return -1;
            }
            key = kova::bdb::make_dbt(*ppKey, static_cast<size_t>(*pcbKey));
        }
        const int rc = db->seq(db, &key, &value, seq_flag(pDb->nCursorType));
        if (rc == -1) {
            kova::bdb::fail_call(kova::bdb::Call::kSeq);
            return -1;
        }
        if (rc == 1) {
            kova::raise(ERR_BDB_END_OF_RECORDS);
            return -1;
        }
        if (rc != 0) continue;

        if (DBTCopyOut(&key, ppKey, pcbKey) != 0 || DBTCopyOut(&value, ppData, pcbData) != 0) {
            return -1;
        }
        if (blSkipReserved != 1) return 0;
        const bool reserved = kova::bdb::is_reserved(*ppKey, static_cast<size_t>(*pcbKey));
        const int32_t onward = onward_mode(pDb->nCursorType, reserved);
        if (onward != pDb->nCursorType) KOVABDbCursorSetType(pDb, onward);
        if (!reserved) return 0;
    }
}
