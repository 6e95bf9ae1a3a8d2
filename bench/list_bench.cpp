// The string list against what a caller would otherwise use: a std::vector<std::string>.
#include <benchmark/benchmark.h>

#include <algorithm>
#include <cstdio>
#include <string>
#include <vector>

#include "kovasdk/list.h"

namespace {

std::vector<std::string> Names(int n) {
    std::vector<std::string> names;
    for (int i = 0; i < n; ++i) {
        char name[32];
        snprintf(name, sizeof name, "user%07d", (i * 7919) % n);
        names.emplace_back(name);
    }
    return names;
}

void BM_ListPush(benchmark::State &state) {
    const auto names = Names(static_cast<int>(state.range(0)));
    for (auto _ : state) {
        PKLIBSZLIST list = PslKLIBSzListAlloc(0);
        for (const auto &n : names)
            KLIBSzListPush(&list, n.c_str());
        benchmark::DoNotOptimize(list);
        KLIBSzListFree(list);
    }
    state.SetItemsProcessed(state.iterations() * state.range(0));
}

void BM_VectorPush(benchmark::State &state) {
    const auto names = Names(static_cast<int>(state.range(0)));
    for (auto _ : state) {
        std::vector<std::string> v;
        for (const auto &n : names)
            v.push_back(n);
        benchmark::DoNotOptimize(v.data());
    }
    state.SetItemsProcessed(state.iterations() * state.range(0));
}

void BM_ListSortedFind(benchmark::State &state) {
    const auto names = Names(static_cast<int>(state.range(0)));
    PKLIBSZLIST list = PslKLIBSzListAlloc(0);
    for (const auto &n : names)
        KLIBSzListPush(&list, n.c_str());
    KLIBSzListSortItems(list, KLIB_SZLIST_SORT_BYTES);
    size_t i = 0;
    for (auto _ : state) {
        benchmark::DoNotOptimize(KLIBSzListFind(list, names[i++ % names.size()].c_str()));
    }
    KLIBSzListFree(list);
}

void BM_VectorSortedFind(benchmark::State &state) {
    auto names = Names(static_cast<int>(state.range(0)));
    auto sorted = names;
    std::sort(sorted.begin(), sorted.end());
    size_t i = 0;
    for (auto _ : state) {
        benchmark::DoNotOptimize(
            std::lower_bound(sorted.begin(), sorted.end(), names[i++ % names.size()]));
    }
}

void BM_ListAndMerge(benchmark::State &state) {
    const auto names = Names(static_cast<int>(state.range(0)));
    PKLIBSZLIST a = PslKLIBSzListAlloc(0), b = PslKLIBSzListAlloc(0);
    for (size_t i = 0; i < names.size(); ++i) {
        KLIBSzListPush(&a, names[i].c_str());
        if (i % 2 == 0) KLIBSzListPush(&b, names[i].c_str());
    }
    KLIBSzListSortItems(a, KLIB_SZLIST_SORT_BYTES);
    KLIBSzListSortItems(b, KLIB_SZLIST_SORT_BYTES);
    for (auto _ : state) {
        PKLIBSZLIST r = PslKLIBSzListAnd(a, b, KLIB_SZLIST_NEW_LIST);
        benchmark::DoNotOptimize(r);
        KLIBSzListFree(r);
    }
    KLIBSzListFree(a);
    KLIBSzListFree(b);
}

void BM_VectorSetIntersection(benchmark::State &state) {
    const auto names = Names(static_cast<int>(state.range(0)));
    std::vector<std::string> a, b;
    for (size_t i = 0; i < names.size(); ++i) {
        a.push_back(names[i]);
        if (i % 2 == 0) b.push_back(names[i]);
    }
    std::sort(a.begin(), a.end());
    std::sort(b.begin(), b.end());
    for (auto _ : state) {
        std::vector<std::string> r;
        std::set_intersection(a.begin(), a.end(), b.begin(), b.end(), std::back_inserter(r));
        benchmark::DoNotOptimize(r.data());
    }
}

BENCHMARK(BM_ListPush)->Arg(100)->Arg(10000);
BENCHMARK(BM_VectorPush)->Arg(100)->Arg(10000);
BENCHMARK(BM_ListSortedFind)->Arg(10000);
BENCHMARK(BM_VectorSortedFind)->Arg(10000);
BENCHMARK(BM_ListAndMerge)->Arg(10000);
BENCHMARK(BM_VectorSetIntersection)->Arg(10000);

}  // namespace
