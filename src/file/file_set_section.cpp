#include "core/raise.h"
#include "file/file_internal.h"

int ErrKLIBFileSetSection(const char *szPath, const char *szSection, const char *szNewName,
                          const KLIBSZHASH *pHash, const char *szFormat) {
    if (pHash == nullptr) {
        kova::raise(ERR_BAD_PARAMETERS, 42);
        return -1;
    }
    return ErrKLIBIFileModifySection(szPath, szSection, szNewName, pHash, 1, szFormat);
}
