// Configuration backup of an appliance with 1,000 users and 200 shares: export plus import
// into a fresh appliance, against copying the account and settings files as they are (what a
// restore without the library would do, with no checks and no caches rebuilt).
#include <benchmark/benchmark.h>

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <vector>

#include "bench_scratch.h"
#include "kovasdk/file.h"
#include "kovasdk/share.h"
#include "kovasdk/sysbkp.h"
#include "kovasdk/user.h"

namespace {

namespace fs = std::filesystem;

constexpr int kUsers = 1000;
constexpr int kShares = 200;
constexpr const char *kFiles[] = {"etc/passwd",
                                  "etc/shadow",
                                  "etc/kovauser.conf",
                                  "etc/group",
                                  "etc/group_desc",
                                  "etc/kovainfo.conf",
                                  "usr/kova/etc/private/smbpasswd",
                                  "usr/kova/etc/smb.conf"};

void fresh_root(const std::string &dir) {
    fs::remove_all(dir);
    fs::copy(KOVA_SKELETON_DIR, dir, fs::copy_options::recursive);
}

// The source appliance, built once.
struct Source {
    kova::bench::ScratchDir dir;
    std::string root = dir / "source";
    std::string file = dir / "backup.kbk";
    Source() {
        fresh_root(root);
        setenv("KOVA_ROOT", root.c_str(), 1);
        std::vector<PKOVAUSER> users(kUsers, nullptr);
        for (int i = 0; i < kUsers; ++i) {
            char name[32], password[32];
            snprintf(name, sizeof name, "user%04d", i);
            snprintf(password, sizeof password, "pw-%d", i);
            KOVAUserAlloc(&users[i], name, password, 0, 100, "bench user", nullptr, nullptr, 0,
                          nullptr, 0);
        }
        if (KOVAUserSet(nullptr, users.data(), kUsers) != 0) abort();
        for (PKOVAUSER user : users)
            KOVAUserFree(user);
        PKOVASHARE share = nullptr;
        for (int s = 0; s < kShares; ++s) {
            char name[16], path[64], rw[32];
            snprintf(name, sizeof name, "share%03d", s);
            snprintf(path, sizeof path, "/volume1/share%03d", s);
            snprintf(rw, sizeof rw, "user%04d", s);
            KOVASHARE tpl{};
            tpl.szName = name;
            tpl.szComment = name;
            tpl.szPath = path;
            tpl.szDenyList = const_cast<char *>("");
            tpl.szRWList = rw;
            tpl.szROList = const_cast<char *>("");
            tpl.fType = KOVA_SHARE_READ_ONLY;
            tpl.browseable = 1;
            if (KOVAShareAlloc(&share, &tpl) != 0 || KOVAShareSet(nullptr, share) != 0) abort();
        }
        KOVAShareFree(share);
    }
};

Source &source() {
    static Source s;
    return s;
}

void BM_ExportImport(benchmark::State &state) {
    Source &src = source();
    const std::string target = src.dir / "target";
    for (auto _ : state) {
        setenv("KOVA_ROOT", src.root.c_str(), 1);
        if (KOVASysbkpExport(src.file.c_str(), KOVA_SYSBKP_ALL) != 0) abort();
        state.PauseTiming();
        fresh_root(target);
        setenv("KOVA_ROOT", target.c_str(), 1);
        state.ResumeTiming();
        if (KOVASysbkpImport(src.file.c_str(), KOVA_SYSBKP_ALL, 1) != 0) abort();
        ErrKLIBFileCloseLock();
    }
    state.counters["users"] = kUsers;
    state.counters["shares"] = kShares;
}
BENCHMARK(BM_ExportImport)->Unit(benchmark::kMillisecond)->Iterations(3);

void BM_CopyFilesBaseline(benchmark::State &state) {
    Source &src = source();
    const std::string target = src.dir / "copy";
    for (auto _ : state) {
        state.PauseTiming();
        fresh_root(target);
        state.ResumeTiming();
        for (const char *file : kFiles) {
            fs::copy_file(src.root + "/" + file, target + "/" + file,
                          fs::copy_options::overwrite_existing);
        }
    }
}
BENCHMARK(BM_CopyFilesBaseline)->Unit(benchmark::kMillisecond)->Iterations(3);

}  // namespace
