#include <cstring>

#include "core/alloc.h"
#include "core/owners.h"
#include "core/raise.h"
#include "core/trim.h"
#include "string/string_internal.h"

int KLIBStrSepPair(const char *szLine, PKLIBSZLIST *ppList) {
    if (szLine == nullptr || ppList == nullptr || *ppList == nullptr) {
        kova::raise(ERR_BAD_PARAMETERS);
        return -1;
    }
    const char *equals = strchr(szLine, '=');
    const std::string_view key = kova::trimmed(
        equals != nullptr ? std::string_view(szLine, static_cast<size_t>(equals - szLine))
                          : std::string_view(szLine));
    if (key.empty()) {
        kova::raise(ERR_BAD_PARAMETERS, 51);
        return -1;
    }
    if (equals == nullptr) {
        kova::raise(ERR_BAD_PARAMETERS, 59);
        return -1;
    }
    const std::string_view value = kova::trimmed(equals + 1);

    // Both texts with their NULs in one work buffer: "key\0value\0".
    kova::UniqueMalloc<char> texts(
        static_cast<char *>(kova::xmalloc(key.size() + value.size() + 2)));
    if (texts == nullptr) {
        kova::raise(ERR_OUT_OF_MEMORY);
        return -1;
    }
    char *key_text = texts.get();
    char *value_text = key_text + key.size() + 1;
    memcpy(key_text, key.data(), key.size());
    key_text[key.size()] = '\0';
    memcpy(value_text, value.data(), value.size());
    value_text[value.size()] = '\0';

    if (KLIBSzListPush(ppList, key_text) < 0) return -1;
    if (KLIBSzListPush(ppList, value_text) < 0) {
        SzKLIBSzListPop(*ppList);  // both or neither
        return -1;
    }
    return 0;
}
