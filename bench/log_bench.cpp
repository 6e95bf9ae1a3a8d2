// Event logs against the floor the file format sets: one append next to the same open, lock,
// header reads, record write, sync and tail write done bare; and rendering a full 64 KiB log.
#include <benchmark/benchmark.h>
#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <string>

#include "bench_scratch.h"
#include "core/sys.h"
#include "kovasdk/log.h"

namespace {

struct Root {
    kova::bench::ScratchDir dir;
    Root() {
        std::filesystem::create_directories(dir / "usr/kova/kovasdk/texts/enu");
        std::filesystem::copy_file(KOVA_SKELETON_DIR "/usr/kova/kovasdk/texts/enu/events",
                                   dir / "usr/kova/kovasdk/texts/enu/events");
        setenv("KOVA_ROOT", dir.path().c_str(), 1);
        setenv("USERNAME", "admin", 1);
    }
};

Root &root() {
    static Root r;
    return r;
}

// A large ring, so that every measured append takes the path without a wrap.
constexpr int kRing = 64 << 20;

void Append(benchmark::State &state) {
    const std::string file = root().dir / "append.log";
    unlink(file.c_str());
    glogsizeMax = kRing;
    if (state.range(0) == 0) kova::sys::calls().fsync = [](int) { return 0; };
    for (auto _ : state) {
        if (KOVALogSet1a(file.c_str(), 1, 0x11100001, "music", "admin", "", "") != 0) {
            state.SkipWithError("append failed");
            break;
        }
    }
    kova::sys::calls().fsync = kova::sys::real_calls().fsync;
}
BENCHMARK(Append)->Arg(1)->Arg(0)->ArgName("sync");

// The same steps without the library: open, lock, the magic and both ends read, the record
// written at the tail, a sync, the new tail written, unlock, close, the mode set.
void AppendFloor(benchmark::State &state) {
    const std::string file = root().dir / "floor.log";
    unlink(file.c_str());
    {
        const int fd = open(file.c_str(), O_RDWR | O_CREAT, 0600);
        uint32_t header[4] = {};
        memcpy(header, "KOVA", 4);
        header[2] = header[3] = 16;
        if (pwrite(fd, header, sizeof header, 0) != sizeof header) state.SkipWithError("init");
        close(fd);
    }
    const bool sync = state.range(0) != 0;
    char record[24 + 5 + 5 + 5 + 1 + 2] = {};
    const uint16_t length = sizeof record;
    memcpy(record, &length, 2);
    for (auto _ : state) {
        const int fd = open(file.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0600);
        flock(fd, LOCK_EX | LOCK_NB);
        char magic[4];
        uint32_t head = 0, tail = 0;
        if (pread(fd, magic, 4, 0) != 4 || pread(fd, &head, 4, 8) != 4 ||
            pread(fd, &tail, 4, 12) != 4 || pwrite(fd, record, length, tail) != length) {
            state.SkipWithError("io");
            break;
        }
        if (sync) fsync(fd);
        tail += length;
        if (pwrite(fd, &tail, 4, 12) != 4) state.SkipWithError("io");
        flock(fd, LOCK_UN);
        fchmod(fd, 0600);
        close(fd);
    }
}
BENCHMARK(AppendFloor)->Arg(1)->Arg(0)->ArgName("sync");

// A full 64 KiB ring (wrapped), rendered to text.
void RenderFull(benchmark::State &state) {
    const std::string file = root().dir / "full.log";
    const std::string out = root().dir / "full.txt";
    unlink(file.c_str());
    glogsizeMax = 65536;
    kova::sys::calls().fsync = [](int) { return 0; };
    for (int i = 0; i < 2000; ++i) {
        const std::string arg = "share" + std::to_string(i);
        KOVALogSet1a(file.c_str(), 1 + i % 3, 0x11100001, arg.c_str(), "admin", "", "");
    }
    kova::sys::calls().fsync = kova::sys::real_calls().fsync;
    struct stat st {};
    stat(file.c_str(), &st);
    state.counters["file_bytes"] = static_cast<double>(st.st_size);
    for (auto _ : state) {
        if (KOVALogGet1a(file.c_str(), out.c_str(), "enu") != 0) {
            state.SkipWithError("render failed");
            break;
        }
    }
    stat(out.c_str(), &st);
    state.counters["text_bytes"] = static_cast<double>(st.st_size);
}
BENCHMARK(RenderFull)->Unit(benchmark::kMillisecond);

}  // namespace
