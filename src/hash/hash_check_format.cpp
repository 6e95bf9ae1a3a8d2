#include <cstring>

#include "kovasdk/hash.h"

namespace {

// The pair formats are caller-given printf formats applied to two strings: anything but "%%"
// and at most two "%s" would read arguments that are not there.
bool takes_two_strings_at_most(const char *format) {
    int strings = 0;
    for (const char *p = strchr(format, '%'); p != nullptr; p = strchr(p + 2, '%')) {
        if (p[1] == 's') {
            ++strings;
        } else if (p[1] != '%') {
            return false;
        }
    }
    return strings <= 2;
}

}  // namespace

int KLIBIFileCheckFormat(const char *szFormat) {
    if (szFormat == nullptr) return 1;
    const char *p = strstr(szFormat, "%s");
    if (p != nullptr) p = strchr(p + 2, '=');
    if (p != nullptr) p = strstr(p + 1, "%s");
    if (p != nullptr) p = strchr(p + 2, '\n');
    return p != nullptr && takes_two_strings_at_most(szFormat) ? 1 : 0;
}
