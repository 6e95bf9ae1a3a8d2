// Thin wrappers of the C library's file calls; results and errno unchanged.
#include <unistd.h>

#include <cstdio>

#include "kovasdk/file.h"

int KLIBSysRemove(const char *szPath) {
    return remove(szPath);
}
int KLIBSysRename(const char *szOld, const char *szNew) {
    return rename(szOld, szNew);
}
int KLIBSysRmdir(const char *szPath) {
    return rmdir(szPath);
}
int KLIBSysUnlink(const char *szPath) {
    return unlink(szPath);
}
