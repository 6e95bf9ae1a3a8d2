#include "core/fail.h"
#include "core/rewrite.h"
#include "file/file_internal.h"

// Appends format(key, value) as a new last line, whether or not the key is already present; a
// last line without its line feed gets one first. A missing file is created.
int KLIBFileAppendKey(const char *szPath, const char *szKey, const char *szValue,
                      const char *szFormat) {
    if (szPath == nullptr || szKey == nullptr || szValue == nullptr)
        return kova::fail(ERR_BAD_PARAMETERS);
    const char *format = kova::file::format_or_default(szFormat);
    const auto write_pair = [&](FILE *out) { return fprintf(out, format, szKey, szValue) >= 0; };
    kova::Rewrite rewrite(szPath, {});
    switch (rewrite.open()) {
        case kova::Rewrite::Opened::kOk:
            break;
        case kova::Rewrite::Opened::kMissing:
            return rewrite.create({}, kova::umask_mode(), write_pair) ? 1 : -1;
        case kova::Rewrite::Opened::kFailed:
            return -1;
    }
    bool needs_newline = false;
    const bool copied = rewrite.each_line([&](kova::LineReader &reader) {
        needs_newline = !reader.ends_with_newline();
        return rewrite.put(reader.line());
    });
    if (!copied || (needs_newline && !rewrite.put("\n"))) return -1;
    if (!write_pair(rewrite.out())) return kova::fail(ERR_WRITE_FAILED);
    return rewrite.commit() ? 1 : -1;
}
