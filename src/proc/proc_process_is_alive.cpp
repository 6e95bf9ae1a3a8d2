#include <cstdio>
#include <cstring>

#include "core/raise.h"
#include "core/run.h"
#include "kovasdk/proc.h"
#include "proc/proc_internal.h"

int BlProcessIsAlive(const char *szName) {
    if (szName == nullptr) {
        kova::raise(ERR_BAD_PARAMETERS);
        return 0;
    }
    const kova::ProgramPath ps(kova::proc::kPs);
    const kova::ProgramPath grep(kova::proc::kGrep);
    char name_word[kova::proc::kCommandSize];
    char command[kova::proc::kCommandSize];
    if (!kova::shell_word(szName, name_word, sizeof name_word)) {
        kova::raise(ERR_BAD_PARAMETERS);
        return 0;
    }
    const int n = snprintf(command, sizeof command, "%s | %s %s | %s -v grep", ps.shell_word(),
                           grep.shell_word(), name_word, grep.shell_word());
    if (n < 0 || n >= static_cast<int>(sizeof command)) {
        kova::raise(ERR_BAD_PARAMETERS);
        return 0;
    }
    FILE *pipe = kova::open_shell_pipe(command);
    if (pipe == nullptr) {
        kova::raise(ERR_OP_FAILURE);
        return 0;
    }
    char line[kova::proc::kLineSize];
    const bool alive = fgets(line, sizeof line, pipe) != nullptr && strstr(line, szName) != nullptr;
    pclose(pipe);
    return alive ? 1 : 0;
}
