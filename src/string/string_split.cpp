#include <cstdlib>
#include <cstring>

#include "core/alloc.h"
#include "core/owners.h"
#include "string/string_internal.h"

namespace kova::str {

namespace {

int push_tokens(char *cursor, const char *delim, PKLIBSZLIST *list, bool keep_empty) {
    const int before = (*list)->nItem;
    for (;;) {
        char *token = keep_empty ? strsep(&cursor, delim) : KLIBIStrTok(&cursor, delim);
        if (token == nullptr) return (*list)->nItem - before;
        if (KLIBSzListPush(list, token) < 0) break;
    }
    while ((*list)->nItem > before)
        SzKLIBSzListPop(*list);
    return -1;
}

}  // namespace

int split(const char *s, const char *delim, PKLIBSZLIST *list, bool keep_empty) {
    const size_t len = strlen(s) + 1;
    kova::UniqueMalloc<char> copy(static_cast<char *>(kova::xmalloc(len)));
    if (copy == nullptr) return -1;
    memcpy(copy.get(), s, len);
    if (*list != nullptr) return push_tokens(copy.get(), delim, list, keep_empty);

    PKLIBSZLIST made = PslKLIBSzListAlloc(0);
    if (made == nullptr) return -1;
    const int count = push_tokens(copy.get(), delim, &made, keep_empty);
    if (count < 0) {
        KLIBSzListFree(made);
    } else {
        *list = made;
    }
    return count;
}

}  // namespace kova::str
