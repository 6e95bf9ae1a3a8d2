#include "core/fail.h"
#include "file/file_internal.h"

// Comments out every line of the key by putting '#' in front of it: the number of lines
// changed; 0 with ERR_KEY_NOT_FOUND when none (the file is left as it was).
int KLIBFileComment(const char *szPath, const char *szKey) {
    if (szPath == nullptr || szKey == nullptr) return kova::fail(ERR_BAD_PARAMETERS);
    const std::string_view key(szKey);
    auto edit = [&](kova::LineReader &reader, FILE *out) {
        const bool hit = kova::file::has_key(reader.line(), key);
        if (hit && fputc('#', out) == EOF) return -1;
        return kova::file::put(out, reader.line()) ? (hit ? 1 : 0) : -1;
    };
    return kova::file::rewrite_changed_lines(szPath, edit);
}
