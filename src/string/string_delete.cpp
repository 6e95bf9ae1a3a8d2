#include "kovasdk/kstring.h"

int KLIBStrDelete(char *szStr, const char *szText, char *szOut, int cbSize) {
    return KLIBStrReplace(szStr, szText, "", szOut, cbSize);
}
