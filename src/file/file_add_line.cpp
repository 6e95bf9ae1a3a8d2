#include <sys/stat.h>
#include <unistd.h>

#include <cstdio>

#include "core/line_reader.h"
#include "core/raise.h"
#include "core/temp_file.h"
#include "file/file_internal.h"

namespace {
constexpr int kReadFailedLine = 172;

int create_file(const char *path, const char *text) {
    const auto step = kova::file::write_new_file(
        path, [&](FILE *out) { return kova::file::put_line(out, text); });
    if (step == kova::file::NewFileStep::kNone) return 1;
    kova::raise(step == kova::file::NewFileStep::kOpen ? ERR_OPEN_FAILED : ERR_WRITE_FAILED);
    return -1;
}

// Appends in place: a last line without its line feed gets one first, so that the new line
// stands on its own.
int append_in_place(FILE *file, const char *text) {
    if (fseek(file, 0, SEEK_END) != 0) {
        kova::raise(ERR_SEEK_FAILED);
        return -1;
    }
    bool needs_newline = false;
    if (ftell(file) > 0) {
        if (fseek(file, -1, SEEK_END) != 0) {
            kova::raise(ERR_SEEK_FAILED);
            return -1;
        }
        const int last = fgetc(file);
        needs_newline = last != '\n';
        fseek(file, 0, SEEK_END);
    }
    if ((needs_newline && fputc('\n', file) == EOF) || !kova::file::put_line(file, text) ||
        fflush(file) != 0 || fsync(fileno(file)) != 0) {
        kova::raise(ERR_WRITE_FAILED);
        return -1;
    }
    return 1;
}
}  // namespace

int KLIBFileAddLine(const char *szPath, const char *szPattern, const char *szText, int flags) {
    if (szPath == nullptr || szText == nullptr || flags < 0) {
        kova::raise(ERR_BAD_PARAMETERS, 72);
        return -1;
    }
    kova::UniqueFile file(fopen(szPath, "r+"));
    if (!file) {
        if (access(szPath, F_OK) != 0) return create_file(szPath, szText);
        kova::raise(ERR_OPEN_FAILED);
        return -1;
    }
    struct stat st {};
    if (fstat(fileno(file.get()), &st) != 0) {
        kova::raise(ERR_STAT_FAILED);
        return -1;
    }
    const bool after = (flags & KLIB_FILE_ADD_AFTER) != 0;
    if (szPattern == nullptr && after) {
        const int rc = append_in_place(file.get(), szText);
        if (fclose(file.release()) != 0 && rc == 1) {
            kova::raise(ERR_WRITE_FAILED);
            return -1;
        }
        return rc;
    }
    long position = 1;  // the new line goes before this line
    if (szPattern != nullptr) {
        bool out_of_memory = false;
        const long found =
            kova::file::match_line_number(file.get(), szPattern, flags, &out_of_memory);
        if (found < 0) {
            kova::raise(out_of_memory ? ERR_OUT_OF_MEMORY : ERR_READ_FAILED, kReadFailedLine);
            return -1;
        }
        if (found == 0) {
            kova::raise(ERR_KEY_NOT_FOUND, 138);
            return 0;
        }
        position = after ? found + 1 : found;
        rewind(file.get());
    }
    kova::TempFile temp;
    if (!temp.create(szPath)) {
        kova::raise_commit_failure(temp, {__LINE__, __LINE__, 0, 0, 0, 0});
        return -1;
    }
    kova::LineReader reader(file.get());
    bool inserted = false;
    bool ends_with_newline = true;
    while (reader.next()) {
        if (reader.number() == position) {
            inserted = true;
            if (!kova::file::put_line(temp.stream(), szText)) {
                kova::raise(ERR_WRITE_FAILED);
                return -1;
            }
        }
        ends_with_newline = reader.ends_with_newline();
        if (!kova::file::put(temp.stream(), reader.line())) {
            kova::raise(ERR_WRITE_FAILED);
            return -1;
        }
    }
    if (reader.failed()) {
        kova::raise(reader.failure_code(), kReadFailedLine);
        return -1;
    }
    // Past the last line: appended, on a line of its own.
    if (!inserted && ((!ends_with_newline && fputc('\n', temp.stream()) == EOF) ||
                      !kova::file::put_line(temp.stream(), szText))) {
        kova::raise(ERR_WRITE_FAILED);
        return -1;
    }
    if (!temp.commit(st)) {
        kova::raise_commit_failure(temp, {0, 0, __LINE__, __LINE__, __LINE__, __LINE__});
        return -1;
    }
    return 1;
}
