#include "core/raise.h"
#include "list/list_internal.h"

const char *SzKLIBSzListGet(const KLIBSZLIST *pList, int idx) {
    if (pList == nullptr || idx < 0 || idx >= pList->nItem) {
        kova::raise(ERR_BAD_PARAMETERS, 30);
        return nullptr;
    }
    return pList->pszItem[idx];
}
