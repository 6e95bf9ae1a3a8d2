#include <ctime>

#include "bdb/bdb_internal.h"

int KOVABDbDomainExpireTimeSet(PKOVABDB pDb) {
    return kova::bdb::reserved_int_set(pDb, KOVA_BDB_KEY_EXPIRE_TIME, KOVA_BDB_KEY_EXPIRE_TIME_LEN,
                                       static_cast<int32_t>(time(nullptr)));
}
