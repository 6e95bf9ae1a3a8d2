#include "core/raise.h"
#include "string/string_internal.h"

int KLIBStrTok(const char *szStr, const char *szDelim, PKLIBSZLIST *ppList) {
    if (szStr == nullptr || szDelim == nullptr || ppList == nullptr || *ppList == nullptr) {
        kova::raise(ERR_BAD_PARAMETERS, 101);
        return -1;
    }
    const int count = kova::str::split(szStr, szDelim, ppList, false);
    if (count < 0) kova::raise(ERR_OUT_OF_MEMORY, 106);
    return count;
}
