#include <cstring>

#include "core/fail.h"
#include "file/file_internal.h"

// The whole first line of the key (line feed removed) into the buffer: its length with the NUL;
// 0 with ERR_KEY_NOT_FOUND; -1 with ERR_NOT_ENOUGH_MEMORY when it does not fit.
int KLIBFileGetLineByKey(const char *szPath, const char *szKey, char *szBuf, int cbBuf) {
    if (szPath == nullptr || szKey == nullptr || szBuf == nullptr || cbBuf <= 0)
        return kova::fail(ERR_BAD_PARAMETERS);
    kova::UniqueFile in(kova::file::open_for_reading(szPath));
    if (!in) return kova::fail(ERR_OPEN_FAILED);
    kova::LineReader reader(in.get());
    while (reader.next()) {
        if (!kova::file::has_key(reader.line(), szKey)) continue;
        std::string_view line = reader.line();
        if (line.ends_with('\n')) line.remove_suffix(1);
        if (line.size() + 1 > static_cast<size_t>(cbBuf)) return kova::fail(ERR_NOT_ENOUGH_MEMORY);
        memcpy(szBuf, line.data(), line.size());
        szBuf[line.size()] = '\0';
        return static_cast<int>(line.size() + 1);
    }
    if (reader.failed()) return kova::fail(reader.failure_code());
    kova::fail(ERR_KEY_NOT_FOUND);
    return 0;
}
