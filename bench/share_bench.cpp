// Shares and groups at the sizes the issue names: one share of 200 through the share cache
// against reading its section from smb.conf with the sectioned-file reader, and the members of
// a group of 1,000.
#include <benchmark/benchmark.h>

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <string>
#include <vector>

#include "bench_scratch.h"
#include "kovasdk/file.h"
#include "kovasdk/group.h"
#include "kovasdk/hash.h"
#include "kovasdk/share.h"

namespace {

namespace fs = std::filesystem;

constexpr int kShares = 200;
constexpr int kMembers = 1000;

void write_text(const std::string &path, const std::string &text) {
    FILE *out = fopen(path.c_str(), "w");
    if (out == nullptr || fwrite(text.data(), 1, text.size(), out) != text.size() ||
        fclose(out) != 0) {
        abort();
    }
}

// The skeleton with 200 shares in smb.conf and a group of 1,000 members in /etc/group.
struct Appliance {
    kova::bench::ScratchDir dir;
    std::vector<std::string> names;  // a scrambled lookup order
    std::string conf;

    Appliance() {
        fs::copy(KOVA_SKELETON_DIR, dir.path(),
                 fs::copy_options::recursive | fs::copy_options::overwrite_existing);
        setenv("KOVA_ROOT", dir.path().c_str(), 1);
        std::string text = "[global]\n\tworkgroup=WORKGROUP\n";
        for (int i = 0; i < kShares; ++i) {
            std::string name = "share";
            name += std::to_string(i);
            text += "[";
            text += name;
            text += "]\n\tinvalid users=nobody,guest,nobody\n";
            text += "\tvalid users=nobody,alice,bob,nobody\n";
            text += "\tcomment=\"Share ";
            text += std::to_string(i);
            text += "\"\n\tpath=/volume1/";
            text += name;
            text += "\n\tguest ok=no\n\tbrowseable=yes\n\tftp write only=no\n";
            text += "\tread list=nobody,bob,nobody\n\twrite list=nobody,alice,nobody\n";
            text += "\twriteable=no\n";
        }
        conf = dir / "usr/kova/etc/smb.conf";
        write_text(conf, text);
        std::string group_file = "#$_@GID__INDEX@_$65536$\nbig:x:65536:nobody";
        for (int i = 0; i < kMembers; ++i) {
            group_file += ",member";
            group_file += std::to_string(i);
        }
        group_file += ",nobody\n";
        write_text(dir / "etc/group", group_file);
        for (int i = 0; i < kShares; ++i) {
            std::string name = "share";
            name += std::to_string((i * 37) % kShares);
            names.push_back(name);
        }
        PKOVASHARE share = nullptr;
        PKOVAGROUP group = nullptr;
        if (KOVAShareGet("share0", &share) != 0 || KOVAGroupGet("big", &group) != 0) abort();
        KOVAShareFree(share);
        KOVAGroupFree(group);
    }
};

Appliance &TheAppliance() {
    static Appliance appliance;
    return appliance;
}

void BM_ShareGet(benchmark::State &state) {
    Appliance &a = TheAppliance();
    PKOVASHARE share = nullptr;
    size_t i = 0;
    for (auto _ : state) {
        if (KOVAShareGet(a.names[i++ % kShares].c_str(), &share) != 0)
            state.SkipWithError("KOVAShareGet failed");
    }
    KOVAShareFree(share);
}

// The cache alone: an open handle, no configuration lock.
void BM_ShareDBGet(benchmark::State &state) {
    Appliance &a = TheAppliance();
    PKOVASHAREDB db = KOVAShareDBOpen();
    PKOVASHARE share = nullptr;
    size_t i = 0;
    for (auto _ : state) {
        if (KOVAShareDBGet(db, a.names[i++ % kShares].c_str(), &share) != 0)
            state.SkipWithError("KOVAShareDBGet failed");
    }
    KOVAShareFree(share);
    KOVAShareDBClose(db);
}

// The same share's keys read from smb.conf by the sectioned-file reader.
void BM_SectionRead(benchmark::State &state) {
    Appliance &a = TheAppliance();
    size_t i = 0;
    for (auto _ : state) {
        PKLIBSZHASH keys = PshKLIBSzHashAlloc(0);
        if (KLIBFileGetSection(a.conf.c_str(), a.names[i++ % kShares].c_str(), &keys) < 0)
            state.SkipWithError("KLIBFileGetSection failed");
        KLIBSzHashFree(keys);
    }
}

void BM_GroupListMember(benchmark::State &state) {
    TheAppliance();
    for (auto _ : state) {
        PKLIBSZLIST members = PslKLIBSzListAlloc(0);
        if (KOVAGroupListMember("big", &members) != kMembers)
            state.SkipWithError("KOVAGroupListMember failed");
        KLIBSzListFree(members);
    }
}

BENCHMARK(BM_ShareGet)->Unit(benchmark::kMicrosecond);
BENCHMARK(BM_ShareDBGet)->Unit(benchmark::kMicrosecond);
BENCHMARK(BM_SectionRead)->Unit(benchmark::kMicrosecond);
BENCHMARK(BM_GroupListMember)->Unit(benchmark::kMicrosecond);

}  // namespace
