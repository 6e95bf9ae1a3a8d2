#include "kovasdk/file.h"

// The setter answers 1 or -1, so the append runs only for a result of 0 that never comes
// (kept as it stands).
int KLIBIFileSetKeyValue(const char *szPath, const char *szKey, const char *szValue,
                         const char *szFormat) {
    const int rc = KLIBFileSetKeyValue(szPath, szKey, szValue, szFormat);
    if (rc != 0) return rc;
    return KLIBFileAppendKey(szPath, szKey, szValue, szFormat);
}
