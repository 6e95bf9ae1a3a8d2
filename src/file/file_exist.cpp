#include <sys/stat.h>

#include "kovasdk/file.h"

int BlKLIBFileExist(const char *szPath) {
    struct stat st {};
    return szPath != nullptr && stat(szPath, &st) == 0 && S_ISREG(st.st_mode) ? 1 : 0;
}
