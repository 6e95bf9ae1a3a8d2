#include <cstdlib>

#include "bdb/bdb_internal.h"
#include "core/alloc.h"

int KOVACheckAndRealloc(void **ppData, int32_t *pcbAlloc, int32_t cbNeed) {
    if (ppData == nullptr || pcbAlloc == nullptr || cbNeed <= 0 ||
        (*ppData != nullptr && *pcbAlloc <= 0)) {
        kova::raise(ERR_BAD_PARAMETERS);
        return -1;
    }
    const auto need = static_cast<size_t>(cbNeed);
    if (*ppData == nullptr) {
        *ppData = kova::xcalloc(1, need);
        if (*ppData == nullptr) {
            kova::fail(ERR_OUT_OF_MEMORY, __LINE__,
                       "%s:%d NULL == *ppData, NULL == malloc(%d). errno=%d/%m", cbNeed, errno);
            *pcbAlloc = 0;
            return -1;
        }
    } else if (cbNeed > *pcbAlloc) {
        void *grown = kova::xrealloc(*ppData, need);
        if (grown == nullptr) {
            kova::fail(ERR_OUT_OF_MEMORY, __LINE__,
                       "%s:%d NULL != *ppData, cbNeed=[%d] > *pcbAlloc=[%d]. errno=%d/%m", cbNeed,
                       *pcbAlloc, errno);
            free(*ppData);  // the caller's buffer is gone with a failed growth (as defined)
            *ppData = nullptr;
            *pcbAlloc = 0;
            return -1;
        }
        *ppData = grown;
    } else {
        return 0;  // big enough: nothing changes
    }
    *pcbAlloc = cbNeed;
    return 0;
}
