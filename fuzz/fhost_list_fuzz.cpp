// The discovery host list as the reader takes it: any file gives a count or -1, every key is
// "name(address)" with the address as its value, and the file is gone afterwards.
#include <sys/stat.h>
#include <unistd.h>

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

#include "fuzz_scratch.h"
#include "kovasdk/hash.h"
#include "kovasdk/list.h"
#include "kovasdk/socket.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    static const std::string root = [] {
        const std::string dir = kova::fuzz::scratch_file("fhost-root");
        unlink(dir.c_str());
        mkdir(dir.c_str(), 0755);
        mkdir((dir + "/tmp").c_str(), 0755);
        setenv("KOVA_ROOT", dir.c_str(), 1);
        return dir;
    }();
    const std::string list = root + "/tmp/kovanas.list.tmp";
    FILE *out = fopen(list.c_str(), "w");
    if (out == nullptr) abort();
    fwrite(data, 1, size, out);
    fclose(out);
    PKLIBSZHASH hash = PshKLIBSzHashAlloc(0);
    const int n = KOVAFHOSTGet2Hash(&hash);
    if (access(list.c_str(), F_OK) == 0) abort();
    if (n >= 0) {
        PKLIBSZLIST keys = nullptr;
        if (KLIBSzHashEnumKey(hash, &keys) != n) abort();
        for (int i = 0; i < n; ++i) {
            const std::string key = SzKLIBSzListGet(keys, i);
            const std::string value = SzKLIBSzHashGetValue(hash, key.c_str());
            // A cut key (1,023 characters) may have lost its ending.
            if (key.size() < 1023 && !key.ends_with("(" + value + ")")) abort();
        }
        KLIBSzListFree(keys);
    }
    KLIBSzHashFree(hash);
    return 0;
}
