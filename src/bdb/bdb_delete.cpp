#include "bdb/bdb_internal.h"

namespace kova::bdb {

int delete_key(PKOVABDB db, const void *key, int32_t key_len) {
    const DBT dbt = make_dbt(key, static_cast<size_t>(key_len));
    const int rc = db->pDb->del(db->pDb, &dbt, 0);
    if (rc == -1) {
        fail_call(Call::kDel);
        return -1;
    }
    return rc == 0 ? 0 : 1;
}

}  // namespace kova::bdb

int KOVABDbDelete(PKOVABDB pDb, const void *pKey, int32_t cbKey) {
    if (pDb == nullptr || pKey == nullptr || cbKey <= 0) {
        kova::raise(ERR_BAD_PARAMETERS);
        return -1;
    }
    const int rc = kova::bdb::delete_key(pDb, pKey, cbKey);
    if (rc == 1) kova::raise(ERR_KEY_NOT_FOUND);
    return rc == 0 ? 0 : -1;
}
