// What the configuration-file operations share: the line syntax, opening a file to read, the
// rewrite of changed lines, the section syntax and the pattern match.
#pragma once

#include <sys/stat.h>

#include <cstdio>
#include <string_view>

#include "core/fail.h"
#include "core/line_reader.h"
#include "core/owners.h"
#include "core/rewrite.h"
#include "core/trim.h"
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

// Opens a file for reading as a stream; a FIFO, device or directory is refused (errno EINVAL or
// EISDIR) instead of blocking or failing later. Null on failure, errno set.
UniqueFile open_for_reading(const char *path);

// Writes bytes to a stream; false on a short write.
inline bool put(FILE *out, std::string_view bytes) {
    return fwrite(bytes.data(), 1, bytes.size(), out) == bytes.size();
}

// The rewrite of the operations that change some lines and have no lines of their own in the
// interface: edit(line, out) writes what stands in the line's place and returns 1 when it
// changed or dropped the line, 0 when it copied it, -1 when a write failed. With no line changed
// the file is left as it was: 0 with ERR_KEY_NOT_FOUND. Otherwise the number of changed lines once
// committed; -1 on failure.
template <class Editor>
int rewrite_changed_lines(const char *path, Editor &&edit, const char *file = __builtin_FILE(),
                          int line = __builtin_LINE()) {
    const RewriteLines lines{.open = line, .stat = line, .not_regular = line, .write = line};
    Rewrite rewrite(path, lines, nullptr, file);
    const Rewrite::Opened opened = rewrite.open(O_RDONLY, line);
    if (opened == Rewrite::Opened::kMissing) KLIBErrSetEx(ERR_OPEN_FAILED, base_name(file), line);
    if (opened != Rewrite::Opened::kOk) return -1;
    int changed = 0;
    const bool copied = rewrite.each_line(
        [&](LineReader &reader) {
            const int rc = edit(reader, rewrite.out());
            if (rc < 0) {
                fail(ERR_WRITE_FAILED, Site(line, file));
                return false;
            }
            changed += rc;
            return true;
        },
        line);
    if (!copied) return -1;
    if (changed == 0) {
        KLIBErrSetEx(ERR_KEY_NOT_FOUND, base_name(file), line);
        return 0;
    }
    return rewrite.commit(line) ? changed : -1;
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
