#include "kovasdk/proc.h"

int BlKLIBIIsProcAlive(const char *szPattern) {
    return KLIBPs(szPattern, nullptr, 0) > 0 ? 1 : 0;
}
