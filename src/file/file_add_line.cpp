#include "core/append.h"
#include "core/fail.h"
#include "core/rewrite.h"
#include "file/file_internal.h"

namespace {
constexpr int kLineBadArguments = 72;
constexpr int kLineNotFound = 138;
constexpr int kLineReadFailed = 172;
constexpr kova::RewriteLines kLines{.read = kLineReadFailed};

// A missing file is created holding the line.
int create_file(kova::Rewrite &rewrite, const char *text) {
    const bool created = rewrite.create({}, kova::umask_mode(),
                                        [&](FILE *out) { return kova::file::put_line(out, text); });
    return created ? 1 : -1;
}

// Appends in place: a last line without its line feed gets one first, so that the new line
// stands on its own. A failure leaves the file as it was.
int append_in_place(kova::Rewrite &rewrite, const char *path, const char *text) {
    kova::AppendInPlace file;
    switch (file.open(path)) {
        case kova::sys::Opened::kOk:
            break;
        case kova::sys::Opened::kMissing:
            return create_file(rewrite, text);
        case kova::sys::Opened::kStatFailed:
            return kova::fail(ERR_STAT_FAILED);
        case kova::sys::Opened::kFailed:
        case kova::sys::Opened::kNotRegular:
            return kova::fail(ERR_OPEN_FAILED);
    }
    char last = '\0';
    if (!file.seek_end(&last)) return kova::fail(ERR_SEEK_FAILED);
    const bool newline_first = last != '\0' && last != '\n';
    if ((newline_first && fputc('\n', file.stream()) == EOF) ||
        !kova::file::put_line(file.stream(), text) || !file.finish()) {
        return kova::fail(ERR_WRITE_FAILED);
    }
    return 1;
}
}  // namespace

int KLIBFileAddLine(const char *szPath, const char *szPattern, const char *szText, int flags) {
    if (szPath == nullptr || szText == nullptr || flags < 0)
        return kova::fail(ERR_BAD_PARAMETERS, kLineBadArguments);
    const bool after = (flags & KLIB_FILE_ADD_AFTER) != 0;
    kova::Rewrite rewrite(szPath, kLines);
    if (szPattern == nullptr && after) return append_in_place(rewrite, szPath, szText);
    switch (rewrite.open(O_RDWR)) {
        case kova::Rewrite::Opened::kOk:
            break;
        case kova::Rewrite::Opened::kMissing:
            return create_file(rewrite, szText);
        case kova::Rewrite::Opened::kFailed:
            return -1;
    }
    long position = 1;  // the new line goes before this line
    if (szPattern != nullptr) {
        bool out_of_memory = false;
        const long found =
            kova::file::match_line_number(rewrite.source(), szPattern, flags, &out_of_memory);
        if (found < 0)
            return kova::fail(out_of_memory ? ERR_OUT_OF_MEMORY : ERR_READ_FAILED, kLineReadFailed);
        if (found == 0) {
            kova::fail(ERR_KEY_NOT_FOUND, kLineNotFound);
            return 0;
        }
        position = after ? found + 1 : found;
    }
    bool inserted = false;
    bool ends_with_newline = true;
    const bool copied = rewrite.each_line([&](kova::LineReader &reader) {
        if (reader.number() == position) {
            inserted = true;
            if (!rewrite.print(__LINE__, "%s\n", szText)) return false;
        }
        ends_with_newline = reader.ends_with_newline();
        return rewrite.put(reader.line());
    });
    if (!copied) return -1;
    // Past the last line: appended, on a line of its own.
    if (!inserted && !rewrite.print(__LINE__, "%s%s\n", ends_with_newline ? "" : "\n", szText)) {
        return -1;
    }
    return rewrite.commit() ? 1 : -1;
}
