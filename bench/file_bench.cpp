// Settings files against what a caller would otherwise write: an ifstream scan for reading,
// a bare write+fsync+rename for rewriting, open+flock for locking.
#include <benchmark/benchmark.h>
#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

#include "bench_scratch.h"
#include "kovasdk/file.h"

namespace {

// A sandbox root holding a copy of the appliance's /etc/kovainfo.conf; KOVA_ROOT points at it
// so that the lock files land there too.
struct Sandbox {
    kova::bench::ScratchDir dir;
    const std::string conf = dir / "etc/kovainfo.conf";
    Sandbox() {
        std::filesystem::create_directories(dir / "etc");
        std::filesystem::create_directories(dir / "tmp");
        setenv("KOVA_ROOT", dir.path().c_str(), 1);
    }
};

// The pristine file again, so that no benchmark sees what the one before it wrote.
const std::string &FreshConf() {
    static Sandbox sandbox;
    std::filesystem::copy_file(KOVA_SKELETON_DIR "/etc/kovainfo.conf", sandbox.conf,
                               std::filesystem::copy_options::overwrite_existing);
    return sandbox.conf;
}

// What a caller would write by hand: the first line whose text before '=' is the key.
std::string NaiveGet(const std::string &path, const std::string &key) {
    std::ifstream in(path);
    std::string line;
    while (std::getline(in, line)) {
        if (line.empty() || line[0] == '#') continue;
        const size_t eq = line.find('=');
        if (eq == std::string::npos || line.compare(0, eq, key) != 0) continue;
        std::string value = line.substr(eq + 1);
        if (value.size() >= 2 && value.front() == '"' && value.back() == '"')
            value = value.substr(1, value.size() - 2);
        return value;
    }
    return {};
}

// Arg 0: the first key of the file, arg 1: the last one.
const char *KeyOf(const benchmark::State &state) {
    return state.range(0) == 0 ? "vender" : "ntpserver";
}

void BM_GetKeyValue(benchmark::State &state) {
    const std::string &conf = FreshConf();
    char value[256];
    for (auto _ : state)
        benchmark::DoNotOptimize(KLIBFileGetKeyValue(conf.c_str(), KeyOf(state), value, 256, 0));
}

void BM_IfstreamGetKeyValue(benchmark::State &state) {
    const std::string &conf = FreshConf();
    for (auto _ : state)
        benchmark::DoNotOptimize(NaiveGet(conf, KeyOf(state)));
}

void BM_SetKeyValue(benchmark::State &state) {
    const std::string &conf = FreshConf();
    int i = 0;
    for (auto _ : state) {
        const char *value = i++ % 2 ? "kovastation" : "kovastation2";
        if (KLIBFileSetKeyValue(conf.c_str(), "hostname", value, KLIB_FILE_FORMAT_QUOTED) < 0)
            state.SkipWithError("KLIBFileSetKeyValue failed");
    }
}

// The same bytes written to a new file, synced and renamed over the target; with the
// directory synced afterwards when state.range(0) is 1, as the library does.
void BM_BareWriteFsyncRename(benchmark::State &state) {
    const std::string &conf = FreshConf();
    std::ifstream in(conf);
    const std::string content{std::istreambuf_iterator<char>(in), {}};
    const std::string temp = conf + ".new", dir = conf.substr(0, conf.rfind('/'));
    for (auto _ : state) {
        const int fd = open(temp.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0644);
        if (fd < 0 || write(fd, content.data(), content.size()) < 0 || fsync(fd) != 0 ||
            close(fd) != 0 || rename(temp.c_str(), conf.c_str()) != 0)
            state.SkipWithError("write+fsync+rename failed");
        if (state.range(0) == 1) {
            const int dir_fd = open(dir.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
            fsync(dir_fd);
            close(dir_fd);
        }
    }
}

// The first 20 keys of the file (it holds 21).
std::vector<std::string> TwentyKeys(const std::string &conf) {
    std::vector<std::string> keys;
    std::ifstream in(conf);
    std::string line;
    while (keys.size() < 20 && std::getline(in, line))
        if (!line.empty() && line[0] != '#') keys.push_back(line.substr(0, line.find('=')));
    return keys;
}

void BM_SetKeys20(benchmark::State &state) {
    const std::string &conf = FreshConf();
    const auto keys = TwentyKeys(conf);
    int i = 0;
    for (auto _ : state) {
        // Filling the hash costs microseconds against the milliseconds of the commit.
        PKLIBSZHASH set = PshKLIBSzHashAlloc(0);
        for (const auto &key : keys)
            KLIBSzHashSetValue(&set, key.c_str(), i % 2 ? "on" : "off");
        ++i;
        if (KLIBFileSetKeys(conf.c_str(), set, nullptr, KLIB_FILE_FORMAT_QUOTED) < 0)
            state.SkipWithError("KLIBFileSetKeys failed");
        KLIBSzHashFree(set);
    }
}

void BM_SetKeyValue20(benchmark::State &state) {
    const std::string &conf = FreshConf();
    const auto keys = TwentyKeys(conf);
    int i = 0;
    for (auto _ : state) {
        for (const auto &key : keys)
            if (KLIBFileSetKeyValue(conf.c_str(), key.c_str(), i % 2 ? "on" : "off",
                                    KLIB_FILE_FORMAT_QUOTED) < 0)
                state.SkipWithError("KLIBFileSetKeyValue failed");
        ++i;
    }
}

void BM_LockUnlock(benchmark::State &state) {
    FreshConf();
    for (auto _ : state) {
        if (ErrKLIBFileLock(KLIB_LOCK_KOVAINFO | KLIB_LOCK_EX, 0) != 0 ||
            ErrKLIBFileUnlock(KLIB_LOCK_KOVAINFO) != 0)
            state.SkipWithError("lock round trip failed");
    }
}

void BM_BareFlock(benchmark::State &state) {
    FreshConf();
    ErrKLIBILockCheckDir();  // creates the lock files
    const std::string path = std::string(getenv("KOVA_ROOT")) + "/tmp/lock/lock_kovainfo";
    for (auto _ : state) {
        const int fd = open(path.c_str(), O_RDONLY | O_CLOEXEC);
        if (fd < 0 || flock(fd, LOCK_EX) != 0 || flock(fd, LOCK_UN) != 0 || close(fd) != 0)
            state.SkipWithError("open+flock failed");
    }
}

BENCHMARK(BM_GetKeyValue)->Arg(0)->Arg(1);
BENCHMARK(BM_IfstreamGetKeyValue)->Arg(0)->Arg(1);
BENCHMARK(BM_SetKeyValue)->Unit(benchmark::kMicrosecond);
BENCHMARK(BM_BareWriteFsyncRename)->Arg(0)->Arg(1)->Unit(benchmark::kMicrosecond);
BENCHMARK(BM_SetKeys20)->Unit(benchmark::kMicrosecond);
BENCHMARK(BM_SetKeyValue20)->Unit(benchmark::kMicrosecond);
BENCHMARK(BM_LockUnlock);
BENCHMARK(BM_BareFlock);

}  // namespace
