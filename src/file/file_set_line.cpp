#include <cstdio>

#include "core/line_reader.h"
#include "core/raise.h"
#include "core/temp_file.h"
#include "file/file_internal.h"

namespace {
int create_file(const char *path, const char *text) {
    const auto step = kova::file::write_new_file(
        path, [&](FILE *out) { return text == nullptr || kova::file::put_line(out, text); });
    if (step == kova::file::NewFileStep::kNone) return 1;
    kova::raise(step == kova::file::NewFileStep::kOpen ? ERR_OPEN_FAILED : ERR_WRITE_FAILED);
    return -1;
}
}  // namespace

int KLIBFileSetLine(const char *szPath, const char *szPattern, const char *szText, int flags) {
    if (szPath == nullptr || szPattern == nullptr || flags < 0) {
        kova::raise(ERR_BAD_PARAMETERS);
        return -1;
    }
    kova::file::Source source;
    switch (kova::file::open_source(szPath, &source)) {
        case kova::file::SourceState::kOk:
            break;
        case kova::file::SourceState::kCannotOpen:
            return create_file(szPath, szText);
        case kova::file::SourceState::kStatFailed:
            kova::raise(ERR_STAT_FAILED);
            return -1;
        case kova::file::SourceState::kDirectory:
            kova::raise(ERR_OPEN_FAILED);
            return -1;
    }
    bool out_of_memory = false;
    const long target =
        kova::file::match_line_number(source.file.get(), szPattern, flags, &out_of_memory);
    if (target < 0) {
        kova::raise(out_of_memory ? ERR_OUT_OF_MEMORY : ERR_READ_FAILED, 106);
        return -1;
    }
    if (target == 0) {
        kova::raise(ERR_KEY_NOT_FOUND, 111);
        return 0;
    }
    rewind(source.file.get());
    kova::TempFile temp;
    if (!temp.create(szPath)) {
        kova::raise_commit_failure(temp, {__LINE__, __LINE__, 0, 0, 0, 0});
        return -1;
    }
    kova::LineReader reader(source.file.get());
    while (reader.next()) {
        bool written = true;
        if (reader.number() != target) {
            written = kova::file::put(temp.stream(), reader.line());
        } else if (szText != nullptr) {
            written = kova::file::put_line(temp.stream(), szText);
        }
        if (!written) {
            kova::raise(ERR_WRITE_FAILED);
            return -1;
        }
    }
    if (reader.failed()) {
        kova::raise(reader.failure_code(), 150);
        return -1;
    }
    if (!temp.commit(source.st)) {
        kova::raise_commit_failure(temp, {0, 0, __LINE__, __LINE__, __LINE__, __LINE__});
        return -1;
    }
    return 1;
}
