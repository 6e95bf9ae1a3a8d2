#include <cstring>

#include "core/raise.h"
#include "kovasdk/kstring.h"
#include "string/string_internal.h"

namespace kova::str {

namespace {
bool is_trimmed(char c) {
    return c == ' ' || c == '\t' || c == '\n' || c == '\r';
}
}  // namespace

std::string_view trimmed(std::string_view s) {
    while (!s.empty() && is_trimmed(s.front()))
        s.remove_prefix(1);
    while (!s.empty() && is_trimmed(s.back()))
        s.remove_suffix(1);
    if (s.size() > 1 && s.front() == '"' && s.back() == '"') s = s.substr(1, s.size() - 2);
    return s;
}

}  // namespace kova::str

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
    const std::string_view text = kova::str::trimmed({szStr, len});
    char *dest = szOut != nullptr ? szOut : szStr;
    memmove(dest, text.data(), text.size());
    dest[text.size()] = '\0';
    return static_cast<int>(text.size());
}
