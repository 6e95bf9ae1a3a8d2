#include "kovasdk/proc.h"

extern "C" KOVA_API int BlKLIBIIsProcAlive(const char *szPattern) {
    return KLIBPs(szPattern, nullptr, 0) > 0 ? 1 : 0;
}
