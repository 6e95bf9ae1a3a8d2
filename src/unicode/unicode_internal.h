// UTF-8 text as ICU's UTF-16, converted into a stack buffer when it fits.
#pragma once

#include <unicode/utypes.h>

#include <cstdint>

namespace kova::unicode {

class Utf16 {
  public:
    // Converts text; ok() is false for invalid UTF-8 or when memory ran out.
    explicit Utf16(const char *utf8);
    Utf16(const Utf16 &) = delete;
    Utf16 &operator=(const Utf16 &) = delete;
    ~Utf16();

    bool ok() const { return ok_; }
    const UChar *data() const { return data_; }
    int32_t length() const { return length_; }

  private:
    static constexpr int32_t kInline = 256;
    UChar inline_[kInline];
    UChar *data_ = inline_;
    int32_t length_ = 0;
    bool ok_ = false;
};

}  // namespace kova::unicode
