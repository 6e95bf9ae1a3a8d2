// The one trim rule of the settings syntax, shared by the settings files and the string
// utilities: space, tab, CR and LF removed at both ends, then one enclosing pair of double
// quotes (no escaping: a quote inside stays as it is).
#pragma once

#include <string_view>

namespace kova {

constexpr bool is_trim_blank(char c) {
    return c == ' ' || c == '\t' || c == '\r' || c == '\n';
}

constexpr std::string_view trimmed(std::string_view text) {
    while (!text.empty() && is_trim_blank(text.front()))
        text.remove_prefix(1);
    while (!text.empty() && is_trim_blank(text.back()))
        text.remove_suffix(1);
    if (text.size() > 1 && text.front() == '"' && text.back() == '"') {
        text = text.substr(1, text.size() - 2);
    }
    return text;
}

}  // namespace kova
