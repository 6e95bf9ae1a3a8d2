// The share record: one block, the header followed by its non-empty strings and a zero byte
// that every empty string points at.
#include <cstdint>
#include <cstdlib>
#include <cstring>

#include "share/share_internal.h"

namespace {

bool points_into(const void *block, size_t size, const char *text) {
    const auto begin = reinterpret_cast<uintptr_t>(block);
    const auto at = reinterpret_cast<uintptr_t>(text);
    return block != nullptr && text != nullptr && at >= begin && at < begin + size;
}

bool empty(const char *text) {
    return text == nullptr || text[0] == '\0';
}

}  // namespace

int KOVAShareAlloc(PKOVASHARE *ppShare, const KOVASHARE *pTemplate) {
    using kova::share::kStringFields;
    if (ppShare == nullptr || pTemplate == nullptr || empty(pTemplate->szName) ||
        empty(pTemplate->szPath) || pTemplate->fType < 0 || pTemplate->browseable < 0 ||
        pTemplate->ftpWriteOnly < 0) {
        return kova::fail(ERR_BAD_PARAMETERS);
    }
    if (BlKLIBIsShareName(pTemplate->szName) != 1) return kova::fail(ERR_INVALID_SHARENAME);
    if (pTemplate->szPath[0] != '/') return kova::fail(ERR_SHARE_PATH_NOT_ABSOLUTE);
    PKOVASHARE old = *ppShare;
    const size_t old_size = old != nullptr ? static_cast<size_t>(old->cbAlloc) : 0;
    size_t need = sizeof(KOVASHARE) + 1;
    for (auto field : kStringFields) {
        const char *text = pTemplate->*field;
        // The template may be the very block being rebuilt; its strings are copied first.
        if (!empty(text)) need += strlen(text) + 1;
    }
    if (need > INT32_MAX) return kova::fail(ERR_BAD_PARAMETERS);
    // Built aside, so that a template inside the old block stays readable while copying.
    const bool inside = old != nullptr && (pTemplate == old || [&] {
                            for (auto field : kStringFields)
                                if (points_into(old, old_size, pTemplate->*field)) return true;
                            return false;
                        }());
    void *block = inside ? nullptr : old;
    int32_t capacity = inside ? 0 : (old != nullptr ? old->cbAlloc : 0);
    if (KOVACheckAndRealloc(&block, &capacity, static_cast<int32_t>(need)) != 0) {
        if (!inside) *ppShare = nullptr;  // the old block is gone with the failed growth
        return -1;
    }
    auto *share = static_cast<PKOVASHARE>(block);
    char *cursor = reinterpret_cast<char *>(share + 1);
    char *last = reinterpret_cast<char *>(share) + need - 1;
    const KOVASHARE values = *pTemplate;
    for (auto field : kStringFields) {
        const char *text = values.*field;
        if (empty(text)) {
            share->*field = last;
            continue;
        }
        const size_t size = strlen(text) + 1;
        memcpy(cursor, text, size);
        share->*field = cursor;
        cursor += size;
    }
    *last = '\0';
    share->fType = values.fType;
    share->browseable = values.browseable;
    share->ftpWriteOnly = values.ftpWriteOnly;
    share->cbAlloc = capacity;
    share->cbSize = static_cast<int32_t>(need);
    if (inside) free(old);
    *ppShare = share;
    return 0;
}

void KOVAShareFree(PKOVASHARE pShare) {
    free(pShare);
}
