#include <cstdlib>

#include "bdb/bdb_internal.h"

int KOVABDbClose(PKOVABDB pDb) {
    if (pDb == nullptr) {
        kova::raise(ERR_BAD_PARAMETERS);
        return -1;
    }
    if (pDb->pDb != nullptr && pDb->pDb->close(pDb->pDb) != 0) {
        kova::bdb::fail_call(kova::bdb::Call::kClose);
    }
    free(pDb);
    return 0;  // even when the close failed: only the error state tells (kept as it is)
}
