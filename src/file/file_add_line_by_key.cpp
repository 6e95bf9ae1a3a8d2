#include "core/fail.h"
#include "file/file_internal.h"

// Inserts text ("%s\n") before the first line of the key, or after it with 0x200. 1; 0 with
// ERR_KEY_NOT_FOUND (the file is left as it was).
int KLIBFileAddLineByKey(const char *szPath, const char *szKey, const char *szText, int flags) {
    if (szPath == nullptr || szKey == nullptr || szText == nullptr || flags < 0)
        return kova::fail(ERR_BAD_PARAMETERS);
    const bool after = (flags & KLIB_FILE_ADD_AFTER) != 0;
    bool done = false;
    auto edit = [&](kova::LineReader &reader, FILE *out) {
        const bool hit = !done && kova::file::has_key(reader.line(), szKey);
        if (!hit) return kova::file::put(out, reader.line()) ? 0 : -1;
        done = true;
        bool ok = true;
        if (!after) ok = kova::file::put_line(out, szText);
        ok = ok && kova::file::put(out, reader.line());
        // A key on a last line without its line feed: the new line still stands on its own.
        if (after) ok = ok && (reader.ends_with_newline() || fputc('\n', out) != EOF);
        if (after) ok = ok && kova::file::put_line(out, szText);
        return ok ? 1 : -1;
    };
    const int rc = kova::file::rewrite_changed_lines(szPath, edit);
    return rc > 0 ? 1 : rc;
}
