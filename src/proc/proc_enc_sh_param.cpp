#include "core/raise.h"
#include "core/run.h"
#include "kovasdk/proc.h"

int KLIBEncShParam(const char *szIn, char *szOut, int cbOut) {
    if (szIn == nullptr || szOut == nullptr || cbOut <= 0) {
        kova::raise(ERR_BAD_PARAMETERS);
        return -1;
    }
    if (!kova::shell_escape(szIn, szOut, static_cast<size_t>(cbOut))) {
        kova::raise(ERR_NOT_ENOUGH_MEMORY);
        return -1;
    }
    return 0;
}
