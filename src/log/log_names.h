// The words for log classes and event types that the appliance's programs and scripts use
// ("kovalogset1 sys err 0x1180050A"), shared by the programs that take them.
#pragma once

#include <cstdint>
#include <cstdlib>
#include <cstring>

#include "kovasdk/log.h"

namespace kova::log_names {

struct Name {
    const char *word;
    int value;
};

inline constexpr Name kClasses[] = {
    {"sys", KOVA_LOG_CLASS_SYS}, {"man", KOVA_LOG_CLASS_MAN},   {"conn", KOVA_LOG_CLASS_CONN},
    {"bkp", KOVA_LOG_CLASS_BKP}, {"copy", KOVA_LOG_CLASS_COPY}, {"netbkp", KOVA_LOG_CLASS_NETBKP},
    {"sur", KOVA_LOG_CLASS_SUR}};
inline constexpr Name kTypes[] = {
    {"info", KOVA_LOG_TYPE_INFO}, {"warn", KOVA_LOG_TYPE_WARN}, {"err", KOVA_LOG_TYPE_ERR}};

// The value of a word of the table; -1 when it is none of them.
template <size_t N>
int lookup(const Name (&names)[N], const char *word) {
    for (const Name &n : names) {
        if (strcmp(n.word, word) == 0) return n.value;
    }
    return -1;
}

// An event key in hexadecimal, with or without "0x", at most 8 digits.
inline bool parse_key(const char *text, uint32_t *key) {
    if (strncmp(text, "0x", 2) == 0 || strncmp(text, "0X", 2) == 0) text += 2;
    if (*text == '\0' || strlen(text) > 8 || strspn(text, "0123456789abcdefABCDEF") != strlen(text))
        return false;
    *key = static_cast<uint32_t>(strtoul(text, nullptr, 16));
    return true;
}

}  // namespace kova::log_names
