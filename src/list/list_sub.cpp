#include "list/list_internal.h"

using namespace kova::list;

// The items of list 1 that list 2 lacks.
PKLIBSZLIST PslKLIBSzListSub(PKLIBSZLIST pList1, const KLIBSZLIST *pList2, int mode) {
    return kova::list::filter(pList1, pList2, mode, false, kova::list::kLineSubNullList,
                              kova::list::kLineSubModes);
}
