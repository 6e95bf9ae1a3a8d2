#include <unistd.h>

#include <cstdio>
#include <cstring>

#include "kovasdk/file.h"

namespace {
// Process-wide: every call gets a new suffix.
int g_tmp_counter = 0;
}  // namespace

int KLIBFileITmpName(const char *szBase, char *szDst, int cbDst) {
    if (szBase == nullptr || szDst == nullptr || cbDst <= 0) return -1;
    memset(szDst, 0, static_cast<size_t>(cbDst));
    char suffix[32];
    snprintf(suffix, sizeof suffix, "%d-%d", static_cast<int>(getpid()), ++g_tmp_counter);
    const size_t base_len = strlen(szBase);
    const size_t suffix_len = strlen(suffix);
    if (base_len + suffix_len + 1 > static_cast<size_t>(cbDst)) return -1;
    memcpy(szDst, szBase, base_len);
    memcpy(szDst + base_len, suffix, suffix_len + 1);
    return 0;
}
