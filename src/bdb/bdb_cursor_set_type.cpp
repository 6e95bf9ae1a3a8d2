#include "bdb/bdb_internal.h"

int KOVABDbCursorSetType(PKOVABDB pDb, int mode) {
    if (pDb == nullptr || mode < KOVA_BDB_CURSOR_SET || mode > KOVA_BDB_CURSOR_PREV) {
        kova::raise(ERR_BAD_PARAMETERS);
        return -1;
    }
    pDb->nCursorType = mode;
    return 0;
}
