// The line syntax shared by every reader and writer of this family.
#include <fcntl.h>

#include "core/sys.h"
#include "file/file_internal.h"

namespace kova::file {

std::string_view body_of(std::string_view line) {
    if (!line.empty() && line.back() == '\n') line.remove_suffix(1);
    if (!line.empty() && line.back() == '\r') line.remove_suffix(1);
    return line;
}

KeyValueLine split(std::string_view line) {
    const std::string_view body = body_of(line);
    const size_t start = !body.empty() && body[0] == '=' ? 1 : 0;
    const size_t eq = body.find('=', start);
    KeyValueLine parsed;
    if (eq == std::string_view::npos) {
        parsed.raw_key = body;
        parsed.key = kova::trimmed(body.substr(start));
        return parsed;
    }
    parsed.raw_key = body.substr(0, eq);
    parsed.key = kova::trimmed(body.substr(start, eq - start));
    const std::string_view rest = body.substr(eq + 1);
    parsed.has_value = !rest.empty();
    parsed.value = kova::trimmed(rest);
    return parsed;
}

UniqueFile open_for_reading(const char *path) {
    int fd = -1;
    struct stat st {};
    if (sys::open_regular(path, O_RDONLY, &fd, &st) != sys::Opened::kOk) return nullptr;
    return UniqueFile(sys::stream(fd, "r"));
}

}  // namespace kova::file
