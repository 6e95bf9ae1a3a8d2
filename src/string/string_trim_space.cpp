#include <cstring>

#include "core/raise.h"
#include "core/trim.h"
#include "kovasdk/kstring.h"
#include "string/string_internal.h"

int KLIBStrTrimSpace(char *szStr, char *szOut) {
    if (szStr == nullptr) {
        kova::raise(ERR_BAD_PARAMETERS, 104);
        return -1;
    }
    const size_t len = strlen(szStr);
    if (szOut > szStr && szOut < szStr + len) {
        kova::raise(ERR_BAD_PARAMETERS, 112);
        return -1;
    }
    const std::string_view text = kova::trimmed({szStr, len});
    char *dest = szOut != nullptr ? szOut : szStr;
    memmove(dest, text.data(), text.size());
    dest[text.size()] = '\0';
    return static_cast<int>(text.size());
}
