#include <cstring>

#include "core/raise.h"
#include "string/string_internal.h"

namespace kova::str {

bool splice(char *s, size_t at, size_t cut, const char *text, char *out) {
    const size_t len = strlen(s);
    const size_t text_len = strlen(text);
    const size_t result = len - cut + text_len;
    const bool in_place = out == nullptr || out == s;
    const bool clash = in_place ? overlaps(text, text_len, s, (len > result ? len : result) + 1)
                                : overlaps(out, result + 1, s, len + 1) ||
                                      overlaps(out, result + 1, text, text_len + 1);
    if (clash) {
        kova::raise(ERR_BAD_PARAMETERS);
        return false;
    }
    if (in_place) {
        memmove(s + at + text_len, s + at + cut, len - at - cut + 1);
        memcpy(s + at, text, text_len);
    } else {
        memcpy(out, s, at);
        memcpy(out + at, text, text_len);
        memcpy(out + at + text_len, s + at + cut, len - at - cut + 1);
    }
    return true;
}

void copy_unchanged(const char *s, char *out) {
    if (out != nullptr && out != s) memmove(out, s, strlen(s) + 1);
}

}  // namespace kova::str
