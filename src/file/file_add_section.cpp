#include "core/append.h"
#include "core/fail.h"
#include "core/line_reader.h"
#include "file/file_internal.h"

namespace {
constexpr int kLineBadArguments = 50;
constexpr int kLineOpen = 54;
constexpr int kLineNewline = 79;  // the line feed a last line lacked
}  // namespace

// Appends in place, without a temporary file: a reader may see a partly appended section. A
// failure cuts the file back to its old length.
int ErrKLIBFileAddSection(const char *szPath, const char *szSection, const KLIBSZHASH *pHash,
                          const char *szFormat) {
    if (szPath == nullptr || szSection == nullptr || pHash == nullptr)
        return kova::fail(ERR_BAD_PARAMETERS, kLineBadArguments);
    kova::AppendInPlace file;
    if (file.open(szPath) != kova::sys::Opened::kOk) return kova::fail(ERR_OPEN_FAILED, kLineOpen);
    const std::string_view name(szSection);
    {
        kova::LineReader reader(file.stream());
        while (reader.next()) {
            if (kova::file::match_section(reader.line(), name)) return 0;
        }
        if (reader.failed()) return kova::fail(reader.failure_code());
    }
    char last = '\0';
    if (!file.seek_end(&last)) return kova::fail(ERR_SEEK_FAILED);
    // An empty file gets an empty first line (kept).
    if (last != '\n' && fputc('\n', file.stream()) == EOF)
        return kova::fail(ERR_WRITE_FAILED, kLineNewline);
    if (ErrKLIBIFileHash2File(file.stream(), szSection, pHash, szFormat) != 0) return -1;
    if (!file.finish()) return kova::fail(ERR_WRITE_FAILED);
    return 1;
}
