#include "list/list_internal.h"

using namespace kova::list;

PKLIBSZLIST PslKLIBSzListAnd(PKLIBSZLIST pList1, const KLIBSZLIST *pList2, int mode) {
    return kova::list::filter(pList1, pList2, mode, true, kova::list::kLineAndNullList,
                              kova::list::kLineAndModes);
}
