#include <cstring>

#include "core/raise.h"
#include "kovasdk/kstring.h"
#include "string/string_internal.h"

int KLIBStrInsert(char *szStr, const char *pPos, const char *szText, char *szOut, int cbSize) {
    if (szStr == nullptr || pPos == nullptr || szText == nullptr) {
        kova::raise(ERR_BAD_PARAMETERS);
        return -1;
    }
    const size_t len = strlen(szStr);
    if (pPos < szStr || pPos > szStr + len) {
        kova::raise(ERR_BAD_PARAMETERS);
        return -1;
    }
    if (cbSize < 0 || len + strlen(szText) + 1 > static_cast<size_t>(cbSize)) {
        kova::raise(ERR_NOT_ENOUGH_MEMORY, 54);
        return -1;
    }
    return kova::str::splice(szStr, static_cast<size_t>(pPos - szStr), 0, szText, szOut) ? 1 : -1;
}
