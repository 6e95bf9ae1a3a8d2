#include "bdb/bdb_internal.h"

int KOVABDbDomainExpireTimeDelete(PKOVABDB pDb) {
    if (pDb == nullptr) {
        kova::raise(ERR_BAD_PARAMETERS);
        return -1;
    }
    // A missing record is as good as a deleted one.
    return kova::bdb::delete_key(pDb, KOVA_BDB_KEY_EXPIRE_TIME, KOVA_BDB_KEY_EXPIRE_TIME_LEN) < 0
               ? -1
               : 0;
}
