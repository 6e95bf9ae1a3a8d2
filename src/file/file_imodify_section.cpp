#include "core/fail.h"
#include "core/rewrite.h"
#include "file/file_internal.h"

namespace {
constexpr int kLineBadArguments = 66;
constexpr int kLineNotFound = 154;
constexpr kova::RewriteLines kLines{
    .open = 71,
    .stat = 75,
    .not_regular = 79,
    .create = 86,
    .stream = 90,
    .read = 127,
    .flush = 132,
    .sync = 138,
    .close = 142,
    .rename = 147,
};
}  // namespace

int ErrKLIBIFileModifySection(const char *szPath, const char *szSection, const char *szNewName,
                              const KLIBSZHASH *pHash, int blWrite, const char *szFormat) {
    if (szPath == nullptr || szSection == nullptr)
        return kova::fail(ERR_BAD_PARAMETERS, kLineBadArguments);
    kova::Rewrite rewrite(szPath, kLines);
    if (rewrite.open() == kova::Rewrite::Opened::kMissing)
        return kova::fail(ERR_OPEN_FAILED, kLines.open);
    if (rewrite.source() == nullptr) return -1;
    const std::string_view name(szSection);
    const char *header = szNewName != nullptr ? szNewName : szSection;
    bool matched = false;
    bool inside = false;
    const bool copied = rewrite.each_line([&](kova::LineReader &reader) {
        const std::string_view line = reader.line();
        if (kova::file::starts_section(line)) {
            inside = kova::file::match_section(line, name);
            if (inside) {
                // Every section of that name gets a full copy of the pairs.
                matched = true;
                return blWrite == 0 ||
                       ErrKLIBIFileHash2File(rewrite.out(), header, pHash, szFormat) == 0;
            }
        } else if (inside && !kova::file::is_comment(line)) {
            return true;  // the old body; its comments stay, after the new pairs
        }
        return rewrite.put(line);
    });
    // Replaced even when nothing matched; the content is then unchanged (kept).
    if (!copied || !rewrite.commit()) return -1;
    if (!matched) {
        kova::fail(ERR_KEY_NOT_FOUND, kLineNotFound);
        return 0;
    }
    return 1;
}
