// The volume groups of /tmp/lvm.status: one line "VG PV STATE" per physical volume.
#include <fcntl.h>
#include <sys/stat.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "core/alloc.h"
#include "core/line_reader.h"
#include "core/owners.h"
#include "core/root.h"
#include "core/sys.h"
#include "volume/volume_internal.h"

using namespace kova;
using namespace kova::volume;

namespace {

constexpr char kSpace[] = " \t\n";

// The file opened as one that anybody could have placed in /tmp: no link followed, no FIFO
// waited on. A missing file gives an empty owner and no raise.
int open_status(UniqueFile *out) {
    UniqueFd fd(
        sys::open(RootedPath(kLvmStatus).c_str(), O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC));
    if (!fd) return errno == ENOENT ? 0 : fail(ERR_OPEN_FAILED);
    struct stat st {};
    if (sys::fstat(fd.get(), &st) != 0 || !S_ISREG(st.st_mode)) return fail(ERR_OPEN_FAILED);
    out->reset(fdopen(fd.get(), "r"));
    if (!*out) return fail(ERR_OPEN_FAILED);
    fd.release();
    return 0;
}

bool parse_state(const char *word, int *state) {
    if (word == nullptr || word[1] != '\0') return false;
    if (word[0] != '0' + PV_STATE_NORMAL && word[0] != '0' + PV_STATE_MISSING) return false;
    *state = word[0] - '0';
    return true;
}

}  // namespace

namespace kova::volume {

int each_pv(PvVisitor visit, void *context) {
    UniqueFile file;
    if (open_status(&file) != 0) return -1;
    if (!file) return 0;
    LineReader reader(file.get());
    while (reader.next()) {
        char *save = nullptr;
        PvLine line{};
        line.group = strtok_r(reader.data(), kSpace, &save);
        if (line.group == nullptr || line.group[0] == '#') continue;
        line.path = strtok_r(nullptr, kSpace, &save);
        if (line.path == nullptr || !parse_state(strtok_r(nullptr, kSpace, &save), &line.state))
            continue;
        if (strtok_r(nullptr, kSpace, &save) != nullptr) continue;
        if (!visit(line, context)) return 0;
    }
    if (reader.failed()) return fail(reader.failure_code());
    return 0;
}

void vg_info_free(PVG_INFO info) {
    if (info == nullptr) return;
    for (PPV_INFO pv = info->pPVList; pv != nullptr;) {
        PPV_INFO next = pv->pNext;
        free(pv);
        pv = next;
    }
    free(info);
}

int vg_info_get(const char *vg_path, PVG_INFO *out) {
    *out = nullptr;
    if (strncmp(vg_path, "/dev/", 5) != 0) return fail(ERR_BAD_PARAMETERS);
    const char *name = vg_path + 5;
    UniqueMalloc<VG_INFO> info(static_cast<PVG_INFO>(xcalloc(1, sizeof(VG_INFO))));
    if (!info) return fail(ERR_OUT_OF_MEMORY);
    snprintf(info->szName, sizeof info->szName, "%.63s", name);
    snprintf(info->szPath, sizeof info->szPath, "%.127s", vg_path);
    PPV_INFO *tail = &info->pPVList;
    bool listed = false;
    bool out_of_memory = false;
    const int rc = each_pv([&](const PvLine &line) {
        if (strcmp(line.group, name) != 0) return true;
        listed = true;
        auto *pv = static_cast<PPV_INFO>(xcalloc(1, sizeof(PV_INFO)));
        if (pv == nullptr) {
            out_of_memory = true;
            return false;
        }
        snprintf(pv->szPath, sizeof pv->szPath, "%.127s", line.path);
        pv->state = line.state;
        *tail = pv;
        tail = &pv->pNext;
        info->pvCount++;
        return true;
    });
    if (rc != 0 || out_of_memory || !listed) {
        vg_info_free(info.release());
        if (out_of_memory) return fail(ERR_OUT_OF_MEMORY);
        return rc != 0 ? -1 : 0;
    }
    *out = info.release();
    return 1;
}

}  // namespace kova::volume
