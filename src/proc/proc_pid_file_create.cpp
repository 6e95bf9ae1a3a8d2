#include <fcntl.h>
#include <unistd.h>

#include <cstdio>

#include "core/fail.h"
#include "core/sys.h"
#include "kovasdk/proc.h"

// Written as fopen(path, "w") would, but never through a symlink or into a FIFO or device
// planted at the path.
int KOVAProcPidFileCreate(const char *szPath) {
    if (szPath == nullptr) return kova::fail(ERR_BAD_PARAMETERS);
    int fd = -1;
    struct stat st {};
    if (kova::sys::open_regular(szPath, O_WRONLY | O_CREAT | O_TRUNC | O_NOFOLLOW, &fd, &st,
                                0666) != kova::sys::Opened::kOk) {
        return kova::fail(ERR_OPEN_FAILED);
    }
    FILE *file = fdopen(fd, "w");
    if (file == nullptr) {
        kova::sys::close(fd);
        return kova::fail(ERR_OPEN_FAILED);
    }
    const bool written = fprintf(file, "%u\n", static_cast<unsigned>(getpid())) > 0;
    if (fclose(file) != 0 || !written) return kova::fail(ERR_WRITE_FAILED);
    return 0;
}
