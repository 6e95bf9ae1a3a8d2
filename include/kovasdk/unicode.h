/* UTF-8 case handling shared by the containers, the settings files and the account caches. */
#ifndef KOVASDK_UNICODE_H
#define KOVASDK_UNICODE_H

#include "export.h"

KOVA_BEGIN_DECLS

/* Compares two UTF-8 texts ignoring case (full case folding): -1, 0 or 1; -2 when either text
 * is null or is not valid UTF-8. No error code is set. */
KOVA_API int KLIBUnicodeUTF8StrCaseCmp(const char *szStr1, const char *szStr2);

/* Upper-cases a UTF-8 text into out (size bytes, NUL included): the output length without its
 * NUL; -1 with ERR_BAD_PARAMETERS for null or invalid input and ERR_NOT_ENOUGH_MEMORY when the
 * result does not fit (out then holds no partial result). out may equal szIn. */
KOVA_API int KLIBUnicodeUTF8StrUpper(const char *szIn, char *out, int size);

KOVA_END_DECLS

#endif /* KOVASDK_UNICODE_H */
