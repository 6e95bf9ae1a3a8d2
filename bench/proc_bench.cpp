// Running a program and escaping shell words, against the bare system call and a hand-written
// single-quote escape.
#include <benchmark/benchmark.h>
#include <spawn.h>
#include <sys/wait.h>

#include <string>

#include "kovasdk/proc.h"

extern char **environ;

namespace {

// KLIBExec also puts the child in its own session, on /dev/null and in an empty environment.
void BM_KLIBExecTrue(benchmark::State &state) {
    for (auto _ : state)
        if (KLIBExec("/bin/true", nullptr, nullptr, nullptr, nullptr) != 0)
            state.SkipWithError("KLIBExec failed");
}

void BM_PosixSpawnTrue(benchmark::State &state) {
    char *argv[] = {const_cast<char *>("/bin/true"), nullptr};
    for (auto _ : state) {
        pid_t pid;
        int status = 0;
        if (posix_spawn(&pid, "/bin/true", nullptr, nullptr, argv, environ) != 0 ||
            waitpid(pid, &status, 0) != pid || status != 0)
            state.SkipWithError("posix_spawn failed");
    }
}

// A share name as an administrator types it: spaces, quotes, punctuation, UTF-8.
const std::string kWord =
    "Family Photos (2019-2024) & Dad's \"best\" shots \xc3\xa9t\xc3\xa9 $HOME";

void BM_EncShParam(benchmark::State &state) {
    char out[512];
    for (auto _ : state) {
        if (KLIBEncShParam(kWord.c_str(), out, sizeof out) != 0)
            state.SkipWithError("KLIBEncShParam failed");
        benchmark::DoNotOptimize(out);
    }
    state.SetBytesProcessed(state.iterations() * static_cast<int64_t>(kWord.size()));
}

// The usual alternative: the word in single quotes, each quote written as '\''.
void BM_SingleQuoteEscape(benchmark::State &state) {
    for (auto _ : state) {
        std::string out;
        out.reserve(kWord.size() + 8);
        out += '\'';
        for (char c : kWord) {
            if (c == '\'')
                out += "'\\''";
            else
                out += c;
        }
        out += '\'';
        benchmark::DoNotOptimize(out.data());
    }
    state.SetBytesProcessed(state.iterations() * static_cast<int64_t>(kWord.size()));
}

BENCHMARK(BM_KLIBExecTrue)->Unit(benchmark::kMicrosecond);
BENCHMARK(BM_PosixSpawnTrue)->Unit(benchmark::kMicrosecond);
BENCHMARK(BM_EncShParam);
BENCHMARK(BM_SingleQuoteEscape);

}  // namespace
