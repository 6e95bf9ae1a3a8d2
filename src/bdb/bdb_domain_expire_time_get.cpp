#include "bdb/bdb_internal.h"

int KOVABDbDomainExpireTimeGet(PKOVABDB pDb, int32_t **ppTime) {
    return kova::bdb::reserved_int_get(pDb, KOVA_BDB_KEY_EXPIRE_TIME, KOVA_BDB_KEY_EXPIRE_TIME_LEN,
                                       ppTime);
}
