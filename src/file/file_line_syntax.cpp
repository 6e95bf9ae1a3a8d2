// The line syntax shared by every reader and writer of this family.
#include <unistd.h>

#include <cerrno>

#include "file/file_internal.h"

namespace kova::file {

namespace {
constexpr bool is_blank(char c) {
    return c == ' ' || c == '\t' || c == '\r' || c == '\n';
}
}  // namespace

std::string_view trim(std::string_view text) {
    while (!text.empty() && is_blank(text.front()))
        text.remove_prefix(1);
    while (!text.empty() && is_blank(text.back()))
        text.remove_suffix(1);
    if (text.size() > 1 && text.front() == '"' && text.back() == '"') {
        text = text.substr(1, text.size() - 2);
    }
    return text;
}

std::string_view body_of(std::string_view line) {
    if (!line.empty() && line.back() == '\n') line.remove_suffix(1);
    if (!line.empty() && line.back() == '\r') line.remove_suffix(1);
    return line;
}

KeyValueLine split(std::string_view line) {
    const std::string_view body = body_of(line);
    const size_t start = !body.empty() && body[0] == '=' ? 1 : 0;
    const size_t eq = body.find('=', start);
    KeyValueLine parsed;
    if (eq == std::string_view::npos) {
        parsed.raw_key = body;
        parsed.key = trim(body.substr(start));
        return parsed;
    }
    parsed.raw_key = body.substr(0, eq);
    parsed.key = trim(body.substr(start, eq - start));
    const std::string_view rest = body.substr(eq + 1);
    parsed.has_value = !rest.empty();
    parsed.value = trim(rest);
    return parsed;
}

SourceState open_source(const char *path, Source *source) {
    source->file.reset(fopen(path, "r"));
    if (!source->file) return SourceState::kCannotOpen;
    if (fstat(fileno(source->file.get()), &source->st) != 0) return SourceState::kStatFailed;
    if (S_ISDIR(source->st.st_mode)) return SourceState::kDirectory;
    return SourceState::kOk;
}

NewFileStep finish_new_file(const char *path, FILE *stream, bool written) {
    NewFileStep failed = NewFileStep::kNone;
    if (!written) {
        failed = NewFileStep::kWrite;
    } else if (fflush(stream) != 0) {
        failed = NewFileStep::kFlush;
    } else if (fsync(fileno(stream)) != 0) {
        failed = NewFileStep::kSync;
    }
    const int saved = errno;
    if (fclose(stream) != 0 && failed == NewFileStep::kNone) failed = NewFileStep::kClose;
    // The file did not exist before this call: an incomplete one must not stay behind.
    if (failed != NewFileStep::kNone) unlink(path);
    errno = saved;
    return failed;
}

}  // namespace kova::file
