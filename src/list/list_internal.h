// What the string-list operations share: the block's geometry, comparisons and growth.
#pragma once

#include <cstddef>
#include <cstring>

#include "core/owners.h"
#include "kovasdk/list.h"

namespace kova::list {

// The defined lines of the set operations' refusals: a null list, and lists sorted in two
// different modes.
constexpr int kLineAndNullList = 65, kLineAndModes = 69;
constexpr int kLineOrNullList = 61, kLineOrModes = 66;
constexpr int kLineSubNullList = 58, kLineSubModes = 62;

// Derived from the real field widths: 24 and 4 with 4-byte pointers, 32 and 8 with 8-byte ones.
constexpr int kHeaderSize = static_cast<int>(offsetof(KLIBSZLIST, pszItem));
constexpr int kSlotSize = static_cast<int>(sizeof(char *));

inline char *block_end(KLIBSZLIST *list) {
    return reinterpret_cast<char *>(list) + list->cbSize;
}

// An item without text of its own: the shared empty byte, or an explicitly stored "".
inline bool is_empty_item(const char *item) {
    return item[0] == '\0';
}

inline bool sorted_differently(const KLIBSZLIST *a, const KLIBSZLIST *b) {
    return a->nSortMode != KLIB_SZLIST_UNSORTED && b->nSortMode != KLIB_SZLIST_UNSORTED &&
           a->nSortMode != b->nSortMode;
}

// strcmp for KLIB_SZLIST_SORT_BYTES, the case-insensitive UTF-8 comparison otherwise (which
// may answer -2 for a text it cannot convert).
int compare(const char *a, const char *b, int sort_mode);

// Lays out an empty list in a zeroed block of size bytes.
void init_block(KLIBSZLIST *list, int size);

// A new empty list of max(size, 512) bytes; null with ERR_OUT_OF_MEMORY raised at line.
PKLIBSZLIST new_list(int size, int line);

// Makes at least needed bytes free, rebuilding the block at a doubled size (compacting the
// string area) as often as needed. On failure raises ERR_OUT_OF_MEMORY at line and leaves the
// caller's list as it was.
bool reserve(PKLIBSZLIST *list, size_t needed, int line);

// A text for a list that may have to grow: when it lies inside the block and the block is about
// to be rebuilt (fewer than needed bytes free), it is copied out first into *copy, since the
// rebuild frees the old block. Null with ERR_OUT_OF_MEMORY raised at line when the copy fails.
const char *survive_growth(const KLIBSZLIST *list, const char *text, size_t len, size_t needed,
                           UniqueMalloc<char> *copy, int line);

// Copies len bytes (the text and its NUL) just below the string area; the caller has reserved
// the room and accounts for the item slot.
char *store_text(KLIBSZLIST *list, const char *text, size_t len);

// Drops the empty items, closing the gaps in the item array.
void drop_empty_items(KLIBSZLIST *list);

// Sorts the item pointers with the comparison of sort_mode.
void sort_items(KLIBSZLIST *list, int sort_mode);

// The matching cases of the set operations: for each non-empty item of probe, in order, the
// equal item of target or null. Target unsorted: strcmp scan; target sorted and probe not:
// binary search in target's mode; both sorted in one mode: a merge walk.
class Matcher {
  public:
    Matcher(const KLIBSZLIST *probe, const KLIBSZLIST *target);
    const char *match(const char *probe_item);
    bool merge_walk() const { return merge_; }

  private:
    const KLIBSZLIST *target_;
    bool merge_;
    int cursor_ = 0;
};

// And (keep_matched) and Sub (keep the unmatched) over list1, in place or into a new list.
PKLIBSZLIST filter(PKLIBSZLIST list1, const KLIBSZLIST *list2, int mode, bool keep_matched,
                   int null_line, int mode_line);

}  // namespace kova::list
