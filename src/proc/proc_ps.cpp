#include <unistd.h>

#include <cstdio>
#include <cstring>

#include "core/owners.h"
#include "core/raise.h"
#include "core/root.h"
#include "core/run.h"
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

}  // namespace

extern "C" KOVA_API int KLIBPs(const char *szPattern, int *rgPid, int cMax) {
    // The pattern stands between single quotes in the command: a quote could end them.
    if (szPattern == nullptr || strchr(szPattern, '\'') != nullptr || cMax < 0 ||
        (rgPid == nullptr && cMax > 0) || strlen(szPattern) >= kova::proc::kLineSize) {
        kova::raise(ERR_BAD_PARAMETERS);
        return -1;
    }
    char name[64];
    snprintf(name, sizeof name, kova::proc::kPsTempFile, static_cast<unsigned>(getpid()));
    const kova::RootedPath temp(name);
    {
        kova::UniqueFile created(fopen(temp.c_str(), "w"));
        if (!created) {
            kova::raise(ERR_READ_FAILED, 39);
            return -1;
        }
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

    kova::UniqueFile listing(fopen(temp.c_str(), "r"));
    if (!listing) {
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
