#include <ctime>

#include "bdb/bdb_internal.h"

int KOVABDbIsNeedToDomainRebuild(PKOVABDB pDb) {
    const auto now = static_cast<int32_t>(time(nullptr));  // before the read, as defined
    if (pDb == nullptr) {
        kova::raise(ERR_BAD_PARAMETERS);
        return 0;
    }
    int32_t filled = 0;
    if (kova::bdb::reserved_int_read(pDb, KOVA_BDB_KEY_EXPIRE_TIME, KOVA_BDB_KEY_EXPIRE_TIME_LEN,
                                     &filled) != 0) {
        return KLIBErrGet() == ERR_KEY_NOT_FOUND ? 1 : 0;
    }
    // Unsigned on purpose: a fill time ahead of the clock (clock set back) also refills.
    const uint32_t age = static_cast<uint32_t>(now) - static_cast<uint32_t>(filled);
    return age > KOVA_BDB_DOMAIN_EXPIRE_SECONDS ? 1 : 0;
}
