#include "bdb/bdb_internal.h"

int DBTSet(DBT *pDbt, const void *pData, int32_t cbData) {
    if (pDbt == nullptr || cbData < 0) {
        kova::raise(ERR_BAD_PARAMETERS);
        return -1;
    }
    *pDbt = kova::bdb::make_dbt(pData, static_cast<size_t>(cbData));
    return 0;
}
