// List records read from a cache file: any bytes are refused or become a list that stays
// inside its block. Inputs beginning with 'L' are item texts (one per line) packed first, so
// the fuzzer also mutates well-formed records and checks the round trip.
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "kovasdk/bdb.h"
#include "kovasdk/list.h"

namespace {

void check_list(const KLIBSZLIST *list) {
    size_t total = 0;
    for (int i = 0; i < list->nItem; ++i)
        total += strlen(list->pszItem[i]);
    if (total > static_cast<size_t>(list->cbSize) * static_cast<size_t>(list->nItem + 1)) abort();
}

void round_trip(const uint8_t *data, size_t size) {
    PKLIBSZLIST list = PslKLIBSzListAlloc(0);
    std::vector<std::string> items;
    std::string text(reinterpret_cast<const char *>(data), size);
    for (size_t start = 0; start <= text.size();) {
        size_t end = text.find('\n', start);
        if (end == std::string::npos) end = text.size();
        items.push_back(text.substr(start, end - start).c_str());  // up to a NUL, as stored
        if (KLIBSzListPush(&list, items.back().c_str()) < 0) abort();
        start = end + 1;
    }
    void *packed = KOVAListDBPack(list, list->cbSize);
    PKLIBSZLIST back = KOVAListDBUnpack(packed, list->cbSize);
    if (back == nullptr || back->nItem != static_cast<int>(items.size())) abort();
    for (int i = 0; i < back->nItem; ++i) {
        if (items[static_cast<size_t>(i)] != SzKLIBSzListGet(back, i)) abort();
    }
    KLIBSzListFree(back);
    free(packed);
    KLIBSzListFree(list);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    if (size > 0 && data[0] == 'L') {
        round_trip(data + 1, size - 1);
        return 0;
    }
    if (size > 1 << 20) return 0;
    PKLIBSZLIST list = KOVAListDBUnpack(data, static_cast<int32_t>(size));
    if (list != nullptr) {
        check_list(list);
        KLIBSzListPush(&list, "fuzz");  // a list taken from a record must stay usable
        KLIBSzListFree(list);
    }
    return 0;
}
