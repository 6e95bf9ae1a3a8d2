#include "core/fail.h"
#include "file/file_internal.h"

// Replaces the first line of the key by text ("%s\n"), or deletes it when text is null; later
// lines of the key stay. 1; 0 with ERR_KEY_NOT_FOUND (the file is left as it was).
int KLIBFileSetLineByKey(const char *szPath, const char *szKey, const char *szText) {
    if (szPath == nullptr || szKey == nullptr) return kova::fail(ERR_BAD_PARAMETERS);
    bool done = false;
    auto edit = [&](kova::LineReader &reader, FILE *out) {
        if (done || !kova::file::has_key(reader.line(), szKey)) {
            return kova::file::put(out, reader.line()) ? 0 : -1;
        }
        done = true;
        return szText == nullptr || kova::file::put_line(out, szText) ? 1 : -1;
    };
    const int rc = kova::file::rewrite_changed_lines(szPath, edit);
    return rc > 0 ? 1 : rc;
}
