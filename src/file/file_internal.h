// What the configuration-file operations share: the line syntax, opening the file to rewrite,
// creating a missing file, the lock table's internals and the pattern match.
#pragma once

#include <sys/stat.h>

#include <cstdio>
#include <string_view>

#include "core/line_reader.h"
#include "core/owners.h"
#include "core/temp_file.h"
#include "kovasdk/file.h"
#include "kovasdk/hash.h"

namespace kova::file {

inline const char *format_or_default(const char *format) {
    return format != nullptr ? format : KLIB_FILE_FORMAT_PLAIN;
}

// '#' or ';' in column 0, before any trimming.
inline bool is_comment(std::string_view line) {
    return !line.empty() && (line[0] == '#' || line[0] == ';');
}

// Leading and trailing space, tab, CR and LF removed, then one enclosing pair of double quotes.
std::string_view trim(std::string_view text);

// The line without its line feed (and a CR before it).
std::string_view body_of(std::string_view line);

// One line split at the '=' that ends its key.
struct KeyValueLine {
    std::string_view raw_key;  // the text before that '=' as it stands (the whole body without)
    std::string_view key;      // trimmed
    std::string_view value;    // trimmed; empty when there is none
    bool has_value = false;    // an '=' followed by at least one byte before the line end
};

// The key is the text before the first '='; a leading '=' is skipped and the next piece taken.
KeyValueLine split(std::string_view line);

// A non-comment line whose trimmed key equals key byte for byte.
inline bool has_key(std::string_view line, std::string_view key) {
    return !is_comment(line) && split(line).key == key;
}

// KLIBILineMatch on a line with or without its line feed.
bool line_match(std::string_view line, const char *pattern, int flags);

// The file about to be rewritten, open for reading, with its owner, group and mode.
struct Source {
    UniqueFile file;
    struct stat st {};
};
enum class SourceState { kOk, kCannotOpen, kStatFailed, kDirectory };
SourceState open_source(const char *path, Source *source);

// Writes bytes to the temporary file; false on a short write.
inline bool put(FILE *out, std::string_view bytes) {
    return fwrite(bytes.data(), 1, bytes.size(), out) == bytes.size();
}

// Creating a file that was missing, directly ("w", mode from the umask): the step that failed.
enum class NewFileStep { kNone, kOpen, kWrite, kFlush, kSync, kClose };

// Creates path, lets write fill it (true on success), flushes, syncs and closes it; a file
// created here and not completed is removed again.
template <class Writer>
NewFileStep write_new_file(const char *path, Writer &&write);

NewFileStep finish_new_file(const char *path, FILE *stream, bool written);

template <class Writer>
NewFileStep write_new_file(const char *path, Writer &&write) {
    FILE *stream = fopen(path, "w");
    if (stream == nullptr) return NewFileStep::kOpen;
    return finish_new_file(path, stream, write(stream));
}

}  // namespace kova::file

namespace kova::file {

// The rewrite shared by the operations whose lines are not fixed by the interface: copies path
// to a temporary file, letting edit(line, out) decide what stands in each line's place (-1 a
// write failed, 0 the line was copied, 1 it was changed or dropped), then finish(out) (false on
// a write failure). With no line changed the temporary file is discarded and 0 returned with
// ERR_KEY_NOT_FOUND; otherwise the commit follows and the number of changed lines is returned.
// Failures are raised at the caller's file and line.
template <class Editor, class Finisher>
int rewrite_lines(const char *path, Editor &&edit, Finisher &&finish, bool commit_unchanged,
                  const char *file = __builtin_FILE(), int line = __builtin_LINE());

}  // namespace kova::file

namespace kova::file {

template <class Editor, class Finisher>
int rewrite_lines(const char *path, Editor &&edit, Finisher &&finish, bool commit_unchanged,
                  const char *file, int line) {
    Source source;
    switch (open_source(path, &source)) {
        case SourceState::kOk:
            break;
        case SourceState::kCannotOpen:
            raise(ERR_OPEN_FAILED, line, file);
            return -1;
        case SourceState::kStatFailed:
            raise(ERR_STAT_FAILED, line, file);
            return -1;
        case SourceState::kDirectory:
            raise(ERR_OPEN_FAILED, line, file);
            return -1;
    }
    TempFile temp;
    if (!temp.create(path)) {
        raise_commit_failure(temp, {line, line, line, line, line, line}, file);
        return -1;
    }
    LineReader reader(source.file.get());
    int changed = 0;
    while (reader.next()) {
        const int rc = edit(reader, temp.stream());
        if (rc < 0) {
            raise(ERR_WRITE_FAILED, line, file);
            return -1;
        }
        changed += rc;
    }
    if (reader.failed()) {
        raise(reader.out_of_memory() ? ERR_OUT_OF_MEMORY : ERR_READ_FAILED, line, file);
        return -1;
    }
    if (!finish(reader, temp.stream())) {
        raise(ERR_WRITE_FAILED, line, file);
        return -1;
    }
    if (changed == 0 && !commit_unchanged) {
        raise(ERR_KEY_NOT_FOUND, line, file);
        return 0;
    }
    if (!temp.commit(source.st)) {
        raise_commit_failure(temp, {line, line, line, line, line, line}, file);
        return -1;
    }
    return changed;
}

}  // namespace kova::file

namespace kova::file {

// The number (from 1) of the first matching line of stream, or of the last with
// KLIB_FILE_MATCH_LAST; 0 when none matches; -1 when reading failed (out_of_memory tells why).
long match_line_number(FILE *stream, const char *pattern, int flags, bool *out_of_memory);

// Writes text and a line feed ("%s\n").
inline bool put_line(FILE *out, const char *text) {
    return fprintf(out, "%s\n", text) >= 0;
}

}  // namespace kova::file

namespace kova::file {

// "[" in column 0 and "]" as the last byte before trailing white space (C locale isspace).
bool is_section(std::string_view line);
// A header whose text right after "[" is name, directly followed by "]" and white space only.
bool match_section(std::string_view line, std::string_view name);
// A line that ends a section's body: its first byte is "[".
inline bool starts_section(std::string_view line) {
    return !line.empty() && line[0] == '[';
}

// Sets the pair of one NUL-terminated line into the hash (work is a scratch list); a line that
// is no pair is skipped, leaving the code of KLIBStrSepPair set. False only when the hash could
// not take the pair or memory ran out.
bool set_pair_line(const char *line, PKLIBSZLIST *work, PKLIBSZHASH *hash);

}  // namespace kova::file
