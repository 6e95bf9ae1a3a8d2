#include "bdb/bdb_internal.h"

int KOVABDbSet(PKOVABDB pDb, const void *pKey, int32_t cbKey, const void *pData, int32_t cbData) {
    if (pDb == nullptr || pKey == nullptr || cbKey <= 0 || pData == nullptr || cbData <= 0) {
        kova::raise(ERR_BAD_PARAMETERS);
        return -1;
    }
    DB *db = pDb->pDb;
    DBT key = kova::bdb::make_dbt(pKey, static_cast<size_t>(cbKey));
    const DBT value = kova::bdb::make_dbt(pData, static_cast<size_t>(cbData));

    // A reserved record is replaced, never duplicated, even in a duplicate-key btree.
    if (kova::bdb::is_reserved(pKey, key.size) && db->del(db, &key, 0) == -1) {
        kova::log_at(LOG_ERR, __LINE__, "%s:%d errno=%d/%m, db->del failed.", errno);
        return -1;  // no code of its own (kept as it is)
    }
    const int rc = db->put(db, &key, &value, 0);
    if (rc == -1) {
        kova::bdb::fail_call(kova::bdb::Call::kPut);
        return -1;
    }
    return rc == 0 ? 0 : -1;  // 1: the key exists; no code of its own (kept as it is)
}
