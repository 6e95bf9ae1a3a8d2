// The string hash driven by arbitrary operation streams against std::map: every result, the
// pair count and the free bytes stay consistent through probing, tombstones and rebuilds.
#include <cstdint>
#include <map>
#include <string>

#include "kovasdk/kovasdk.h"

namespace {

void check(bool ok) {
    if (!ok) __builtin_trap();
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    PKLIBSZHASH hash = PshKLIBSzHashAlloc(0);
    std::map<std::string, std::string> model;
    size_t at = 0;
    auto next_text = [&](size_t max) {
        // A length byte, then that many bytes from a small alphabet (so keys collide), no NUL.
        std::string text;
        const size_t len = at < size ? data[at++] % (max + 1) : 0;
        for (size_t i = 0; i < len && at < size; ++i)
            text += static_cast<char>('a' + data[at++] % 6);
        return text;
    };
    while (at < size) {
        const uint8_t op = data[at++] % 8;
        const std::string key = next_text(7);
        if (op < 5) {
            const std::string value = next_text(op == 0 ? 255 : 10);
            check(KLIBSzHashSetValue(&hash, key.c_str(), value.c_str()) >= 0);
            model[key] = value;
        } else if (op < 7) {
            const char *removed = SzKLIBSzHashRemoveKey(hash, key.c_str());
            auto it = model.find(key);
            check((removed != nullptr) == (it != model.end()));
            if (it != model.end()) {
                check(it->second == removed);
                model.erase(it);
            }
        } else {
            const char *value = SzKLIBSzHashGetValue(hash, key.c_str());
            auto it = model.find(key);
            check((value != nullptr) == (it != model.end()));
            if (value != nullptr) check(it->second == value);
        }
        check(KLIBSzHashPairNum(hash) == static_cast<int>(model.size()));
        check(hash->cbFree >= 0 && hash->cbFree <= hash->cbData);
        check(hash->nSlot - hash->nPair >= 1);
    }
    check(KLIBSzHashEnumKey(hash, nullptr) == static_cast<int>(model.size()));
    for (const auto &[key, value] : model) {
        const char *found = SzKLIBSzHashGetValue(hash, key.c_str());
        check(found != nullptr && value == found);
    }
    KLIBSzHashFree(hash);
    return 0;
}
