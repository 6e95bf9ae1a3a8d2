#include <cstdio>

#include "list/list_internal.h"

void KLIBISzListDump(const KLIBSZLIST *pList) {
    if (pList == nullptr) {
        puts("KLIBSZLIST (null)");
        return;
    }
    printf("KLIBSZLIST %p size=%d count=%d free=%d sort=%d\n", static_cast<const void *>(pList),
           pList->cbSize, pList->nItem, pList->cbFree, pList->nSortMode);
    for (int i = 0; i < pList->nItem; ++i)
        printf("  [%d] \"%s\"\n", i, pList->pszItem[i]);
}
