#include "core/fail.h"
#include "core/line_reader.h"
#include "file/file_internal.h"
#include "kovasdk/hash.h"
#include "kovasdk/kstring.h"

namespace {
constexpr int kLineBadArguments = 54;
constexpr int kLineOutOfMemory = 58;
constexpr int kLineOpen = 62;

constexpr int kWorkListSize = 512;
}  // namespace

namespace kova::file {

bool set_pair_line(const char *line, PKLIBSZLIST *work, PKLIBSZHASH *hash) {
    KLIBSzListRemoveAll(*work);
    if (KLIBStrSepPair(line, work) < 0) return KLIBErrGet() != ERR_OUT_OF_MEMORY;
    return KLIBSzHashSetValue(hash, (*work)->pszItem[0], (*work)->pszItem[1]) >= 0;
}

}  // namespace kova::file

int KLIBFileGetSection(const char *szPath, const char *szSection, PKLIBSZHASH *ppHash) {
    if (szPath == nullptr || szSection == nullptr || ppHash == nullptr)
        return kova::fail(ERR_BAD_PARAMETERS, kLineBadArguments);
    kova::UniqueMalloc<KLIBSZLIST> work(PslKLIBSzListAlloc(kWorkListSize));
    if (!work) return kova::fail(ERR_OUT_OF_MEMORY, kLineOutOfMemory);
    kova::UniqueFile in(kova::file::open_for_reading(szPath));
    if (!in) return kova::fail(ERR_OPEN_FAILED, kLineOpen);
    if (*ppHash == nullptr && (*ppHash = PshKLIBSzHashAlloc(0)) == nullptr) return -1;
    const std::string_view name(szSection);
    kova::LineReader reader(in.get());
    bool inside = false;
    while (reader.next()) {
        if (!inside) {
            inside = kova::file::match_section(reader.line(), name);
            continue;
        }
        if (kova::file::starts_section(reader.line())) break;  // only the first section
        PKLIBSZLIST list = work.release();
        const bool ok = kova::file::set_pair_line(reader.data(), &list, ppHash);
        work.reset(list);
        if (!ok) return -1;
    }
    if (reader.failed()) return kova::fail(reader.failure_code());
    return KLIBSzHashPairNum(*ppHash);
}
