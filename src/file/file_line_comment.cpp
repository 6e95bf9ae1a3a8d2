#include "core/fail.h"
#include "file/file_internal.h"

// blComment 1: every line matching the pattern gets '#' in front. blComment 0: every line
// commented with '#' whose text after the '#' matches loses it. The number of lines changed;
// 0 with ERR_KEY_NOT_FOUND when none (the file is left as it was).
int KOVAFileLineComment(const char *szPath, const char *szPattern, int flags, int blComment) {
    if (szPath == nullptr || szPattern == nullptr || flags < 0)
        return kova::fail(ERR_BAD_PARAMETERS);
    auto edit = [&](kova::LineReader &reader, FILE *out) {
        std::string_view line = reader.line();
        int changed = 0;
        if (blComment != 0 && kova::file::line_match(line, szPattern, flags)) {
            if (fputc('#', out) == EOF) return -1;
            changed = 1;
        } else if (blComment == 0 && line.starts_with('#') &&
                   kova::file::line_match(line.substr(1), szPattern, flags)) {
            line.remove_prefix(1);
            changed = 1;
        }
        return kova::file::put(out, line) ? changed : -1;
    };
    return kova::file::rewrite_changed_lines(szPath, edit);
}
