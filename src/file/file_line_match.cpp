#include <cstring>

#include "core/alloc.h"
#include "core/fail.h"
#include "core/owners.h"
#include "file/file_internal.h"
#include "kovasdk/unicode.h"

namespace kova::file {

namespace {
// Upper-cased UTF-8 copy of text; null when the conversion fails. Full case mapping grows a
// text at most threefold.
UniqueMalloc<char> upper_copy(std::string_view text) {
    const size_t size = text.size() * 3 + 4;
    UniqueMalloc<char> copy(static_cast<char *>(xmalloc(size)));
    if (!copy) {
        raise(ERR_OUT_OF_MEMORY);
        return copy;
    }
    memcpy(copy.get(), text.data(), text.size());
    copy.get()[text.size()] = '\0';
    if (KLIBUnicodeUTF8StrUpper(copy.get(), copy.get(), static_cast<int>(size)) < 0) copy.reset();
    return copy;
}

bool compare(std::string_view line, std::string_view pattern, int flags) {
    const bool prefix = (flags & KLIB_FILE_MATCH_PREFIX) != 0;
    const bool suffix = (flags & KLIB_FILE_MATCH_SUFFIX) != 0;
    if (!prefix && !suffix) return line.find(pattern) != std::string_view::npos;
    return (!prefix || line.starts_with(pattern)) && (!suffix || line.ends_with(pattern));
}
}  // namespace

bool line_match(std::string_view line, const char *pattern, int flags) {
    if (is_comment(line)) return false;
    // The suffix is the bytes before the line feed; a last line without one ends at its end.
    if (!line.empty() && line.back() == '\n') line.remove_suffix(1);
    if ((flags & KLIB_FILE_MATCH_NOCASE) == 0) return compare(line, pattern, flags);
    const UniqueMalloc<char> upper_line = upper_copy(line);
    const UniqueMalloc<char> upper_pattern = upper_copy(pattern);
    if (!upper_line || !upper_pattern) return false;
    return compare(upper_line.get(), upper_pattern.get(), flags);
}

}  // namespace kova::file

int KLIBILineMatch(const char *szLine, const char *szPattern, int flags) {
    if (szLine == nullptr || szPattern == nullptr || flags < 0)
        return kova::fail(ERR_BAD_PARAMETERS);
    return kova::file::line_match(szLine, szPattern, flags) ? 1 : 0;
}

namespace kova::file {

long match_line_number(FILE *stream, const char *pattern, int flags, bool *out_of_memory) {
    LineReader reader(stream);
    long found = 0;
    while (reader.next()) {
        if (!line_match(reader.line(), pattern, flags)) continue;
        found = reader.number();
        if ((flags & KLIB_FILE_MATCH_LAST) == 0) break;
    }
    *out_of_memory = reader.out_of_memory();
    return reader.failed() ? -1 : found;
}

}  // namespace kova::file
