#include <fcntl.h>
#include <unistd.h>

#include <cstdio>
#include <cstring>

#include "core/owners.h"
#include "core/raise.h"
#include "core/root.h"
#include "core/run.h"
#include "core/sys.h"
#include "kovasdk/proc.h"
#include "proc/proc_internal.h"

namespace {

// Whether the line is the grep of our own pipeline, or the shell running it.
bool is_own_grep(const char *line, const char *pattern) {
    char bare[kova::proc::kLineSize + 8];
    char quoted[kova::proc::kLineSize + 8];
    snprintf(bare, sizeof bare, "grep %s", pattern);
    snprintf(quoted, sizeof quoted, "grep '%s'", pattern);
    return strstr(line, bare) != nullptr || strstr(line, quoted) != nullptr;
}

// Reads the rest of a line that did not fit into the buffer, so it is not taken as a line.
void skip_rest_of_line(FILE *in, const char *chunk) {
    if (strchr(chunk, '\n') != nullptr) return;
    int c;
    while ((c = fgetc(in)) != EOF && c != '\n') {
    }
}

// The listing file in the world-writable /tmp: made anew and exclusively (a stale one of our
// own is removed first), never through a link planted at its name.
bool create_listing(const char *path) {
    unlink(path);
    const int fd =
        kova::sys::open(path, O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, 0600);
    return fd >= 0 && kova::sys::close(fd) == 0;
}

}  // namespace

namespace kova::proc {
bool is_safe_pattern(const char *pattern) {
    for (const char *p = pattern; *p != '\0'; ++p) {
        const auto c = static_cast<unsigned char>(*p);
        if (c == '\'' || c < 0x20 || c == 0x7f) return false;
    }
    return strlen(pattern) < kLineSize;
}
}  // namespace kova::proc

int KLIBPs(const char *szPattern, int *rgPid, int cMax) {
    if (szPattern == nullptr || !kova::proc::is_safe_pattern(szPattern) || cMax < 0 ||
        (rgPid == nullptr && cMax > 0)) {
        kova::raise(ERR_BAD_PARAMETERS);
        return -1;
    }
    char name[64];
    snprintf(name, sizeof name, kova::proc::kPsTempFile, static_cast<unsigned>(getpid()));
    const kova::RootedPath temp(name);
    if (!create_listing(temp.c_str())) {
        kova::raise(ERR_READ_FAILED, 39);
        return -1;
    }
    kova::ScopeGuard remove_temp([&] { unlink(temp.c_str()); });

    char temp_word[2 * PATH_MAX];
    char command[sizeof temp_word + 2 * sizeof(kova::ProgramPath) + kova::proc::kLineSize];
    const kova::ProgramPath ps(kova::proc::kPs);
    const kova::ProgramPath grep(kova::proc::kGrep);
    if (!kova::shell_word(temp.c_str(), temp_word, sizeof temp_word)) {
        kova::raise(ERR_BAD_PARAMETERS);
        return -1;
    }
    snprintf(command, sizeof command, "%s -awx | %s '%s' > %s 2>&1", ps.shell_word(),
             grep.shell_word(), szPattern, temp_word);
    kova::run_shell(command);

    int fd = -1;
    struct stat st {};
    const bool opened = kova::sys::open_regular(temp.c_str(), O_RDONLY | O_NOFOLLOW, &fd, &st) ==
                        kova::sys::Opened::kOk;
    kova::UniqueFile listing(opened ? fdopen(fd, "r") : nullptr);
    if (!listing) {
        if (opened) close(fd);
        kova::raise(ERR_READ_FAILED, 50);
        return -1;
    }
    int found = 0;
    char line[kova::proc::kLineSize];
    while (fgets(line, sizeof line, listing.get()) != nullptr) {
        skip_rest_of_line(listing.get(), line);
        if (is_own_grep(line, szPattern)) continue;
        int pid = 0;
        if (found < cMax && sscanf(line, "%d", &pid) == 1) rgPid[found] = pid;
        ++found;
    }
    return found;
}
