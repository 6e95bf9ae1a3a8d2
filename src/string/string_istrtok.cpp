#include <cstring>

#include "kovasdk/kstring.h"

char *KLIBIStrTok(char **ppszCursor, const char *szDelim) {
    if (ppszCursor == nullptr || szDelim == nullptr) return nullptr;
    for (;;) {
        char *token = strsep(ppszCursor, szDelim);
        if (token == nullptr || token[0] != '\0') return token;
    }
}
