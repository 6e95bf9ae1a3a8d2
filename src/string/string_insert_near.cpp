#include <cstring>

#include "core/raise.h"
#include "kovasdk/kstring.h"
#include "string/string_internal.h"

namespace kova::str {

int insert_near(char *s, const char *needle, const char *text, char *out, int size, bool after) {
    if (s == nullptr || needle == nullptr || text == nullptr) {
        kova::raise(ERR_BAD_PARAMETERS);
        return -1;
    }
    const char *found = strstr(s, needle);
    if (found != nullptr) {
        return KLIBStrInsert(s, after ? found + strlen(needle) : found, text, out, size);
    }
    if (size < 0 || strlen(s) + strlen(text) + 1 > static_cast<size_t>(size)) {
        kova::raise(ERR_NOT_ENOUGH_MEMORY);
        return -1;
    }
    copy_unchanged(s, out);
    return 0;
}

}  // namespace kova::str
