#include "core/line_reader.h"
#include "core/raise.h"
#include "core/temp_file.h"
#include "file/file_internal.h"

namespace {
// Lines of the rewrite's steps; the interface fixes only the not-found line.
constexpr int kNotFoundLine = 96;
}  // namespace

int KLIBFileRemoveKey(const char *szPath, const char *szKey) {
    if (szPath == nullptr || szKey == nullptr) {
        kova::raise(ERR_BAD_PARAMETERS);
        return -1;
    }
    kova::file::Source source;
    switch (kova::file::open_source(szPath, &source)) {
        case kova::file::SourceState::kOk:
            break;
        case kova::file::SourceState::kCannotOpen:
            return -1;  // no code of its own (deliberate)
        case kova::file::SourceState::kStatFailed:
            kova::raise(ERR_STAT_FAILED);
            return -1;
        case kova::file::SourceState::kDirectory:
            kova::raise(ERR_OPEN_FAILED);
            return -1;
    }
    kova::TempFile temp;
    if (!temp.create(szPath)) {
        kova::raise_commit_failure(temp, {__LINE__, __LINE__, 0, 0, 0, 0});
        return -1;
    }
    const std::string_view key(szKey);
    kova::LineReader reader(source.file.get());
    int removed = 0;
    while (reader.next()) {
        if (kova::file::has_key(reader.line(), key)) {
            ++removed;
        } else if (!kova::file::put(temp.stream(), reader.line())) {
            kova::raise(ERR_WRITE_FAILED);
            return -1;
        }
    }
    if (reader.failed()) {
        kova::raise(reader.out_of_memory() ? ERR_OUT_OF_MEMORY : ERR_WRITE_FAILED);
        return -1;
    }
    if (removed == 0) {
        kova::raise(ERR_KEY_NOT_FOUND, kNotFoundLine);
        return 0;
    }
    if (!temp.commit(source.st)) {
        kova::raise_commit_failure(temp, {0, 0, __LINE__, __LINE__, __LINE__, __LINE__});
        return -1;
    }
    return removed;
}
