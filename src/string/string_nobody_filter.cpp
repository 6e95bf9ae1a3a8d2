#include <cstring>

#include "core/raise.h"
#include "kovasdk/kstring.h"

int KOVAStrNobodyFilter(const char *szNames, PKLIBSZLIST *ppList) {
    if (szNames == nullptr || ppList == nullptr) {
        kova::raise(ERR_BAD_PARAMETERS);
        return -1;
    }
    if (szNames[0] == '\0') return 0;
    if (*ppList != nullptr) KLIBSzListRemoveAll(*ppList);
    if (KLIBStrSep(szNames, ",", ppList) < 0) return -1;
    PKLIBSZLIST list = *ppList;
    for (int i = list->nItem - 1; i >= 0; --i) {
        if (strcmp(SzKLIBSzListGet(list, i), "nobody") == 0) SzKLIBSzListRemove(list, i);
    }
    return list->nItem;
}
