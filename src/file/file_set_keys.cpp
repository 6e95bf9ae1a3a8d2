#include "core/fail.h"
#include "core/rewrite.h"
#include "file/file_internal.h"
#include "kovasdk/hash.h"

namespace {
constexpr int kLineBadArguments = 183;
// A file that exists but cannot be opened fails at the line of its stat step.
constexpr kova::RewriteLines kLines{
    .open = 188,
    .stat = 188,
    .not_regular = 192,
    .create = 204,
    .stream = 208,
    .read_code = ERR_WRITE_FAILED,
    .flush = 269,
    .sync = 275,
    .close = 279,
    .rename = 284,
};
constexpr mode_t kNewFileMode = 0644;
constexpr int kKeyListSize = 1024;

enum class LineResult { kCopied, kChanged, kFailed };

// One line: dropped when its key is to be removed, rewritten when it is to be set (first line
// of the key only, since the key then leaves the set hash), copied otherwise. The key is looked
// up NUL-terminated in place and the byte after it restored.
LineResult move_line(kova::LineReader &reader, PKLIBSZHASH set, PKLIBSZHASH remove,
                     const char *format, FILE *out) {
    const std::string_view line = kova::trimmed(reader.line());
    const kova::file::KeyValueLine parsed = kova::file::split(line);
    if (line.empty() || kova::file::is_comment(line) || parsed.key.empty()) {
        return kova::file::put(out, reader.line()) ? LineResult::kCopied : LineResult::kFailed;
    }
    char *key = const_cast<char *>(parsed.key.data());
    char *key_end = key + parsed.key.size();
    const char saved = *key_end;
    *key_end = '\0';
    LineResult result = LineResult::kChanged;
    if (remove != nullptr && SzKLIBSzHashGetValue(remove, key) != nullptr) {
        if (SzKLIBSzHashRemoveKey(remove, key) == nullptr) {
            kova::log_at(LOG_ERR, __LINE__, "%s:%d SzKLIBSzHashRemoveKey() szKey=%s", key);
            result = LineResult::kFailed;
        }
    } else if (const char *value = SzKLIBSzHashGetValue(set, key)) {
        if (fprintf(out, format, key, value) < 0) {
            result = LineResult::kFailed;
        } else if (SzKLIBSzHashRemoveKey(set, key) == nullptr) {
            kova::log_at(LOG_ERR, __LINE__, "%s:%d SzKLIBSzHashRemoveKey() szKey=%s", key);
            result = LineResult::kFailed;
        }
    } else {
        result = LineResult::kCopied;
    }
    *key_end = saved;
    if (result == LineResult::kCopied && !kova::file::put(out, reader.line())) {
        result = LineResult::kFailed;
    }
    return result;
}

// The keys left in the set hash, in its enumeration order; empty keys skipped.
int append_keys(PKLIBSZHASH set, const char *format, FILE *out) {
    PKLIBSZLIST keys = PslKLIBSzListAlloc(kKeyListSize);
    if (keys == nullptr || KLIBSzHashEnumKey(set, &keys) < 0) {
        kova::log_at(LOG_ERR, __LINE__, "%s:%d KLIBSzHashEnumKey() failed!");
        KLIBSzListFree(keys);
        return -1;
    }
    int appended = 0;
    for (int i = 0; i < keys->nItem; ++i) {
        const char *key = keys->pszItem[i];
        if (key[0] == '\0') continue;
        if (fprintf(out, format, key, SzKLIBSzHashGetValue(set, key)) < 0) {
            KLIBSzListFree(keys);
            return kova::fail(ERR_WRITE_FAILED);
        }
        ++appended;
    }
    KLIBSzListFree(keys);
    return appended;
}
}  // namespace

int KLIBFileSetKeys(const char *szPath, PKLIBSZHASH pSet, PKLIBSZHASH pRemove,
                    const char *szFormat) {
    if (szPath == nullptr || pSet == nullptr)
        return kova::fail(ERR_BAD_PARAMETERS, kLineBadArguments);
    const char *format = kova::file::format_or_default(szFormat);
    kova::Rewrite rewrite(szPath, kLines);
    switch (rewrite.open()) {
        case kova::Rewrite::Opened::kOk:
            if (!rewrite.start()) return -1;
            break;
        case kova::Rewrite::Opened::kMissing:
            if (!rewrite.start_new(kNewFileMode)) return -1;
            break;
        case kova::Rewrite::Opened::kFailed:
            return -1;
    }
    int count = 0;
    const bool moved = rewrite.each_line([&](kova::LineReader &reader) {
        const LineResult result = move_line(reader, pSet, pRemove, format, rewrite.out());
        if (result == LineResult::kFailed) {
            kova::fail(ERR_WRITE_FAILED, __LINE__,
                       "%s:%d KLIBILineKeyMoveHash2File() failed! szBuf=%s, szFormat=%s",
                       reader.data(), format);
            return false;
        }
        if (result == LineResult::kChanged) ++count;
        return true;
    });
    if (!moved) return -1;
    const int appended = append_keys(pSet, format, rewrite.out());
    if (appended < 0) return -1;
    return rewrite.commit() ? count + appended : -1;
}
