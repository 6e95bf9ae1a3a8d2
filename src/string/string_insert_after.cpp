#include "kovasdk/kstring.h"
#include "string/string_internal.h"

int KLIBStrInsertAfter(char *szStr, const char *szNeedle, const char *szText, char *szOut,
                       int cbSize) {
    return kova::str::insert_near(szStr, szNeedle, szText, szOut, cbSize, true);
}
