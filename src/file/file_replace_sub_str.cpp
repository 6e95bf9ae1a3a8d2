#include <cstring>

#include "core/fail.h"
#include "file/file_internal.h"

// Replaces every occurrence of old by new in the lines that are not comments: the number of
// lines changed; 0 with ERR_KEY_NOT_FOUND when old occurs nowhere (the file is left as it was).
int KLIBFileReplaceSubStr(const char *szPath, const char *szOld, const char *szNew) {
    if (szPath == nullptr || szOld == nullptr || szOld[0] == '\0' || szNew == nullptr)
        return kova::fail(ERR_BAD_PARAMETERS);
    const std::string_view old_text(szOld);
    const std::string_view new_text(szNew);
    auto edit = [&](kova::LineReader &reader, FILE *out) {
        std::string_view rest = reader.line();
        if (kova::file::is_comment(rest)) return kova::file::put(out, rest) ? 0 : -1;
        int changed = 0;
        for (size_t at = rest.find(old_text); at != std::string_view::npos;
             at = rest.find(old_text)) {
            if (!kova::file::put(out, rest.substr(0, at)) || !kova::file::put(out, new_text)) {
                return -1;
            }
            rest.remove_prefix(at + old_text.size());
            changed = 1;
        }
        return kova::file::put(out, rest) ? changed : -1;
    };
    return kova::file::rewrite_changed_lines(szPath, edit);
}
