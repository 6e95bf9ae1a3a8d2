#include <cstdlib>

#include "kovasdk/list.h"

void KLIBSzListFree(PKLIBSZLIST pList) {
    free(pList);
}
