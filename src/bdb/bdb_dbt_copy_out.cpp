#include <climits>
#include <cstring>

#include "bdb/bdb_internal.h"

int DBTCopyOut(const DBT *pDbt, void **ppData, int32_t *pcbAlloc) {
    if (pDbt == nullptr || pDbt->size > INT32_MAX) {
        kova::raise(ERR_BAD_PARAMETERS);
        return -1;
    }
    const auto size = static_cast<int32_t>(pDbt->size);
    if (KOVACheckAndRealloc(ppData, pcbAlloc, size) != 0) {
        kova::log_at(LOG_ERR, __LINE__, "%s:%d KOVACheckAndRealloc failed. kovaerr=0x%04X",
                     KLIBErrGet());
        return -1;
    }
    // The pair may point into the very buffer (a cursor search key that was found as it is).
    memmove(*ppData, pDbt->data, pDbt->size);
    *pcbAlloc = size;
    return 0;
}
