// The record store over a btree of 10,000 users against the btree library called directly
// (the layer's overhead) and a linear scan of a passwd-like text file (what the cache saves).
#include <db_185.h>
// After db_185.h: declares the DBT helpers.
#include <benchmark/benchmark.h>
#include <fcntl.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "bench_scratch.h"
#include "kovasdk/bdb.h"

namespace {

constexpr int kUsers = 10000;

// One btree and one text file holding the same users: the key is the name with its NUL, the
// record the passwd line.
struct Users {
    kova::bench::ScratchDir dir;
    const std::string db_path = dir / "users.db", passwd_path = dir / "passwd";
    std::vector<std::string> names;  // in a scrambled lookup order
    PKOVABDB db = nullptr;

    Users() {
        FILE *passwd = fopen(passwd_path.c_str(), "w");
        db = KOVABDbOpen(db_path.c_str(), O_RDWR | O_CREAT, 0);
        if (passwd == nullptr || db == nullptr) abort();
        for (int i = 0; i < kUsers; ++i) {
            char name[16], line[128];
            snprintf(name, sizeof name, "user%05d", i);
            snprintf(line, sizeof line, "%s:x:%d:100:User %d:/share/homes/%s:/bin/sh", name,
                     1000 + i, i, name);
            fprintf(passwd, "%s\n", line);
            KOVABDbSet(db, name, static_cast<int32_t>(strlen(name) + 1), line,
                       static_cast<int32_t>(strlen(line) + 1));
        }
        fclose(passwd);
        for (int i = 0; i < kUsers; ++i) {
            char name[16];
            snprintf(name, sizeof name, "user%05d", (i * 7919) % kUsers);
            names.emplace_back(name);
        }
    }
    ~Users() { KOVABDbClose(db); }
};

Users &TheUsers() {
    static Users users;
    return users;
}

void BM_BDbGet(benchmark::State &state) {
    Users &u = TheUsers();
    void *data = nullptr;
    int32_t cb = 0;
    size_t i = 0;
    for (auto _ : state) {
        const std::string &name = u.names[i++ % kUsers];
        if (KOVABDbGet(u.db, name.c_str(), static_cast<int32_t>(name.size() + 1), &data, &cb) != 0)
            state.SkipWithError("KOVABDbGet failed");
    }
    KOVABDbFree(data);
}

// The same database through the library's own get, nothing copied out.
void BM_DbopenGet(benchmark::State &state) {
    Users &u = TheUsers();
    DB *db = u.db->pDb;
    size_t i = 0;
    for (auto _ : state) {
        const std::string &name = u.names[i++ % kUsers];
        DBT key{const_cast<char *>(name.c_str()), name.size() + 1}, value{};
        if (db->get(db, &key, &value, 0) != 0) state.SkipWithError("db->get failed");
        benchmark::DoNotOptimize(value.data);
    }
}

// What a caller without the cache does: read the text file until the name's line.
void BM_PasswdScan(benchmark::State &state) {
    Users &u = TheUsers();
    size_t i = 0;
    char line[256];
    for (auto _ : state) {
        const std::string &name = u.names[i++ % kUsers];
        FILE *in = fopen(u.passwd_path.c_str(), "r");
        bool found = false;
        while (!found && fgets(line, sizeof line, in) != nullptr)
            found = strncmp(line, name.c_str(), name.size()) == 0 && line[name.size()] == ':';
        fclose(in);
        if (!found) state.SkipWithError("user not found");
    }
}

// Rewrites existing records with a value of the same length.
void BM_BDbSet(benchmark::State &state) {
    Users &u = TheUsers();
    size_t i = 0;
    for (auto _ : state) {
        const std::string &name = u.names[i++ % kUsers];
        const std::string line = name + ":x:2000:100:Changed:/share/homes/" + name + ":/bin/sh";
        if (KOVABDbSet(u.db, name.c_str(), static_cast<int32_t>(name.size() + 1), line.c_str(),
                       static_cast<int32_t>(line.size() + 1)) != 0)
            state.SkipWithError("KOVABDbSet failed");
    }
}

void BM_DbopenPut(benchmark::State &state) {
    Users &u = TheUsers();
    DB *db = u.db->pDb;
    size_t i = 0;
    for (auto _ : state) {
        const std::string &name = u.names[i++ % kUsers];
        std::string line = name + ":x:2000:100:Changed:/share/homes/" + name + ":/bin/sh";
        DBT key{const_cast<char *>(name.c_str()), name.size() + 1};
        DBT value{line.data(), line.size() + 1};
        if (db->put(db, &key, &value, 0) != 0) state.SkipWithError("db->put failed");
    }
}

// Every record once, reserved records skipped, keys and values copied out.
void BM_BDbCursorWalk(benchmark::State &state) {
    Users &u = TheUsers();
    void *key = nullptr, *data = nullptr;
    int32_t cb_key = 0, cb_data = 0;
    for (auto _ : state) {
        KOVABDbCursorSetType(u.db, KOVA_BDB_CURSOR_FIRST);
        int n = 0;
        while (KOVABDbCursorGet(u.db, 1, &key, &cb_key, &data, &cb_data) == 0)
            ++n;
        if (n != kUsers) state.SkipWithError("walk missed records");
    }
    KOVABDbFree(key);
    KOVABDbFree(data);
    state.SetItemsProcessed(state.iterations() * kUsers);
}

void BM_DbopenSeqWalk(benchmark::State &state) {
    DB *db = TheUsers().db->pDb;
    for (auto _ : state) {
        DBT key{}, value{};
        int n = 0;
        for (u_int flag = R_FIRST; db->seq(db, &key, &value, flag) == 0; flag = R_NEXT)
            n += static_cast<const char *>(key.data)[0] != '#';
        if (n != kUsers) state.SkipWithError("walk missed records");
    }
    state.SetItemsProcessed(state.iterations() * kUsers);
}

BENCHMARK(BM_BDbGet);
BENCHMARK(BM_DbopenGet);
BENCHMARK(BM_PasswdScan)->Unit(benchmark::kMicrosecond);
BENCHMARK(BM_BDbSet);
BENCHMARK(BM_DbopenPut);
BENCHMARK(BM_BDbCursorWalk)->Unit(benchmark::kMicrosecond);
BENCHMARK(BM_DbopenSeqWalk)->Unit(benchmark::kMicrosecond);

}  // namespace
