#include <unistd.h>

#include "core/line_reader.h"
#include "core/raise.h"
#include "file/file_internal.h"

// Appends in place, without a temporary file: a reader may see a partly appended section.
int ErrKLIBFileAddSection(const char *szPath, const char *szSection, const KLIBSZHASH *pHash,
                          const char *szFormat) {
    if (szPath == nullptr || szSection == nullptr || pHash == nullptr) {
        kova::raise(ERR_BAD_PARAMETERS, 50);
        return -1;
    }
    kova::UniqueFile file(fopen(szPath, "r+"));
    if (!file) {
        kova::raise(ERR_OPEN_FAILED, 54);
        return -1;
    }
    const std::string_view name(szSection);
    bool ends_with_newline = false;  // an empty file gets an empty first line (kept)
    {
        kova::LineReader reader(file.get());
        while (reader.next()) {
            if (kova::file::match_section(reader.line(), name)) return 0;
            ends_with_newline = reader.ends_with_newline();
        }
        if (reader.failed()) {
            kova::raise(reader.failure_code());
            return -1;
        }
    }
    if (fseek(file.get(), 0, SEEK_END) != 0) {
        kova::raise(ERR_SEEK_FAILED);
        return -1;
    }
    if (!ends_with_newline && fputc('\n', file.get()) == EOF) {
        kova::raise(ERR_WRITE_FAILED, 79);
        return -1;
    }
    if (ErrKLIBIFileHash2File(file.get(), szSection, pHash, szFormat) != 0) return -1;
    if (fflush(file.get()) != 0 || fsync(fileno(file.get())) != 0 || fclose(file.release()) != 0) {
        kova::raise(ERR_WRITE_FAILED);
        return -1;
    }
    return 1;
}
