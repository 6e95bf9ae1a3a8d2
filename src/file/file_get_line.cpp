#include <cstring>

#include "core/line_reader.h"
#include "core/raise.h"
#include "file/file_internal.h"

int KLIBFileGetLine(const char *szPath, const char *szPattern, char *szBuf, int cbBuf, int flags) {
    if (szPath == nullptr || szPattern == nullptr || szBuf == nullptr || cbBuf <= 0 || flags < 0) {
        kova::raise(ERR_BAD_PARAMETERS, 51);
        return -1;
    }
    kova::UniqueFile in(kova::file::open_for_reading(szPath));
    if (!in) {
        kova::raise(ERR_OPEN_FAILED);
        return -1;
    }
    const size_t size = static_cast<size_t>(cbBuf);
    kova::LineReader reader(in.get());
    size_t length = 0;
    while (reader.next()) {
        if (!kova::file::line_match(reader.line(), szPattern, flags)) continue;
        memset(szBuf, 0, size);
        std::string_view line = reader.line();
        if (line.ends_with('\n')) line.remove_suffix(1);
        length = line.size() + 1;
        if (length <= size) memcpy(szBuf, line.data(), line.size());
        if ((flags & KLIB_FILE_MATCH_LAST) == 0) break;
    }
    if (reader.failed()) {
        kova::raise(reader.failure_code());
        return -1;
    }
    if (length > size) {
        kova::raise(ERR_NOT_ENOUGH_MEMORY, 77);
        return -1;
    }
    if (length == 0) {
        kova::raise(ERR_KEY_NOT_FOUND, 94);
        return 0;
    }
    return static_cast<int>(length);
}
