#include <unistd.h>

#include <cerrno>
#include <cstdlib>

#include "core/raise.h"
#include "kovasdk/file.h"

FILE *KLIBFileTempFileOpen(char *szTemplate) {
    if (szTemplate == nullptr) {
        kova::raise(ERR_BAD_PARAMETERS, 40);
        return nullptr;
    }
    const int fd = mkstemp(szTemplate);
    if (fd < 0) {
        kova::raise(ERR_OPEN_FAILED, 45);
        return nullptr;
    }
    FILE *stream = fdopen(fd, "w");
    if (stream == nullptr) {
        const int saved = errno;
        close(fd);
        unlink(szTemplate);
        errno = saved;
        kova::raise(ERR_OPEN_FAILED, 49);
    }
    return stream;
}
