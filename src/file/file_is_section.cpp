#include <cctype>

#include "core/fail.h"
#include "file/file_internal.h"

namespace {
constexpr int kLineBadArguments = 33;
}  // namespace

namespace kova::file {

namespace {
bool only_space(std::string_view rest) {
    for (const char c : rest) {
        if (!isspace(static_cast<unsigned char>(c))) return false;
    }
    return true;
}
}  // namespace

bool is_section(std::string_view line) {
    if (!starts_section(line)) return false;
    const size_t close = line.rfind(']');
    return close != std::string_view::npos && close > 0 && only_space(line.substr(close + 1));
}

bool match_section(std::string_view line, std::string_view name) {
    if (!starts_section(line) || line.size() < name.size() + 2) return false;
    return line.substr(1, name.size()) == name && line[name.size() + 1] == ']' &&
           only_space(line.substr(name.size() + 2));
}

}  // namespace kova::file

int KLIBIFileIsSection(const char *szLine, int cbLine) {
    if (szLine == nullptr || cbLine < 0) return 0;
    return kova::file::is_section({szLine, static_cast<size_t>(cbLine)}) ? 1 : 0;
}

int KLIBIFileMatchSection(const char *szLine, int cbLine, const char *szName) {
    if (szLine == nullptr || szName == nullptr || cbLine < 0)
        return kova::fail(ERR_BAD_PARAMETERS, kLineBadArguments);
    return kova::file::match_section({szLine, static_cast<size_t>(cbLine)}, szName) ? 1 : 0;
}
