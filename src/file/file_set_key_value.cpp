#include "core/fail.h"
#include "core/rewrite.h"
#include "file/file_internal.h"

namespace {
constexpr int kLineBadArguments = 61;
constexpr int kLineReplacement = 128;  // writing the replaced line
constexpr int kLineAppend = 145;       // appending the key that no line held

constexpr kova::RewriteLines kLines{
    .open = 69,  // a file that exists but cannot be opened: the create step's line
    .stat = 95,
    .not_regular = 99,
    .create = 105,
    .stream = 109,
    .write = 133,  // copying a line
    .read = 140,
    .read_code = ERR_WRITE_FAILED,
    .flush = 151,
    .sync = 157,
    .close = 161,
    .rename = 166,
};
constexpr kova::CreateLines kCreateLines{
    .open = 69, .write = 73, .flush = 80, .sync = 84, .close = 88};
}  // namespace

int KLIBFileSetKeyValue(const char *szPath, const char *szKey, const char *szValue,
                        const char *szFormat) {
    if (szPath == nullptr || szKey == nullptr || szValue == nullptr)
        return kova::fail(ERR_BAD_PARAMETERS, kLineBadArguments);
    const char *format = kova::file::format_or_default(szFormat);
    const auto write_pair = [&](FILE *out) { return fprintf(out, format, szKey, szValue) >= 0; };
    kova::Rewrite rewrite(szPath, kLines);
    switch (rewrite.open()) {
        case kova::Rewrite::Opened::kOk:
            break;
        case kova::Rewrite::Opened::kMissing:
            return rewrite.create(kCreateLines, kova::umask_mode(), write_pair) ? 1 : -1;
        case kova::Rewrite::Opened::kFailed:
            return -1;
    }
    const std::string_view key(szKey);
    bool replaced = false;
    const bool copied = rewrite.each_line([&](kova::LineReader &reader) {
        if (!kova::file::has_key(reader.line(), key)) return rewrite.put(reader.line());
        if (replaced) return true;  // later lines of the same key are dropped
        replaced = true;
        // The raw key as it stood, spacing and quotes kept.
        char *raw_key = reader.data();
        raw_key[kova::file::split(reader.line()).raw_key.size()] = '\0';
        return rewrite.print(kLineReplacement, format, raw_key, szValue);
    });
    if (!copied) return -1;
    // Appended right after the last byte, even when the last line lacks its line feed (kept).
    if (!replaced && !rewrite.print(kLineAppend, format, szKey, szValue)) return -1;
    return rewrite.commit() ? 1 : -1;
}
