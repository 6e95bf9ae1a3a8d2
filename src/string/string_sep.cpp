#include "core/raise.h"
#include "string/string_internal.h"

int KLIBStrSep(const char *szStr, const char *szDelim, PKLIBSZLIST *ppList) {
    if (szStr == nullptr || szDelim == nullptr || ppList == nullptr) {
        kova::raise(ERR_BAD_PARAMETERS, 54);
        return -1;
    }
    const int count = kova::str::split(szStr, szDelim, ppList, true);
    if (count < 0) kova::raise(ERR_OUT_OF_MEMORY, 58);
    return count;
}
