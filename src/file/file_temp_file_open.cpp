#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>

#include "core/fail.h"
#include "kovasdk/file.h"

namespace {
constexpr int kLineBadArguments = 40;
constexpr int kLineCreate = 45;
constexpr int kLineStream = 49;
}  // namespace

FILE *KLIBFileTempFileOpen(char *szTemplate) {
    if (szTemplate == nullptr) {
        kova::fail(ERR_BAD_PARAMETERS, kLineBadArguments);
        return nullptr;
    }
    const int fd = mkostemp(szTemplate, O_CLOEXEC);
    if (fd < 0) {
        kova::fail(ERR_OPEN_FAILED, kLineCreate);
        return nullptr;
    }
    FILE *stream = fdopen(fd, "w");
    if (stream == nullptr) {
        const int saved = errno;
        close(fd);
        unlink(szTemplate);
        errno = saved;
        kova::fail(ERR_OPEN_FAILED, kLineStream);
    }
    return stream;
}
