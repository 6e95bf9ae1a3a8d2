// The section reader on arbitrary file contents: listing sections, reading each one and the
// whole file's pairs, and rewriting a section must not crash or leak.
#include <cstdio>
#include <cstdlib>
#include <string>

#include "fuzz_scratch.h"
#include "kovasdk/file.h"
#include "kovasdk/hash.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    static const std::string path = kova::fuzz::scratch_file("kova-fuzz-sec");
    FILE *f = fopen(path.c_str(), "w");
    if (f == nullptr) return 0;
    fwrite(data, 1, size, f);
    fclose(f);

    PKLIBSZLIST names = nullptr;
    if (KLIBFileEnumSection(path.c_str(), &names) > 0) {
        for (int i = 0; i < names->nItem && i < 8; ++i) {
            PKLIBSZHASH hash = nullptr;
            KLIBFileGetSection(path.c_str(), names->pszItem[i], &hash);
            if (hash != nullptr && i == 0) {
                ErrKLIBFileSetSection(path.c_str(), names->pszItem[i], nullptr, hash, nullptr);
            }
            KLIBSzHashFree(hash);
        }
    }
    KLIBSzListFree(names);
    PKLIBSZHASH pairs = nullptr;
    KLIBFileGetPair(path.c_str(), &pairs);
    KLIBSzHashFree(pairs);
    return 0;
}
