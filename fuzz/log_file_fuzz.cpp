// Whole log files of any content through the reader (with its self-repair), an append and a
// shrink: no crash, no read outside the file, no leak.
#include <sys/stat.h>

#include <cstdio>
#include <cstdlib>
#include <string>

#include "core/sys.h"
#include "fuzz_scratch.h"
#include "kovasdk/log.h"

namespace {

void write_catalogue() {
    const char *root = getenv("KOVA_ROOT");
    std::string dir = root != nullptr && root[0] != '\0' ? root : ".";
    for (const char *part : {"/usr", "/usr/kova", "/usr/kova/kovasdk", "/usr/kova/kovasdk/texts",
                             "/usr/kova/kovasdk/texts/enu"}) {
        mkdir((dir + part).c_str(), 0755);
    }
    FILE *f = fopen((dir + "/usr/kova/kovasdk/texts/enu/events").c_str(), "w");
    if (f == nullptr) return;
    fputs(
        "[11000000]\n11000001=Information\n[11100000]\n11100001=Share @1 created by @2\n"
        "11100002=@4@3@2@1\n",
        f);
    fclose(f);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    static const std::string log = kova::fuzz::scratch_file("kova-fuzz-log");
    static const std::string out = kova::fuzz::scratch_file("kova-fuzz-log-out");
    static const bool ready = [] {
        write_catalogue();
        // Durability is not what is fuzzed here: syncs would only slow the runs down.
        kova::sys::calls().fsync = [](int) { return 0; };
        return true;
    }();
    (void)ready;
    FILE *f = fopen(log.c_str(), "w");
    if (f == nullptr) return 0;
    fwrite(data, 1, size, f);
    fclose(f);

    KOVALogGet1a(log.c_str(), out.c_str(), "enu");
    glogsizeMax = 4096;
    KOVALogSet1a(log.c_str(), 1, 0x11100001, "music", "", " ", nullptr);
    KOVALogGet1a(log.c_str(), out.c_str(), "enu");
    KOVALogChangeSize_a(static_cast<int>(size % 2048), log.c_str());
    KOVALogGet1a(log.c_str(), out.c_str(), "enu");
    return 0;
}
