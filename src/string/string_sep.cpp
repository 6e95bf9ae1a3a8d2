#include "core/raise.h"
#include "string/string_internal.h"

int KLIBStrSep(const char *szStr, const char *szDelim, PKLIBSZLIST *ppList) {
    if (szStr == nullptr || szDelim == nullptr || ppList == nullptr) {
        kova::raise(ERR_BAD_PARAMETERS, 54);
        return -1;
    }
    return kova::str::split(szStr, szDelim, ppList, true, 58);
}
