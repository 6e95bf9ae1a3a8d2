// Whether the volume tool is working on a volume: its record in /tmp/webman/modules/volume.
#include <fcntl.h>
#include <sys/stat.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "core/line_reader.h"
#include "core/owners.h"
#include "core/root.h"
#include "core/sys.h"
#include "kovasdk/proc.h"
#include "volume/volume_internal.h"

using namespace kova;
using namespace kova::volume;

namespace {

// key = "value": the key and the value split in place; false for any other line.
bool split(char *line, char **key, char **value) {
    char *p = line + strspn(line, " \t");
    *key = p;
    p += strcspn(p, " \t=");
    char *key_end = p;
    p += strspn(p, " \t");
    if (*p != '=' || key_end == *key) return false;
    *key_end = '\0';
    p += 1 + strspn(p + 1, " \t");
    if (*p != '"') return false;
    *value = ++p;
    char *close = strchr(p, '"');
    if (close == nullptr) return false;
    *close = '\0';
    return true;
}

void take(VOLUME_ACTION &record, const char *key, const char *value) {
    if (strcmp(key, "pid") == 0) {
        record.pid = atoi(value);
    } else if (strcmp(key, "action") == 0) {
        record.action = atoi(value);
    } else if (strcmp(key, "step") == 0) {
        record.step = atoi(value);
    } else if (strcmp(key, "vol_path") == 0) {
        snprintf(record.szVolPath, sizeof record.szVolPath, "%.63s", value);
    }
}

// The record file, opened as one anybody could have placed under /tmp: 1 open, 0 missing, -1.
int open_record(UniqueFile *out) {
    UniqueFd fd(
        sys::open(RootedPath(kActionFile).c_str(), O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC));
    struct stat st {};
    if (fd && (sys::fstat(fd.get(), &st) != 0 || !S_ISREG(st.st_mode))) {
        fd.reset();
        errno = EINVAL;
    }
    if (fd) out->reset(fdopen(fd.get(), "r"));
    if (!*out) {
        if (errno == ENOENT) return 0;
        return fail(ERR_OPEN_FAILED, Site(),
                    "%s:%d Failed to open /tmp/webman/modules/volume errno=%m");
    }
    fd.release();
    return 1;
}

}  // namespace

int VolumeIsActioning(const char *szPath, PVOLUME_ACTION pAction) {
    if (szPath == nullptr) return fail(ERR_BAD_PARAMETERS);
    UniqueFile file;
    const int opened = open_record(&file);
    if (opened <= 0) return opened;
    VOLUME_ACTION record{};
    LineReader reader(file.get());
    while (reader.next()) {
        char *key = nullptr;
        char *value = nullptr;
        if (split(reader.data(), &key, &value)) take(record, key, value);
    }
    if (reader.failed()) return fail(reader.failure_code());
    // A pid of 0 or below would name a process group to kill(), not the tool.
    if (strcmp(record.szVolPath, szPath) != 0 || record.pid <= 0 || !BlKLIBProcAlive(record.pid))
        return 0;
    if (pAction != nullptr) *pAction = record;
    return 1;
}
