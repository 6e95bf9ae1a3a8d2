#include <unicode/ustring.h>

#include <cstdlib>

#include "core/alloc.h"
#include "unicode/unicode_internal.h"

namespace kova::unicode {

Utf16::Utf16(const char *utf8) {
    UErrorCode status = U_ZERO_ERROR;
    u_strFromUTF8(inline_, kInline, &length_, utf8, -1, &status);
    if (status == U_BUFFER_OVERFLOW_ERROR) {
        data_ =
            static_cast<UChar *>(kova::xmalloc((static_cast<size_t>(length_) + 1) * sizeof(UChar)));
        if (data_ == nullptr) return;
        status = U_ZERO_ERROR;
        u_strFromUTF8(data_, length_ + 1, &length_, utf8, -1, &status);
    }
    ok_ = U_SUCCESS(status);
}

Utf16::~Utf16() {
    if (data_ != inline_) free(data_);
}

}  // namespace kova::unicode
