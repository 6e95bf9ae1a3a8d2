// Emptying every share's recycle folder ("<path>/#recycle") in a child process of its own,
// whose pid stands in "/tmp/cleanrecycle.pid" while it works.
#include <ftw.h>
#include <sys/wait.h>
#include <unistd.h>

#include <climits>
#include <cstdio>
#include <cstring>

#include "core/root.h"
#include "kovasdk/proc.h"
#include "share/share_internal.h"

namespace {

constexpr char kPidFile[] = "/tmp/cleanrecycle.pid";
const char *g_top = nullptr;  // the recycle folder being emptied (nftw has no context)

int remove_entry(const char *path, const struct stat *, int, struct FTW *) {
    if (strcmp(path, g_top) != 0) remove(path);
    return 0;
}

void clean_all() {
    PKLIBSZLIST names = PslKLIBSzListAlloc(0);
    if (names == nullptr || KOVAShareEnum(&names) < 0) return;
    PKOVASHARE share = nullptr;
    for (int i = 0; i < names->nItem; ++i) {
        if (KOVAShareGet(SzKLIBSzListGet(names, i), &share) != 0) continue;
        char recycle[PATH_MAX];
        const int n = snprintf(recycle, sizeof recycle, "%s/#recycle",
                               kova::RootedPath(share->szPath).c_str());
        if (n < 0 || static_cast<size_t>(n) >= sizeof recycle) continue;
        g_top = recycle;
        nftw(recycle, remove_entry, 16, FTW_DEPTH | FTW_PHYS);
    }
    KOVAShareFree(share);
    KLIBSzListFree(names);
}

}  // namespace

// The cleaning runs in a grandchild, so that nobody has to wait for it; 0 once it is started.
int KOVAShareRecycleClean(void) {
    const pid_t child = fork();
    if (child < 0) return kova::fail(ERR_OUT_OF_MEMORY);  // no process to be had
    if (child == 0) {
        if (fork() != 0) _exit(0);
        const kova::RootedPath pid_file(kPidFile);
        KOVAProcPidFileCreate(pid_file.c_str());
        clean_all();
        unlink(pid_file.c_str());
        _exit(0);
    }
    int status = 0;
    waitpid(child, &status, 0);
    return 0;
}
