// The section reader on arbitrary file contents: listing sections, reading each one and the
// whole file's pairs, and rewriting a section must not crash or leak.
#include <sys/stat.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <string>

#include "kovasdk/file.h"
#include "kovasdk/hash.h"

namespace {
// Inside the fuzzing root (the build tree), never beside the sources.
std::string scratch_file() {
    const char *root = getenv("KOVA_ROOT");
    std::string dir = root != nullptr && root[0] != '\0' ? root : ".";
    mkdir(dir.c_str(), 0755);
    std::string name = dir + "/kova-fuzz-sec.XXXXXX";
    const int fd = mkstemp(name.data());
    if (fd >= 0) close(fd);
    return name;
}
}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    static const std::string path = scratch_file();
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
