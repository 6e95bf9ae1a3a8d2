// The key-value reader and rewriter on arbitrary file contents: the first line of the input is
// the key, the rest the file. Getting, setting and removing must not crash, and a set key must
// read back.
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

#include "fuzz_scratch.h"
#include "kovasdk/file.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    static const std::string path = kova::fuzz::scratch_file("kova-fuzz-kv");
    const std::string input(reinterpret_cast<const char *>(data), size);
    const size_t newline = input.find('\n');
    std::string key = input.substr(0, newline == std::string::npos ? 0 : newline);
    key.resize(strnlen(key.c_str(), key.size()));
    const std::string content = newline == std::string::npos ? input : input.substr(newline + 1);
    FILE *f = fopen(path.c_str(), "w");
    if (f == nullptr) return 0;
    fwrite(content.data(), 1, content.size(), f);
    fclose(f);

    char buf[64];
    KLIBFileGetKeyValue(path.c_str(), key.c_str(), buf, sizeof buf, 0);
    KLIBFileGetKeyValue(path.c_str(), key.c_str(), buf, sizeof buf, KLIB_FILE_MATCH_LAST);
    KLIBFileGetLine(path.c_str(), key.c_str(), buf, sizeof buf, KLIB_FILE_MATCH_NOCASE);
    // A file whose last line lacks its line feed gets the new line glued to it (kept as it is),
    // so only a complete file promises that the key reads back.
    const bool complete = content.empty() || content.back() == '\n';
    const bool plain_key =
        complete && !key.empty() && key.find_first_of("=\"#; \t\r") == std::string::npos;
    if (plain_key && KLIBFileSetKeyValue(path.c_str(), key.c_str(), "fuzz", nullptr) == 1) {
        if (KLIBFileGetKeyValue(path.c_str(), key.c_str(), buf, sizeof buf, 0) != 5 ||
            strcmp(buf, "fuzz") != 0) {
            abort();  // a key just set must read back
        }
        KLIBFileRemoveKey(path.c_str(), key.c_str());
    }
    return 0;
}
