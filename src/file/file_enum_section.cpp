#include <cstring>

#include "core/fail.h"
#include "core/line_reader.h"
#include "file/file_internal.h"
#include "kovasdk/kstring.h"

namespace {
constexpr int kLineBadArguments = 42;
constexpr int kLineOpen = 46;

constexpr size_t kHeaderBufferSize = 1024;
}  // namespace

int KLIBFileEnumSection(const char *szPath, PKLIBSZLIST *ppList) {
    if (szPath == nullptr || ppList == nullptr)
        return kova::fail(ERR_BAD_PARAMETERS, kLineBadArguments);
    kova::UniqueFile in(kova::file::open_for_reading(szPath));
    if (!in) return kova::fail(ERR_OPEN_FAILED, kLineOpen);
    if (*ppList == nullptr && (*ppList = PslKLIBSzListAlloc(0)) == nullptr) return -1;
    kova::LineReader reader(in.get());
    while (reader.next()) {
        if (!kova::file::is_section(reader.line())) continue;
        if (reader.size() >= kHeaderBufferSize) return -1;  // no code of its own (deliberate)
        char header[kHeaderBufferSize];
        memcpy(header, reader.data(), reader.size() + 1);
        if (KLIBStrTrimSpace(header, nullptr) < 0) return -1;
        char *open = strchr(header, '[');
        char *close = strrchr(header, ']');
        if (open == nullptr || close == nullptr || close < open) continue;
        *close = '\0';
        if (KLIBSzListPush(ppList, open + 1) < 0) return -1;
    }
    if (reader.failed()) return kova::fail(reader.failure_code());
    return (*ppList)->nItem;
}
