// What the string utilities share: the trimming rule and the checks and copies of the
// replace / insert family.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string_view>

#include "kovasdk/kstring.h"

namespace kova::str {

// Whether the byte ranges [a, a + alen) and [b, b + blen) share a byte.
inline bool overlaps(const void *a, size_t alen, const void *b, size_t blen) {
    const auto x = reinterpret_cast<uintptr_t>(a);
    const auto y = reinterpret_cast<uintptr_t>(b);
    return x < y + blen && y < x + alen;
}

// Writes s with cut bytes at offset at replaced by text into out, or in place when out is
// null or s. Refuses (ERR_BAD_PARAMETERS) a separate out that overlaps s or text, and a text
// inside the bytes that an in-place edit moves. The size has been checked by the caller.
bool splice(char *s, size_t at, size_t cut, const char *text, char *out);

// Copies s unchanged to a separate out (nothing to do in place); for "not found" results.
void copy_unchanged(const char *s, char *out);

// KLIBStrInsertAfter (after) and KLIBStrInsertBefore: the first occurrence of needle, then
// KLIBStrInsert; with needle absent the size rule still holds and the output holds s.
int insert_near(char *s, const char *needle, const char *text, char *out, int size, bool after);

// Pushes the tokens of s (empty ones too when keep_empty) onto *list, a new list when it is
// null; the number pushed, or -1 when memory ran out, with the caller's list as it was. The
// caller raises the code at its own line.
int split(const char *s, const char *delim, PKLIBSZLIST *list, bool keep_empty);

}  // namespace kova::str
