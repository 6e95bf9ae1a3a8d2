#include <cstring>

#include "core/fail.h"
#include "core/line_reader.h"
#include "file/file_internal.h"

namespace {
constexpr int kLineBadArguments = 52;
constexpr int kLineOpen = 56;
constexpr int kLineBufferTooSmall = 88;
constexpr int kLineNotFound = 108;
}  // namespace

int KLIBFileGetKeyValue(const char *szPath, const char *szKey, char *szBuf, int cbBuf, int flags) {
    if (szPath == nullptr || szKey == nullptr || flags < 0 || (szBuf == nullptr && cbBuf != 0))
        return kova::fail(ERR_BAD_PARAMETERS, kLineBadArguments);
    kova::UniqueFile in(kova::file::open_for_reading(szPath));
    if (!in) return kova::fail(ERR_OPEN_FAILED, kLineOpen);
    const std::string_view key(szKey);
    kova::LineReader reader(in.get());
    char *out = szBuf;
    size_t length = 0;
    while (reader.next()) {
        if (kova::file::is_comment(reader.line())) continue;
        const kova::file::KeyValueLine parsed = kova::file::split(reader.line());
        if (parsed.key != key) continue;
        if (!parsed.has_value) {
            // No value: nothing more is copied in this call and the length stays (deliberate).
            out = nullptr;
        } else {
            length = parsed.value.size() + 1;
            if (out != nullptr && cbBuf >= 0 && length <= static_cast<size_t>(cbBuf)) {
                memcpy(out, parsed.value.data(), parsed.value.size());
                out[parsed.value.size()] = '\0';
            }
        }
        if ((flags & KLIB_FILE_MATCH_LAST) == 0) break;
    }
    if (reader.out_of_memory()) return kova::fail(ERR_OUT_OF_MEMORY);
    if (reader.failed()) return kova::fail(ERR_READ_FAILED);
    if (out != nullptr && (cbBuf < 0 || length > static_cast<size_t>(cbBuf)))
        return kova::fail(ERR_NOT_ENOUGH_MEMORY, kLineBufferTooSmall);
    if (length == 0) {
        kova::fail(ERR_KEY_NOT_FOUND, kLineNotFound);
        return 0;
    }
    return static_cast<int>(length);
}
