#include "core/line_reader.h"
#include "core/raise.h"
#include "file/file_internal.h"
#include "kovasdk/hash.h"

namespace {
constexpr int kWorkListSize = 512;
}  // namespace

int KLIBFileGetPair(const char *szPath, PKLIBSZHASH *ppHash) {
    if (szPath == nullptr || ppHash == nullptr) {
        kova::raise(ERR_BAD_PARAMETERS);
        return -1;
    }
    kova::UniqueMalloc<KLIBSZLIST> work(PslKLIBSzListAlloc(kWorkListSize));
    if (!work) {
        kova::raise(ERR_OUT_OF_MEMORY);
        return -1;
    }
    kova::UniqueFile in(kova::file::open_for_reading(szPath));
    if (!in) {
        kova::raise(ERR_OPEN_FAILED);
        return -1;
    }
    if (*ppHash == nullptr && (*ppHash = PshKLIBSzHashAlloc(0)) == nullptr) return -1;
    kova::LineReader reader(in.get());
    while (reader.next()) {
        if (kova::file::is_comment(reader.line())) continue;
        PKLIBSZLIST list = work.release();
        const bool ok = kova::file::set_pair_line(reader.data(), &list, ppHash);
        work.reset(list);
        if (!ok) return -1;
    }
    if (reader.failed()) {
        kova::raise(reader.failure_code());
        return -1;
    }
    return KLIBSzHashPairNum(*ppHash);
}
