#include <unistd.h>

#include <cerrno>

#include "core/line_reader.h"
#include "core/log.h"
#include "core/raise.h"
#include "core/temp_file.h"
#include "file/file_internal.h"
#include "kovasdk/hash.h"

namespace {
constexpr kova::CommitLines kCommitLines{204, 208, 269, 275, 279, 284};
constexpr mode_t kNewFileMode = 0644;
constexpr int kKeyListSize = 1024;

enum class LineResult { kCopied, kChanged, kFailed };

// One line: dropped when its key is to be removed, rewritten when it is to be set (first line
// of the key only, since the key then leaves the set hash), copied otherwise. The key is looked
// up NUL-terminated in place and the byte after it restored.
LineResult move_line(kova::LineReader &reader, PKLIBSZHASH set, PKLIBSZHASH remove,
                     const char *format, FILE *out) {
    const std::string_view trimmed = kova::file::trim(reader.line());
    const kova::file::KeyValueLine parsed = kova::file::split(trimmed);
    if (trimmed.empty() || kova::file::is_comment(trimmed) || parsed.key.empty()) {
        return kova::file::put(out, reader.line()) ? LineResult::kCopied : LineResult::kFailed;
    }
    char *key = const_cast<char *>(parsed.key.data());
    char *key_end = key + parsed.key.size();
    const char saved = *key_end;
    *key_end = '\0';
    LineResult result = LineResult::kChanged;
    if (remove != nullptr && SzKLIBSzHashGetValue(remove, key) != nullptr) {
        if (SzKLIBSzHashRemoveKey(remove, key) == nullptr) {
            kova::log(LOG_ERR, "%s:%d SzKLIBSzHashRemoveKey() szKey=%s", __FILE_NAME__, __LINE__,
                      key);
            result = LineResult::kFailed;
        }
    } else if (const char *value = SzKLIBSzHashGetValue(set, key)) {
        if (fprintf(out, format, key, value) < 0) {
            result = LineResult::kFailed;
        } else if (SzKLIBSzHashRemoveKey(set, key) == nullptr) {
            kova::log(LOG_ERR, "%s:%d SzKLIBSzHashRemoveKey() szKey=%s", __FILE_NAME__, __LINE__,
                      key);
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
        kova::log(LOG_ERR, "%s:%d KLIBSzHashEnumKey() failed!", __FILE_NAME__, __LINE__);
        KLIBSzListFree(keys);
        return -1;
    }
    int appended = 0;
    for (int i = 0; i < keys->nItem; ++i) {
        const char *key = keys->pszItem[i];
        if (key[0] == '\0') continue;
        if (fprintf(out, format, key, SzKLIBSzHashGetValue(set, key)) < 0) {
            KLIBSzListFree(keys);
            kova::raise(ERR_WRITE_FAILED);
            return -1;
        }
        ++appended;
    }
    KLIBSzListFree(keys);
    return appended;
}
}  // namespace

int KLIBFileSetKeys(const char *szPath, PKLIBSZHASH pSet, PKLIBSZHASH pRemove,
                    const char *szFormat) {
    if (szPath == nullptr || pSet == nullptr) {
        kova::raise(ERR_BAD_PARAMETERS, 183);
        return -1;
    }
    const char *format = kova::file::format_or_default(szFormat);
    kova::file::Source source;
    switch (kova::file::open_source(szPath, &source)) {
        case kova::file::SourceState::kOk:
            break;
        case kova::file::SourceState::kCannotOpen:
            source.st = kova::new_file_owner(kNewFileMode);
            break;
        case kova::file::SourceState::kStatFailed:
            kova::raise(ERR_STAT_FAILED, 188);
            return -1;
        case kova::file::SourceState::kDirectory:
            kova::raise(ERR_OPEN_FAILED, 192);
            return -1;
    }
    kova::TempFile temp;
    if (!temp.create(szPath)) {
        kova::raise_commit_failure(temp, kCommitLines);
        return -1;
    }
    int count = 0;
    if (source.file) {
        kova::LineReader reader(source.file.get());
        while (reader.next()) {
            const LineResult result = move_line(reader, pSet, pRemove, format, temp.stream());
            if (result == LineResult::kFailed) {
                kova::log(LOG_ERR,
                          "%s:%d KLIBILineKeyMoveHash2File() failed! szBuf=%s, szFormat=%s",
                          __FILE_NAME__, __LINE__, reader.data(), format);
                kova::raise(ERR_WRITE_FAILED);
                return -1;
            }
            if (result == LineResult::kChanged) ++count;
        }
        if (reader.failed()) {
            kova::raise(reader.out_of_memory() ? ERR_OUT_OF_MEMORY : ERR_WRITE_FAILED);
            return -1;
        }
    }
    const int appended = append_keys(pSet, format, temp.stream());
    if (appended < 0) return -1;
    if (!temp.commit(source.st)) {
        kova::raise_commit_failure(temp, kCommitLines);
        return -1;
    }
    return count + appended;
}
