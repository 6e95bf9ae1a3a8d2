#include "core/fail.h"
#include "file/file_internal.h"

namespace {
constexpr int kSectionHashSize = 1024;
}  // namespace

int ErrSetSecKeyVal(const char *szPath, const char *szSection, const char *szKey,
                    const char *szValue, const char *szFormat) {
    if (szKey == nullptr || szValue == nullptr) return kova::fail(ERR_BAD_PARAMETERS);
    PKLIBSZHASH hash = PshKLIBSzHashAlloc(kSectionHashSize);
    if (hash == nullptr) return -1;
    kova::ScopeGuard free_hash([&] { KLIBSzHashFree(hash); });
    // A new section gets just its header here; the pair follows with the replace below.
    const int added = ErrKLIBFileAddSection(szPath, szSection, hash, szFormat);
    if (added < 0) return -1;
    if (added == 0 && KLIBFileGetSection(szPath, szSection, &hash) < 0) return -1;
    if (KLIBSzHashSetValue(&hash, szKey, szValue) < 0) return -1;
    return ErrKLIBFileSetSection(szPath, szSection, nullptr, hash, szFormat);
}
