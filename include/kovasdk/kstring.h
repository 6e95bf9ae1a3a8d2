/*
 * String utilities: splitting into string lists, trimming, case folding, the colon escape of
 * colon-separated records, hex coding, replacement and insertion, joining.
 *
 * Every function takes an explicit output size and fails with ERR_NOT_ENOUGH_MEMORY rather than
 * truncate; the caller's buffer then holds no partial result. The size checks differ between
 * functions, as noted at each; "cbOut characters" means the buffer needs one more byte for the
 * terminating NUL. Only KOVAStrJoin allocates memory that the caller frees.
 */
#ifndef KOVASDK_KSTRING_H
#define KOVASDK_KSTRING_H

#include "export.h"
#include "list.h"

KOVA_BEGIN_DECLS

/* The next non-empty token of *ppszCursor, cut in place with strsep; null at the end. */
KOVA_API char *KLIBIStrTok(char **ppszCursor, const char *szDelim);
/* Pushes every token of str split at any byte of delim, empty ones included, onto *ppList
 * (a new list when *ppList is null); the number pushed, or -1 (nothing pushed). */
KOVA_API int KLIBStrSep(const char *szStr, const char *szDelim, PKLIBSZLIST *ppList);
/* As KLIBStrSep, skipping empty tokens; *ppList must exist. */
KOVA_API int KLIBStrTok(const char *szStr, const char *szDelim, PKLIBSZLIST *ppList);
/* Splits a "key=value" line at its first "=" and pushes the trimmed key, then the trimmed
 * value; 0, or -1 with ERR_BAD_PARAMETERS for an empty key or a line without "=". */
KOVA_API int KLIBStrSepPair(const char *szLine, PKLIBSZLIST *ppList);

/* Removes leading and trailing tab, line feed, carriage return and space, then one pair of
 * enclosing double quotes; writes the result to szOut, or in place when szOut is null. The new
 * length, or -1. */
KOVA_API int KLIBStrTrimSpace(char *szStr, char *szOut);
/* Lower-cases str (C locale) into szOut, or in place when szOut is null (then strlen(str) may
 * not exceed cbSize). nIgnored is not used. The lower-cased string, or null. */
KOVA_API char *SzKLIBStrCaseLower(char *szStr, int nIgnored, char *szOut, int cbSize);

/* ":" becomes ";," and ";" becomes ";;"; at most cbOut characters, plus the NUL. */
KOVA_API int KLIBStrEncodeColon(const char *szIn, char *szOut, int cbOut);
/* The reverse; a ";" before anything else stops the decoding. strlen(in) may not exceed
 * cbOut; the output needs cbOut characters plus the NUL. */
KOVA_API int KLIBStrDecodeColon(const char *szIn, char *szOut, int cbOut);
/* Two upper-case hex digits per byte. Hazard kept as defined: the size check is only
 * strlen(in) <= cbOut although the output takes 2 * strlen(in) characters plus the NUL, so the
 * call can write past a buffer sized by cbOut: size szOut for 2 * strlen(in) + 1. */
KOVA_API int KLIBStringToHexCode(const char *szIn, char *szOut, int cbOut);
/* Pairs of upper-case hex digits, each optionally preceded by "x", up to the first byte that
 * does not continue a pair. strlen(in) may not exceed cbOut; output plus NUL. */
KOVA_API int KLIBStrHexCodeToString(const char *szIn, char *szOut, int cbOut);

/* Replaces the first occurrence of old by new, into szOut or in place (szOut null or szStr);
 * the result of strlen(str) - strlen(old) + strlen(new) characters may not exceed cbSize, even
 * when old does not occur. 1 replaced, 0 not found (the output then holds str), -1. */
KOVA_API int KLIBStrReplace(char *szStr, const char *szOld, const char *szNew, char *szOut,
                            int cbSize);
/* KLIBStrReplace with "" as the new text. */
KOVA_API int KLIBStrDelete(char *szStr, const char *szText, char *szOut, int cbSize);
/* Inserts text before pos (a pointer into str), into szOut or in place; requires
 * strlen(str) + strlen(text) + 1 <= cbSize. 1, or -1. */
KOVA_API int KLIBStrInsert(char *szStr, const char *pPos, const char *szText, char *szOut,
                           int cbSize);
/* Inserts text after the end / before the start of the first occurrence of needle; 1, 0 when
 * needle does not occur (the output then holds str), -1. Size rule of KLIBStrInsert. */
KOVA_API int KLIBStrInsertAfter(char *szStr, const char *szNeedle, const char *szText, char *szOut,
                                int cbSize);
KOVA_API int KLIBStrInsertBefore(char *szStr, const char *szNeedle, const char *szText, char *szOut,
                                 int cbSize);

/* Empties *ppList, splits the comma-separated names into it and removes every "nobody"; the
 * number of names left, or -1. An empty names string returns 0 and leaves the list alone. */
KOVA_API int KOVAStrNobodyFilter(const char *szNames, PKLIBSZLIST *ppList);
/* Joins the non-null strings of the array with sep into *pszBuf (allocated or grown as needed;
 * the caller frees it), storing its size in *pcbBuf. 0, or -1. */
KOVA_API int KOVAStrJoin(const char *const *rgszStr, int nStr, const char *szSep, char **pszBuf,
                         int *pcbBuf);

KOVA_END_DECLS

#endif /* KOVASDK_KSTRING_H */
