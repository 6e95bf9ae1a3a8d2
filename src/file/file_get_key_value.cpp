#include <cstring>

#include "core/line_reader.h"
#include "core/raise.h"
#include "file/file_internal.h"

int KLIBFileGetKeyValue(const char *szPath, const char *szKey, char *szBuf, int cbBuf, int flags) {
    if (szPath == nullptr || szKey == nullptr || flags < 0 || (szBuf == nullptr && cbBuf != 0)) {
        kova::raise(ERR_BAD_PARAMETERS, 52);
        return -1;
    }
    kova::UniqueFile in(kova::file::open_for_reading(szPath));
    if (!in) {
        kova::raise(ERR_OPEN_FAILED, 56);
        return -1;
    }
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
    if (reader.out_of_memory()) {
        kova::raise(ERR_OUT_OF_MEMORY);
        return -1;
    }
    if (reader.failed()) {
        kova::raise(ERR_READ_FAILED);
        return -1;
    }
    if (out != nullptr && (cbBuf < 0 || length > static_cast<size_t>(cbBuf))) {
        kova::raise(ERR_NOT_ENOUGH_MEMORY, 88);
        return -1;
    }
    if (length == 0) {
        kova::raise(ERR_KEY_NOT_FOUND, 108);
        return 0;
    }
    return static_cast<int>(length);
}
