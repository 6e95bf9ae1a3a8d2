#include "core/fail.h"
#include "file/file_internal.h"

// The number (from 1) of the first line matching the pattern, or of the last with 0x1; 0 with
// ERR_KEY_NOT_FOUND when none matches.
int KLIBFileMatchLineNo(const char *szPath, const char *szPattern, int flags) {
    if (szPath == nullptr || szPattern == nullptr || flags < 0)
        return kova::fail(ERR_BAD_PARAMETERS);
    kova::UniqueFile in(kova::file::open_for_reading(szPath));
    if (!in) return kova::fail(ERR_OPEN_FAILED);
    bool out_of_memory = false;
    const long found = kova::file::match_line_number(in.get(), szPattern, flags, &out_of_memory);
    if (found < 0) return kova::fail(out_of_memory ? ERR_OUT_OF_MEMORY : ERR_READ_FAILED);
    if (found == 0) {
        kova::fail(ERR_KEY_NOT_FOUND);
        return 0;
    }
    return static_cast<int>(found);
}
