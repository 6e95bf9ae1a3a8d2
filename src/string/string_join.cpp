#include <climits>
#include <cstring>

#include "core/alloc.h"
#include "core/fail.h"
#include "kovasdk/kstring.h"

namespace {

int fail(uint32_t code, int line, const char *what) {
    return kova::fail(code, line, "%s:%d %s", what);
}

}  // namespace

int KOVAStrJoin(const char *const *rgszStr, int nStr, const char *szSep, char **pszBuf,
                int *pcbBuf) {
    if (rgszStr == nullptr || nStr < 1 || szSep == nullptr || pszBuf == nullptr ||
        pcbBuf == nullptr || (*pszBuf != nullptr && *pcbBuf < 1)) {
        return fail(ERR_BAD_PARAMETERS, 42, "Bad parameters!!");
    }
    const size_t sep_len = strlen(szSep);
    size_t needed = 0;
    for (int i = 0; i < nStr; ++i) {
        if (rgszStr[i] == nullptr) continue;
        needed += strlen(rgszStr[i]) + sep_len;
        if (needed >= INT_MAX) return fail(ERR_OUT_OF_MEMORY, 48, "Out of memory!!");
    }
    if (needed == 0) return fail(ERR_BAD_PARAMETERS, 62, "The input array is empty!!");

    // The reported size covers the texts and separators; the block has one byte more for the
    // NUL, which an empty separator needs.
    const size_t text_len = needed - sep_len;
    if (*pszBuf == nullptr) {
        *pszBuf = static_cast<char *>(kova::xmalloc(needed + 1));
        if (*pszBuf == nullptr) return fail(ERR_OUT_OF_MEMORY, 69, "Out of memory!!");
        *pcbBuf = static_cast<int>(needed);
    } else if (static_cast<size_t>(*pcbBuf) < needed ||
               static_cast<size_t>(*pcbBuf) < text_len + 1) {
        // On failure the caller's buffer stays as it was and stays the caller's to free.
        auto *grown = static_cast<char *>(kova::xrealloc(*pszBuf, needed + 1));
        if (grown == nullptr) return fail(ERR_OUT_OF_MEMORY, 76, "Out of memory!!");
        *pszBuf = grown;
        *pcbBuf = static_cast<int>(needed);
    }
    char *out = *pszBuf;
    bool first = true;
    for (int i = 0; i < nStr; ++i) {
        if (rgszStr[i] == nullptr) continue;
        if (!first) out = stpcpy(out, szSep);
        out = stpcpy(out, rgszStr[i]);
        first = false;
    }
    *out = '\0';
    return 0;
}
