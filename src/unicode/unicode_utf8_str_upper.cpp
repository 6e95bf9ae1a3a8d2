#include <unicode/ucasemap.h>
#include <unicode/ustring.h>

#include <cstring>
#include <memory>

#include "core/alloc.h"
#include "core/owners.h"
#include "core/raise.h"
#include "kovasdk/unicode.h"

namespace {
struct CaseMapCloser {
    void operator()(UCaseMap *map) const { ucasemap_close(map); }
};
}  // namespace

int KLIBUnicodeUTF8StrUpper(const char *szIn, char *out, int size) {
    if (szIn == nullptr || out == nullptr || size <= 0) {
        kova::raise(ERR_BAD_PARAMETERS);
        return -1;
    }
    UErrorCode status = U_ZERO_ERROR;
    // ICU's case mapping copies ill-formed bytes through; the SDK treats them as a failure.
    u_strFromUTF8(nullptr, 0, nullptr, szIn, -1, &status);
    if (status != U_BUFFER_OVERFLOW_ERROR && U_FAILURE(status)) {
        kova::raise(ERR_BAD_PARAMETERS);
        return -1;
    }
    status = U_ZERO_ERROR;
    std::unique_ptr<UCaseMap, CaseMapCloser> map{ucasemap_open("", U_FOLD_CASE_DEFAULT, &status)};
    if (U_FAILURE(status)) {
        kova::raise(ERR_OUT_OF_MEMORY);
        return -1;
    }
    // Measure first, so that a result that does not fit leaves no partial text behind and the
    // input may be the output buffer.
    const int32_t in_len = static_cast<int32_t>(strlen(szIn));
    const int32_t needed = ucasemap_utf8ToUpper(map.get(), nullptr, 0, szIn, in_len, &status);
    if (status == U_BUFFER_OVERFLOW_ERROR) status = U_ZERO_ERROR;
    if (U_FAILURE(status)) {
        kova::raise(ERR_BAD_PARAMETERS);
        return -1;
    }
    if (needed + 1 > size) {
        kova::raise(ERR_NOT_ENOUGH_MEMORY);
        return -1;
    }
    char stack[512];
    kova::UniqueMalloc<char> heap;
    char *dst = stack;
    if (needed + 1 > static_cast<int32_t>(sizeof stack)) {
        heap.reset(static_cast<char *>(kova::xmalloc(static_cast<size_t>(needed) + 1)));
        if (!heap) {
            kova::raise(ERR_OUT_OF_MEMORY);
            return -1;
        }
        dst = heap.get();
    }
    ucasemap_utf8ToUpper(map.get(), dst, needed + 1, szIn, in_len, &status);
    if (U_FAILURE(status)) {
        kova::raise(ERR_BAD_PARAMETERS);
        return -1;
    }
    memcpy(out, dst, static_cast<size_t>(needed) + 1);
    return needed;
}
