#include <cstring>

#include "core/alloc.h"
#include "core/fail.h"
#include "core/owners.h"
#include "kovasdk/file.h"

// 1 when the key is present with exactly this value; 0 when it differs, is absent, or the file
// cannot be read (the code of the failure is left set).
int BlKOVAFileCheckKeyValue(const char *szPath, const char *szKey, const char *szValue) {
    if (szValue == nullptr) {
        kova::fail(ERR_BAD_PARAMETERS);
        return 0;
    }
    const int needed = KLIBFileGetKeyValue(szPath, szKey, nullptr, 0, 0);
    if (needed <= 0) return 0;
    if (static_cast<size_t>(needed) != strlen(szValue) + 1) return 0;
    kova::UniqueMalloc<char> value(static_cast<char *>(kova::xmalloc(static_cast<size_t>(needed))));
    if (!value) {
        kova::fail(ERR_OUT_OF_MEMORY);
        return 0;
    }
    if (KLIBFileGetKeyValue(szPath, szKey, value.get(), needed, 0) != needed) return 0;
    return strcmp(value.get(), szValue) == 0 ? 1 : 0;
}
