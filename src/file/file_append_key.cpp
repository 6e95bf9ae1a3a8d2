#include <unistd.h>

#include "core/raise.h"
#include "file/file_internal.h"

// Appends format(key, value) as a new last line, whether or not the key is already present; a
// last line without its line feed gets one first. A missing file is created.
int KLIBFileAppendKey(const char *szPath, const char *szKey, const char *szValue,
                      const char *szFormat) {
    if (szPath == nullptr || szKey == nullptr || szValue == nullptr) {
        kova::raise(ERR_BAD_PARAMETERS);
        return -1;
    }
    const char *format = kova::file::format_or_default(szFormat);
    auto write_pair = [&](FILE *out) { return fprintf(out, format, szKey, szValue) >= 0; };
    if (access(szPath, F_OK) != 0) {
        if (kova::file::write_new_file(szPath, write_pair) != kova::file::NewFileStep::kNone) {
            kova::raise(ERR_WRITE_FAILED);
            return -1;
        }
        return 1;
    }
    bool needs_newline = false;
    auto copy = [&](kova::LineReader &reader, FILE *out) {
        needs_newline = !reader.ends_with_newline();
        return kova::file::put(out, reader.line()) ? 0 : -1;
    };
    auto append = [&](kova::LineReader &, FILE *out) {
        return (!needs_newline || fputc('\n', out) != EOF) && write_pair(out);
    };
    return kova::file::rewrite_lines(szPath, copy, append, true) < 0 ? -1 : 1;
}
