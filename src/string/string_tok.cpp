#include "core/raise.h"
#include "string/string_internal.h"

int KLIBStrTok(const char *szStr, const char *szDelim, PKLIBSZLIST *ppList) {
    if (szStr == nullptr || szDelim == nullptr || ppList == nullptr || *ppList == nullptr) {
        kova::raise(ERR_BAD_PARAMETERS, 101);
        return -1;
    }
    return kova::str::split(szStr, szDelim, ppList, false, 106);
}
