#include <cstdlib>
#include <cstring>

#include "core/alloc.h"
#include "core/owners.h"
#include "core/raise.h"
#include "string/string_internal.h"

namespace kova::str {

int split(const char *s, const char *delim, PKLIBSZLIST *list, bool keep_empty, int oom_line) {
    const size_t len = strlen(s) + 1;
    kova::UniqueMalloc<char> copy(static_cast<char *>(kova::xmalloc(len)));
    const bool made_list = *list == nullptr;
    if (made_list) *list = PslKLIBSzListAlloc(0);
    if (copy == nullptr || *list == nullptr) {
        kova::raise(ERR_OUT_OF_MEMORY, oom_line);
        return -1;
    }
    memcpy(copy.get(), s, len);
    const int before = (*list)->nItem;
    char *cursor = copy.get();
    for (;;) {
        char *token = keep_empty ? strsep(&cursor, delim) : KLIBIStrTok(&cursor, delim);
        if (token == nullptr) return (*list)->nItem - before;
        if (KLIBSzListPush(list, token) < 0) break;
    }
    // Nothing pushed stays behind: the caller's list is as it was.
    if (made_list) {
        KLIBSzListFree(*list);
        *list = nullptr;
    } else {
        while ((*list)->nItem > before) SzKLIBSzListPop(*list);
    }
    kova::raise(ERR_OUT_OF_MEMORY, oom_line);
    return -1;
}

}  // namespace kova::str
