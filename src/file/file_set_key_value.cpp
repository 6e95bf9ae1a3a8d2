#include <cstring>

#include "core/line_reader.h"
#include "core/raise.h"
#include "core/temp_file.h"
#include "file/file_internal.h"

namespace {
constexpr kova::CommitLines kCommitLines{105, 109, 151, 157, 161, 166};

int create_file(const char *path, const char *key, const char *value, const char *format) {
    using kova::file::NewFileStep;
    switch (kova::file::write_new_file(
        path, [&](FILE *out) { return fprintf(out, format, key, value) >= 0; })) {
        case NewFileStep::kNone:
            return 1;
        case NewFileStep::kOpen:
            kova::raise(ERR_OPEN_FAILED, 69);
            break;
        case NewFileStep::kWrite:
            kova::raise(ERR_WRITE_FAILED, 73);
            break;
        case NewFileStep::kFlush:
            kova::raise(ERR_WRITE_FAILED, 80);
            break;
        case NewFileStep::kSync:
            kova::raise(ERR_WRITE_FAILED, 84);
            break;
        case NewFileStep::kClose:
            kova::raise(ERR_WRITE_FAILED, 88);
            break;
    }
    return -1;
}
}  // namespace

int KLIBFileSetKeyValue(const char *szPath, const char *szKey, const char *szValue,
                        const char *szFormat) {
    if (szPath == nullptr || szKey == nullptr || szValue == nullptr) {
        kova::raise(ERR_BAD_PARAMETERS, 61);
        return -1;
    }
    const char *format = kova::file::format_or_default(szFormat);
    kova::file::Source source;
    switch (kova::file::open_source(szPath, &source)) {
        case kova::file::SourceState::kOk:
            break;
        case kova::file::SourceState::kCannotOpen:
            return create_file(szPath, szKey, szValue, format);
        case kova::file::SourceState::kStatFailed:
            kova::raise(ERR_STAT_FAILED, 95);
            return -1;
        case kova::file::SourceState::kDirectory:
            kova::raise(ERR_OPEN_FAILED, 99);
            return -1;
    }
    kova::TempFile temp;
    if (!temp.create(szPath)) {
        kova::raise_commit_failure(temp, kCommitLines);
        return -1;
    }
    const std::string_view key(szKey);
    kova::LineReader reader(source.file.get());
    bool replaced = false;
    while (reader.next()) {
        if (!kova::file::has_key(reader.line(), key)) {
            if (!kova::file::put(temp.stream(), reader.line())) {
                kova::raise(ERR_WRITE_FAILED, 133);
                return -1;
            }
            continue;
        }
        if (replaced) continue;  // later lines of the same key are dropped
        replaced = true;
        // The raw key as it stood, spacing and quotes kept.
        char *raw_key = reader.data();
        raw_key[kova::file::split(reader.line()).raw_key.size()] = '\0';
        if (fprintf(temp.stream(), format, raw_key, szValue) < 0) {
            kova::raise(ERR_WRITE_FAILED, 128);
            return -1;
        }
    }
    if (reader.failed()) {
        kova::raise(reader.out_of_memory() ? ERR_OUT_OF_MEMORY : ERR_WRITE_FAILED, 140);
        return -1;
    }
    // Appended right after the last byte, even when the last line lacks its line feed (kept).
    if (!replaced && fprintf(temp.stream(), format, szKey, szValue) < 0) {
        kova::raise(ERR_WRITE_FAILED, 145);
        return -1;
    }
    if (!temp.commit(source.st)) {
        kova::raise_commit_failure(temp, kCommitLines);
        return -1;
    }
    return 1;
}
