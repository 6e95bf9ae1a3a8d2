#include "core/fail.h"
#include "core/rewrite.h"
#include "file/file_internal.h"

namespace {
constexpr int kLineFirstPassRead = 106;
constexpr int kLineNotFound = 111;
constexpr kova::RewriteLines kLines{.read = 150};
}  // namespace

int KLIBFileSetLine(const char *szPath, const char *szPattern, const char *szText, int flags) {
    if (szPath == nullptr || szPattern == nullptr || flags < 0)
        return kova::fail(ERR_BAD_PARAMETERS);
    // A missing file is created holding the line (or nothing when it is to be deleted).
    const auto write_line = [&](FILE *out) {
        return szText == nullptr || kova::file::put_line(out, szText);
    };
    kova::Rewrite rewrite(szPath, kLines);
    switch (rewrite.open()) {
        case kova::Rewrite::Opened::kOk:
            break;
        case kova::Rewrite::Opened::kMissing:
            return rewrite.create({}, kova::umask_mode(), write_line) ? 1 : -1;
        case kova::Rewrite::Opened::kFailed:
            return -1;
    }
    bool out_of_memory = false;
    const long target =
        kova::file::match_line_number(rewrite.source(), szPattern, flags, &out_of_memory);
    if (target < 0)
        return kova::fail(out_of_memory ? ERR_OUT_OF_MEMORY : ERR_READ_FAILED, kLineFirstPassRead);
    if (target == 0) {
        kova::fail(ERR_KEY_NOT_FOUND, kLineNotFound);
        return 0;
    }
    const bool copied = rewrite.each_line([&](kova::LineReader &reader) {
        if (reader.number() != target) return rewrite.put(reader.line());
        return szText == nullptr || rewrite.print(__LINE__, "%s\n", szText);
    });
    if (!copied) return -1;
    return rewrite.commit() ? 1 : -1;
}
