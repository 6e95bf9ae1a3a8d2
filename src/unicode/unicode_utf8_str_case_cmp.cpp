#include <unicode/uchar.h>
#include <unicode/ustring.h>

#include "kovasdk/unicode.h"
#include "unicode/unicode_internal.h"

int KLIBUnicodeUTF8StrCaseCmp(const char *szStr1, const char *szStr2) {
    if (szStr1 == nullptr || szStr2 == nullptr) return -2;
    kova::unicode::Utf16 a(szStr1);
    kova::unicode::Utf16 b(szStr2);
    if (!a.ok() || !b.ok()) return -2;
    UErrorCode status = U_ZERO_ERROR;
    const int32_t order =
        u_strCaseCompare(a.data(), a.length(), b.data(), b.length(),
                         U_FOLD_CASE_DEFAULT | U_COMPARE_CODE_POINT_ORDER, &status);
    if (U_FAILURE(status)) return -2;
    return (order > 0) - (order < 0);
}
