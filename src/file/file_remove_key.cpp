#include "core/fail.h"
#include "core/rewrite.h"
#include "file/file_internal.h"

namespace {
// The interface fixes only the not-found line; a file that cannot be opened sets no code.
constexpr int kLineNotFound = 96;
constexpr kova::RewriteLines kLines{.open = kova::kNoCode};
}  // namespace

int KLIBFileRemoveKey(const char *szPath, const char *szKey) {
    if (szPath == nullptr || szKey == nullptr) return kova::fail(ERR_BAD_PARAMETERS);
    kova::Rewrite rewrite(szPath, kLines);
    if (rewrite.open() != kova::Rewrite::Opened::kOk) return -1;
    const std::string_view key(szKey);
    int removed = 0;
    const bool copied = rewrite.each_line([&](kova::LineReader &reader) {
        if (!kova::file::has_key(reader.line(), key)) return rewrite.put(reader.line());
        ++removed;
        return true;
    });
    if (!copied) return -1;
    if (removed == 0) {
        kova::fail(ERR_KEY_NOT_FOUND, kLineNotFound);
        return 0;
    }
    return rewrite.commit() ? removed : -1;
}
