// The user database over 10,000 accounts: a lookup in the cache against reading the passwd
// file line by line (what the cache saves), the account operations' lookup, the rebuild of the
// cache, a batch of 1,000 new users, and one new user against writing the four files once.
#include <benchmark/benchmark.h>
#include <fcntl.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <string>
#include <vector>

#include "bench_scratch.h"
#include "kovasdk/user.h"

namespace {

namespace fs = std::filesystem;

constexpr int kUsers = 10000;
constexpr int kFirstId = 5000;

const char *const kFiles[] = {"etc/passwd", "etc/shadow", "etc/kovauser.conf",
                              "usr/kova/etc/private/smbpasswd"};

void write_text(const std::string &path, const std::string &text) {
    FILE *out = fopen(path.c_str(), "w");
    if (out == nullptr || fwrite(text.data(), 1, text.size(), out) != text.size() ||
        fclose(out) != 0) {
        perror(path.c_str());
        abort();
    }
}

std::string read_text(const std::string &path) {
    FILE *in = fopen(path.c_str(), "r");
    if (in == nullptr) abort();
    std::string text;
    char buf[65536];
    for (size_t n; (n = fread(buf, 1, sizeof buf, in)) > 0;)
        text.append(buf, n);
    fclose(in);
    return text;
}

// A sandbox root from the skeleton with 10,000 more accounts in its four files (ids from
// 5000, so the free-id search still finds the low ones), the account limit lifted, and the
// files as first written kept aside to restore between runs.
struct Appliance {
    kova::bench::ScratchDir dir;
    std::vector<std::string> names;  // in a scrambled lookup order
    std::vector<std::string> original;

