#include "bdb/bdb_internal.h"

int KOVABDbGet(PKOVABDB pDb, const void *pKey, int32_t cbKey, void **ppData, int32_t *pcbData) {
    if (pDb == nullptr || pKey == nullptr || cbKey <= 0 || ppData == nullptr ||
        pcbData == nullptr) {
        kova::raise(ERR_BAD_PARAMETERS);
        return -1;
    }
    const DBT key = kova::bdb::make_dbt(pKey, static_cast<size_t>(cbKey));
    DBT value{};
    const int rc = pDb->pDb->get(pDb->pDb, &key, &value, 0);
    if (rc == -1) {
        kova::bdb::fail_call(kova::bdb::Call::kGet);
        return -1;
    }
    if (rc != 0) {
        kova::raise(ERR_KEY_NOT_FOUND);
        return -1;
    }
    return DBTCopyOut(&value, ppData, pcbData);
}
