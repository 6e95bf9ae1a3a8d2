// The string hash against what a caller would otherwise use: std::unordered_map<string, string>.
#include <benchmark/benchmark.h>

#include <cstdio>
#include <cstdlib>
#include <string>
#include <unordered_map>
#include <utility>
#include <vector>

#include "hash/hash_internal.h"
#include "kovasdk/hash.h"

namespace {

using Pairs = std::vector<std::pair<std::string, std::string>>;

// User names and home directories, in a scrambled order.
Pairs MakePairs(int n) {
    Pairs pairs;
    for (int i = 0; i < n; ++i) {
        char key[32], value[48];
        const int id = (i * 7919) % n;
        snprintf(key, sizeof key, "user%07d", id);
        snprintf(value, sizeof value, "/share/homes/user%07d", id);
        pairs.emplace_back(key, value);
    }
    return pairs;
}

PKLIBSZHASH FilledHash(const Pairs &pairs) {
    PKLIBSZHASH hash = PshKLIBSzHashAlloc(0);
    for (const auto &[k, v] : pairs)
        KLIBSzHashSetValue(&hash, k.c_str(), v.c_str());
    return hash;
}

// Set from empty: includes every rebuild on the way up.
void BM_HashSet(benchmark::State &state) {
    const auto pairs = MakePairs(static_cast<int>(state.range(0)));
    for (auto _ : state) {
        PKLIBSZHASH hash = FilledHash(pairs);
        benchmark::DoNotOptimize(hash);
        KLIBSzHashFree(hash);
    }
    state.SetItemsProcessed(state.iterations() * state.range(0));
}

void BM_MapSet(benchmark::State &state) {
    const auto pairs = MakePairs(static_cast<int>(state.range(0)));
    for (auto _ : state) {
        std::unordered_map<std::string, std::string> map;
        for (const auto &[k, v] : pairs)
            map[k] = v;
        benchmark::DoNotOptimize(map.size());
    }
    state.SetItemsProcessed(state.iterations() * state.range(0));
}

void BM_HashGet(benchmark::State &state) {
    const auto pairs = MakePairs(static_cast<int>(state.range(0)));
    PKLIBSZHASH hash = FilledHash(pairs);
    size_t i = 0;
    for (auto _ : state)
        benchmark::DoNotOptimize(
            SzKLIBSzHashGetValue(hash, pairs[i++ % pairs.size()].first.c_str()));
    KLIBSzHashFree(hash);
}

void BM_MapGet(benchmark::State &state) {
    const auto pairs = MakePairs(static_cast<int>(state.range(0)));
    const std::unordered_map<std::string, std::string> map(pairs.begin(), pairs.end());
    size_t i = 0;
    for (auto _ : state)
        benchmark::DoNotOptimize(map.find(pairs[i++ % pairs.size()].first));
}

// Every key into a list (the hash's way of enumerating) against a walk collecting the keys.
void BM_HashEnumKey(benchmark::State &state) {
    PKLIBSZHASH hash = FilledHash(MakePairs(static_cast<int>(state.range(0))));
    for (auto _ : state) {
        PKLIBSZLIST list = nullptr;
        benchmark::DoNotOptimize(KLIBSzHashEnumKey(hash, &list));
        KLIBSzListFree(list);
    }
    KLIBSzHashFree(hash);
    state.SetItemsProcessed(state.iterations() * state.range(0));
}

void BM_MapEnumKey(benchmark::State &state) {
    const auto pairs = MakePairs(static_cast<int>(state.range(0)));
    const std::unordered_map<std::string, std::string> map(pairs.begin(), pairs.end());
    for (auto _ : state) {
        std::vector<std::string> keys;
        for (const auto &entry : map)
            keys.push_back(entry.first);
        benchmark::DoNotOptimize(keys.data());
    }
    state.SetItemsProcessed(state.iterations() * state.range(0));
}

// One growth step on its own: the block rebuilt at the next slot count (strings copied).
void BM_HashRebuild(benchmark::State &state) {
    PKLIBSZHASH hash = FilledHash(MakePairs(static_cast<int>(state.range(0))));
    for (auto _ : state) {
        PKLIBSZHASH grown = PshKLIBIReSizeHash(hash, hash->nSlot * 4 - 5, hash->cbData);
        benchmark::DoNotOptimize(grown);
        free(grown);
    }
    KLIBSzHashFree(hash);
    state.SetItemsProcessed(state.iterations() * state.range(0));
}

// The same work for the map: every pair copied into a table of four times the buckets.
void BM_MapRehash(benchmark::State &state) {
    const auto pairs = MakePairs(static_cast<int>(state.range(0)));
    const std::unordered_map<std::string, std::string> map(pairs.begin(), pairs.end());
    for (auto _ : state) {
        std::unordered_map<std::string, std::string> grown(map.begin(), map.end(),
                                                           map.bucket_count() * 4);
        benchmark::DoNotOptimize(grown.bucket_count());
    }
    state.SetItemsProcessed(state.iterations() * state.range(0));
}

BENCHMARK(BM_HashSet)->Arg(100)->Arg(10000);
BENCHMARK(BM_MapSet)->Arg(100)->Arg(10000);
BENCHMARK(BM_HashGet)->Arg(100)->Arg(10000);
BENCHMARK(BM_MapGet)->Arg(100)->Arg(10000);
BENCHMARK(BM_HashEnumKey)->Arg(100)->Arg(10000);
BENCHMARK(BM_MapEnumKey)->Arg(100)->Arg(10000);
BENCHMARK(BM_HashRebuild)->Arg(100)->Arg(10000);
BENCHMARK(BM_MapRehash)->Arg(100)->Arg(10000);

}  // namespace
