#include "core/fail.h"
#include "core/line_reader.h"
#include "file/file_internal.h"
#include "kovasdk/hash.h"

namespace {
constexpr int kWorkListSize = 512;
}  // namespace

int KLIBFileGetPair(const char *szPath, PKLIBSZHASH *ppHash) {
    if (szPath == nullptr || ppHash == nullptr) return kova::fail(ERR_BAD_PARAMETERS);
    kova::UniqueMalloc<KLIBSZLIST> work(PslKLIBSzListAlloc(kWorkListSize));
    if (!work) return kova::fail(ERR_OUT_OF_MEMORY);
    kova::UniqueFile in(kova::file::open_for_reading(szPath));
    if (!in) return kova::fail(ERR_OPEN_FAILED);
    if (*ppHash == nullptr && (*ppHash = PshKLIBSzHashAlloc(0)) == nullptr) return -1;
    kova::LineReader reader(in.get());
    while (reader.next()) {
        if (kova::file::is_comment(reader.line())) continue;
        PKLIBSZLIST list = work.release();
        const bool ok = kova::file::set_pair_line(reader.data(), &list, ppHash);
        work.reset(list);
        if (!ok) return -1;
    }
    if (reader.failed()) return kova::fail(reader.failure_code());
    return KLIBSzHashPairNum(*ppHash);
}
