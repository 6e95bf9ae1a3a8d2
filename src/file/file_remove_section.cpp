#include "kovasdk/file.h"

int ErrKLIBFileRemoveSection(const char *szPath, const char *szSection) {
    return ErrKLIBIFileModifySection(szPath, szSection, nullptr, nullptr, 0, nullptr);
}
