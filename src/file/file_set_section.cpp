#include "core/fail.h"
#include "file/file_internal.h"

namespace {
constexpr int kLineBadArguments = 42;
}  // namespace

int ErrKLIBFileSetSection(const char *szPath, const char *szSection, const char *szNewName,
                          const KLIBSZHASH *pHash, const char *szFormat) {
    if (pHash == nullptr) return kova::fail(ERR_BAD_PARAMETERS, kLineBadArguments);
    return ErrKLIBIFileModifySection(szPath, szSection, szNewName, pHash, 1, szFormat);
}
