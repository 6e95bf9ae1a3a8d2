#include "list/list_internal.h"

PKLIBSZLIST PslKLIBSzListAlloc(int cbInit) {
    return kova::list::new_list(cbInit, 42);
}
