#include "core/line_reader.h"
#include "core/raise.h"
#include "core/temp_file.h"
#include "file/file_internal.h"

namespace {
constexpr kova::CommitLines kCommitLines{86, 90, 132, 138, 142, 147};
}  // namespace

int ErrKLIBIFileModifySection(const char *szPath, const char *szSection, const char *szNewName,
                              const KLIBSZHASH *pHash, int blWrite, const char *szFormat) {
    if (szPath == nullptr || szSection == nullptr) {
        kova::raise(ERR_BAD_PARAMETERS, 66);
        return -1;
    }
    kova::file::Source source;
    switch (kova::file::open_source(szPath, &source)) {
        case kova::file::SourceState::kOk:
            break;
        case kova::file::SourceState::kCannotOpen:
            kova::raise(ERR_OPEN_FAILED, 71);
            return -1;
        case kova::file::SourceState::kStatFailed:
            kova::raise(ERR_STAT_FAILED, 75);
            return -1;
        case kova::file::SourceState::kDirectory:
            kova::raise(ERR_OPEN_FAILED, 79);
            return -1;
    }
    kova::TempFile temp;
    if (!temp.create(szPath)) {
        kova::raise_commit_failure(temp, kCommitLines);
        return -1;
    }
    const std::string_view name(szSection);
    const char *header = szNewName != nullptr ? szNewName : szSection;
    kova::LineReader reader(source.file.get());
    bool matched = false;
    bool inside = false;
    while (reader.next()) {
        const std::string_view line = reader.line();
        if (kova::file::starts_section(line)) {
            inside = kova::file::match_section(line, name);
            if (inside) {
                // Every section of that name gets a full copy of the pairs.
                matched = true;
                if (blWrite != 0 &&
                    ErrKLIBIFileHash2File(temp.stream(), header, pHash, szFormat) != 0) {
                    return -1;
                }
                continue;
            }
        } else if (inside && !kova::file::is_comment(line)) {
            continue;  // the old body; its comments stay, after the new pairs
        }
        if (!kova::file::put(temp.stream(), line)) {
            kova::raise(ERR_WRITE_FAILED);
            return -1;
        }
    }
    if (reader.failed()) {
        kova::raise(reader.failure_code(), 127);
        return -1;
    }
    // Replaced even when nothing matched; the content is then unchanged (kept).
    if (!temp.commit(source.st)) {
        kova::raise_commit_failure(temp, kCommitLines);
        return -1;
    }
    if (!matched) {
        kova::raise(ERR_KEY_NOT_FOUND, 154);
        return 0;
    }
    return 1;
}
