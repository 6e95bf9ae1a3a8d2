#include "core/run.h"
#include "kovasdk/proc.h"

int KLIBSystem(const char *szCommand) {
    if (szCommand == nullptr) return 0;
    return kova::run_shell(szCommand);
}
