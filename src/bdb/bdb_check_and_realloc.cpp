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
            const int line = __LINE__;  // logged and raised alike
            kova::log(LOG_ERR, "%s:%d NULL == *ppData, NULL == malloc(%d). errno=%d/%m",
                      kova::base_name(__FILE__), line, cbNeed, errno);
            kova::raise(ERR_OUT_OF_MEMORY, line);
            *pcbAlloc = 0;
            return -1;
        }
    } else if (cbNeed > *pcbAlloc) {
        void *grown = kova::xrealloc(*ppData, need);
        if (grown == nullptr) {
            const int line = __LINE__;
            kova::log(LOG_ERR, "%s:%d NULL != *ppData, cbNeed=[%d] > *pcbAlloc=[%d]. errno=%d/%m",
                      kova::base_name(__FILE__), line, cbNeed, *pcbAlloc, errno);
            kova::raise(ERR_OUT_OF_MEMORY, line);
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