    Appliance() {
        fs::copy(KOVA_SKELETON_DIR, dir.path(),
                 fs::copy_options::recursive | fs::copy_options::overwrite_existing);
        setenv("KOVA_ROOT", dir.path().c_str(), 1);
        write_text(dir / "etc.defaults/kovainfo.conf", "maxaccounts=\"\"\n");
        std::string passwd = read_text(dir / "etc/passwd");
        std::string shadow = read_text(dir / "etc/shadow");
        std::string misc = read_text(dir / "etc/kovauser.conf");
        std::string smb = read_text(dir / "usr/kova/etc/private/smbpasswd");
        // Hashes of the right form: the benchmarks never check a password.
        const std::string hash = "$1$Gf0Rtz3F$CkUBOQ2lTHsSJwWs7m0Wy.";
        const std::string lm = "3A6E1B8B3A7DE3ADAAD3B435B51404EE";
        const std::string nt = "878D8014606CDA29677A44EFA1353FC7";
        for (int i = 0; i < kUsers; ++i) {
            const std::string name = "user" + std::to_string(i);
            const std::string id = std::to_string(kFirstId + i);
            passwd += name + ":x:" + id + ":100:User " + std::to_string(i) +
                      ":/var/services/homes/" + name + ":/bin/csh\n";
            shadow += name + ":" + hash + ":20400:0:99999:7:::\n";
            misc += name + ":0:" + name + "@example.com\n";
            smb += name + ":" + id + ":" + lm + ":" + nt + ":[U          ]:LCT-6926B000:\n";
        }
        write_text(dir / "etc/passwd", passwd);
        write_text(dir / "etc/shadow", shadow);
        write_text(dir / "etc/kovauser.conf", misc);
        write_text(dir / "usr/kova/etc/private/smbpasswd", smb);
        for (const char *file : kFiles)
            original.push_back(read_text(dir / file));
        for (int i = 0; i < kUsers; ++i)
            names.push_back("user" + std::to_string((i * 7919) % kUsers));
        if (KOVAUserDBRebuild() != 0) abort();
    }
    // Back to the 10,000 accounts, the cache rebuilt and no home folder of a new user left.
    void restore() {
        for (size_t i = 0; i < original.size(); ++i)
            write_text(dir / kFiles[i], original[i]);
        std::error_code ignored;
        for (const auto &entry : fs::directory_iterator(dir / "var/services/homes")) {
            if (entry.path().filename().string().rfind("new", 0) == 0)
                fs::remove_all(entry.path(), ignored);
        }
        if (KOVAUserDBRebuild() != 0) abort();
    }
};

Appliance &TheAppliance() {
    static Appliance appliance;
    return appliance;
}

std::string upper(const std::string &name) {
    std::string key = name;
    for (char &c : key)
        c = static_cast<char>(toupper(static_cast<unsigned char>(c)));
    return key;
}

// The cache open, one lookup per iteration.
void BM_UserDBGet(benchmark::State &state) {
    Appliance &a = TheAppliance();
    std::vector<std::string> keys;
    for (const std::string &name : a.names)
        keys.push_back(upper(name));
    PKOVAUSERDB db = KOVAUserDBOpen();
    PKOVAUSER user = nullptr;
    size_t i = 0;
    for (auto _ : state) {
        if (KOVAUserDBGet(db, keys[i++ % kUsers].c_str(), &user) != 0)
            state.SkipWithError("KOVAUserDBGet failed");
    }
    KOVAUserFree(user);
    KOVAUserDBClose(db);
}

// What a caller without the cache does: read /etc/passwd until the name's line.
void BM_PasswdScan(benchmark::State &state) {
    Appliance &a = TheAppliance();
    const std::string passwd = a.dir / "etc/passwd";
    char line[512];
    size_t i = 0;
    for (auto _ : state) {
        const std::string &name = a.names[i++ % kUsers];
        FILE *in = fopen(passwd.c_str(), "r");
        bool found = false;
        while (!found && fgets(line, sizeof line, in) != nullptr)
            found = strncmp(line, name.c_str(), name.size()) == 0 && line[name.size()] == ':';
        fclose(in);
        if (!found) state.SkipWithError("user not found");
    }
}

// The operation a program calls: opens and checks the cache, looks up, closes.
void BM_UserGet(benchmark::State &state) {
    Appliance &a = TheAppliance();
    PKOVAUSER user = nullptr;
    size_t i = 0;
    for (auto _ : state) {
        if (KOVAUserGet(a.names[i++ % kUsers].c_str(), &user) != 0)
            state.SkipWithError("KOVAUserGet failed");
    }
    KOVAUserFree(user);
}

// The whole cache built again from the four files.
void BM_Rebuild(benchmark::State &state) {
    TheAppliance();
    for (auto _ : state) {
        if (KOVAUserDBRebuild() != 0) state.SkipWithError("KOVAUserDBRebuild failed");
    }
}

// 1,000 new users in one call: one lock, one change of the cache, one dump of the files.
void BM_SetThousand(benchmark::State &state) {
    Appliance &a = TheAppliance();
    constexpr int kNew = 1000;
    std::vector<PKOVAUSER> users(kNew, nullptr);
    std::vector<const char *> old_names(kNew, nullptr);
    for (auto _ : state) {
        state.PauseTiming();
        for (int i = 0; i < kNew; ++i) {
            const std::string name = "new" + std::to_string(i);
            KOVAUserAlloc(&users[i], name.c_str(), "secret", 0, 100, "", nullptr, nullptr, 0,
                          nullptr, 0);
        }
        state.ResumeTiming();
        if (KOVAUserSet(old_names.data(), users.data(), kNew) != 0)
            state.SkipWithError("KOVAUserSet failed");
        state.PauseTiming();
        a.restore();
        state.ResumeTiming();
    }
    for (PKOVAUSER user : users)
        KOVAUserFree(user);
}

// One new user among 10,000.
void BM_AddOne(benchmark::State &state) {
    Appliance &a = TheAppliance();
    PKOVAUSER user = nullptr;
    for (auto _ : state) {
        state.PauseTiming();
        KOVAUserAlloc(&user, "newcomer", "secret", 0, 100, "", nullptr, nullptr, 0, nullptr, 0);
        state.ResumeTiming();
        if (KOVAUserSetOne(nullptr, user) != 0) state.SkipWithError("KOVAUserSetOne failed");
        state.PauseTiming();
        a.restore();
        state.ResumeTiming();
    }
    KOVAUserFree(user);
}

// The floor of any change: the four files written once each, synced and renamed over.
void BM_WriteFourFiles(benchmark::State &state) {
    Appliance &a = TheAppliance();
    for (auto _ : state) {
        for (size_t i = 0; i < a.original.size(); ++i) {
            const std::string path = a.dir / kFiles[i];
            const std::string tmp = path + ".tmp";
            const int fd = open(tmp.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600);
            const std::string &text = a.original[i];
            if (fd < 0 ||
                write(fd, text.data(), text.size()) != static_cast<ssize_t>(text.size()) ||
                fsync(fd) != 0 || close(fd) != 0 || rename(tmp.c_str(), path.c_str()) != 0) {
                state.SkipWithError("writing failed");
            }
        }
    }
    a.restore();
}

BENCHMARK(BM_UserDBGet)->Unit(benchmark::kMicrosecond);
BENCHMARK(BM_PasswdScan)->Unit(benchmark::kMicrosecond);
BENCHMARK(BM_UserGet)->Unit(benchmark::kMicrosecond);
BENCHMARK(BM_Rebuild)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_SetThousand)->Unit(benchmark::kMillisecond)->Iterations(3);
BENCHMARK(BM_AddOne)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_WriteFourFiles)->Unit(benchmark::kMillisecond);

}  // namespace
