#include <cstring>

#include "core/fail.h"
#include "core/line_reader.h"
#include "file/file_internal.h"

namespace {
constexpr int kLineBadArguments = 51;
constexpr int kLineBufferTooSmall = 77;
constexpr int kLineNotFound = 94;
}  // namespace

int KLIBFileGetLine(const char *szPath, const char *szPattern, char *szBuf, int cbBuf, int flags) {
    if (szPath == nullptr || szPattern == nullptr || szBuf == nullptr || cbBuf <= 0 || flags < 0)
        return kova::fail(ERR_BAD_PARAMETERS, kLineBadArguments);
    kova::UniqueFile in(kova::file::open_for_reading(szPath));
    if (!in) return kova::fail(ERR_OPEN_FAILED);
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
    if (reader.failed()) return kova::fail(reader.failure_code());
    if (length > size) return kova::fail(ERR_NOT_ENOUGH_MEMORY, kLineBufferTooSmall);
    if (length == 0) {
        kova::fail(ERR_KEY_NOT_FOUND, kLineNotFound);
        return 0;
    }
    return static_cast<int>(length);
}
