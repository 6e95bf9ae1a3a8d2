#include "core/run.h"
#include "kovasdk/proc.h"

extern "C" KOVA_API int KLIBSystem(const char *szCommand) {
    if (szCommand == nullptr) return 0;
    return kova::run_shell(szCommand);
}
