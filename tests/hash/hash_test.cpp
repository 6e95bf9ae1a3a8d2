// The string hash: layout, hash code, probing, growth, failures, and a model-based run.
#include <cstdio>
#include <cstring>
#include <map>
#include <random>
#include <string>
#include <vector>

#include "hash/hash_internal.h"
#include "kovasdk/kovasdk.h"
#include "support/sandbox.h"

namespace {

using Hash = std::unique_ptr<KLIBSZHASH, void (*)(PKLIBSZHASH)>;

int set(Hash &hash, const std::string &key, const std::string &value) {
    PKLIBSZHASH raw = hash.release();
    const int slot = KLIBSzHashSetValue(&raw, key.c_str(), value.c_str());
    hash.reset(raw);
    return slot;
}

std::string get(const Hash &hash, const std::string &key) {
    const char *value = SzKLIBSzHashGetValue(hash.get(), key.c_str());
    return value != nullptr ? value : "<absent>";
}

// A new hash holding key0 = v0, key1 = v1, ...
Hash filled(int n, int size = 0) {
    Hash h(PshKLIBSzHashAlloc(size), KLIBSzHashFree);
    for (int i = 0; i < n; ++i)
        set(h, "key" + std::to_string(i), "v" + std::to_string(i));
    return h;
}

std::vector<std::string> items_of(const KLIBSZLIST *list) {
    std::vector<std::string> out;
    for (int i = 0; i < list->nItem; ++i)
        out.emplace_back(SzKLIBSzListGet(list, i));
    return out;
}

// Keys whose 4-byte groups have the same sum collide in every table size: the last byte of the
// first group goes up as the last byte of the second goes down.
std::vector<std::string> colliding_keys(char family, int count) {
    std::vector<std::string> keys;
    for (int i = 0; i < count; ++i) {
        keys.push_back(std::string{'K', family, '-', static_cast<char>('A' + i)} +
                       std::string{'v', family, '-', static_cast<char>('z' - i)});
    }
    return keys;
}

TEST(HashLayout, HeaderSlotsPairsAndOverwrites) {
    EXPECT_EQ(filled(0, 4000)->cbData, 4000);
    Hash h = filled(0);
    ASSERT_NE(h, nullptr);
    EXPECT_EQ(h->nSlot, 31);
    EXPECT_EQ(h->cbData, 512);
    // Four 32-bit fields, then the pointer: 20 bytes with 4-byte pointers, 24 with 8-byte ones.
    EXPECT_EQ(offsetof(KLIBSZHASH, pNext), 16u);
    EXPECT_EQ(offsetof(KLIBSZHASH, rgSlot), sizeof(void *) == 4 ? 20u : 24u);
    ASSERT_GE(set(h, "port", "5000"), 0);  // stored as key NUL value NUL
    EXPECT_EQ(std::string(kova::hash::string_area(h.get()), 10), std::string("port\0005000", 10));
    EXPECT_EQ(h->pNext, kova::hash::string_area(h.get()) + 10);
    // A value no longer than the old one is written over it (the model checks the free bytes).
    const char *old_text = SzKLIBSzHashGetValue(h.get(), "port");
    set(h, "port", "80");
    EXPECT_EQ(SzKLIBSzHashGetValue(h.get(), "port"), old_text);

    kova::test::AllocationFailure fail(1);
    EXPECT_EQ(PshKLIBSzHashAlloc(0), nullptr);
    EXPECT_EQ(KLIBErrGet(), static_cast<uint32_t>(ERR_OUT_OF_MEMORY));
    EXPECT_STREQ(KOVAErrorGetFile(), "hash_allocator.cpp");
    EXPECT_EQ(KOVAErrorGetLine(), 39);
}

// With 2^31 - 1 slots the sum itself shows.
TEST(HashCode, ReadsBigEndianGroupsAndWrapsAt32Bits) {
    constexpr int kBig = 0x7FFFFFFF;
    EXPECT_EQ(KLIBIRadixHashCode("", 31), 0);
    EXPECT_EQ(KLIBIRadixHashCode("abcd", 31), 5);  // 0x61626364 mod 31
    EXPECT_EQ(KLIBIRadixHashCode("a", kBig), 0x61000000);
    EXPECT_EQ(KLIBIRadixHashCode("ab", kBig), 0x61620000);
    EXPECT_EQ(KLIBIRadixHashCode("abc", kBig), 0x61626300);
    EXPECT_EQ(KLIBIRadixHashCode("abcde", kBig), 0x46626365);     // 0xC6626364, an unsigned modulo
    EXPECT_EQ(KLIBIRadixHashCode("\xFE\x80", kBig), 0x7E800001);  // unsigned bytes: 0xFE800000
    EXPECT_EQ(KLIBIRadixHashCode("\xFF\xFF\xFF\xFF\x01", kBig), 0x00FFFFFF);  // the sum wraps
    EXPECT_EQ(KLIBIRadixHashCode(nullptr, 31), -1);
    EXPECT_EQ(KLIBIRadixHashCode("abcd", 0), -1);
    EXPECT_EQ(KLIBIRadixHashCode("abcd", -5), -1);
}

TEST(HashProbe, CollidersWrapAndTombstonesAreSkippedOrReused) {
    Hash h = filled(0);
    const auto keys = colliding_keys('u', 4);  // home slot 30: the probe wraps to 0, 1, 2
    for (int i = 0; i < 4; ++i)
        EXPECT_EQ(set(h, keys[i], "v" + std::to_string(i)), (30 + i) % 31);
    EXPECT_STREQ(SzKLIBSzHashRemoveKey(h.get(), keys[0].c_str()), "v0");
    EXPECT_EQ(get(h, keys[0]), "<absent>");
    EXPECT_EQ(get(h, keys[3]), "v3");  // found past the tombstone
    // The tombstone in the home slot itself is not reused: the key lands after its colliders.
    EXPECT_EQ(set(h, keys[0], "again"), 3);
    // A tombstone after the home slot is reused.
    SzKLIBSzHashRemoveKey(h.get(), keys[1].c_str());
    EXPECT_EQ(set(h, keys[1], "back"), 0);
    EXPECT_EQ(h->nPair, 4);
    EXPECT_EQ(get(h, keys[0]), "again");
    EXPECT_EQ(get(h, keys[1]), "back");
}

TEST(HashNullArguments, FailWithTheDefinedResults) {
    Hash h = filled(2);
    PKLIBSZHASH raw = h.get(), none = nullptr;
    EXPECT_EQ(KLIBSzHashSetValue(nullptr, "k", "v"), -1);
    EXPECT_EQ(KLIBSzHashSetValue(&raw, nullptr, "v"), -1);
    EXPECT_EQ(KLIBSzHashSetValue(&raw, "k", nullptr), -1);
    EXPECT_EQ(KLIBSzHashSetValue(&none, "k", "v"), -1);
    EXPECT_EQ(SzKLIBSzHashGetValue(nullptr, "k"), nullptr);
    EXPECT_EQ(SzKLIBSzHashGetValue(h.get(), nullptr), nullptr);
    EXPECT_EQ(PslSzHashRemoveAll(nullptr), nullptr);
    EXPECT_EQ(KLIBSzHashPairNum(h.get()), 2);
    EXPECT_EQ(KLIBSzHashGetLength(h.get()), 2u);
    KLIBErrSetEx(ERR_KEY_EXISTS, "sentinel", 1);
    EXPECT_EQ(KLIBSzHashGetLength(nullptr), 0xFFFFFFFFu);
    EXPECT_EQ(KLIBErrGet(), static_cast<uint32_t>(ERR_KEY_EXISTS));  // no code of its own
    EXPECT_EQ(KLIBSzHashPairNum(nullptr), -1);
    EXPECT_EQ(KLIBErrGet(), static_cast<uint32_t>(ERR_BAD_PARAMETERS));
    EXPECT_STREQ(KOVAErrorGetFile(), "hash_pair_num.cpp");
    EXPECT_EQ(KOVAErrorGetLine(), 26);
}

TEST(HashGrowth, DataGrowsByTheFormulaWhenFreeBytesOnlyEqualTheNeed) {
    Hash h = filled(0);
    set(h, "a", std::string(300, 'x'));  // 303 bytes taken, 209 left
    set(h, "b", std::string(206, 'y'));  // 209 needed: 512 + (31 - 1) * (512 / 1) + 209
    EXPECT_EQ(h->cbData, 512 + 30 * 512 + 209);
    EXPECT_EQ(h->cbFree, h->cbData - 303 - 209);
    EXPECT_EQ(h->nSlot, 31);
}

TEST(HashGrowth, FailedRebuildLeavesTheOldHashUnchanged) {
    for (const bool big_value : {false, true}) {
        SCOPED_TRACE(big_value ? "data growth" : "slot growth");
        Hash h = filled(24);
        KLIBSZHASH *before = h.get();
        const std::vector<char> image(reinterpret_cast<char *>(before),
                                      kova::hash::string_area(before) + 512);
        {
            kova::test::AllocationFailure fail(1);
            // The 25th key grows the slots; a 600-byte value on an existing key grows the data.
            EXPECT_EQ(big_value ? set(h, "key1", std::string(600, 'y')) : set(h, "key24", "v"), -1);
        }
        EXPECT_EQ(KLIBErrGet(), static_cast<uint32_t>(ERR_OUT_OF_MEMORY));
        ASSERT_EQ(h.get(), before);
        EXPECT_EQ(0, memcmp(image.data(), before, image.size()));
        // With memory back the rebuild works, even with key and value inside the old block.
        PKLIBSZHASH raw = h.release();
        const int slot = KLIBSzHashSetValue(&raw, SzKLIBSzHashGetValue(raw, "key3"),
                                            SzKLIBSzHashGetValue(raw, "key7"));
        h.reset(raw);
        EXPECT_GE(slot, 0);
        EXPECT_EQ(h->nSlot, 119);
        EXPECT_EQ(get(h, "v3"), "v7");
    }
}

TEST(HashEnum, KeysComeInSlotOrderAndAFailedPushLeavesTheList) {
    Hash h = filled(0);
    for (const char *k : {"zeta", "alpha", "mid", "a", "abcd"})
        set(h, k, "x");
    const std::vector<std::string> order = {"a", "abcd", "alpha", "zeta", "mid"};  // 2, 5, ...
    PKLIBSZLIST list = PslKLIBSzListAlloc(0);
    EXPECT_EQ(KLIBSzHashEnumKey(h.get(), &list), 5);
    EXPECT_EQ(items_of(list), order);
    EXPECT_EQ(KLIBSzHashEnumKey(h.get(), nullptr), 5);
    EXPECT_EQ(KLIBSzHashEnumKey(nullptr, &list), -1);

    Hash many = filled(0);
    for (int i = 0; i < 60; ++i)
        set(many, "a-rather-long-key-number-" + std::to_string(i), "x");
    {
        kova::test::AllocationFailure fail(1);
        EXPECT_EQ(KLIBSzHashEnumKey(many.get(), &list), -1);
    }
    EXPECT_EQ(items_of(list), order);
    KLIBSzListFree(list);
}

std::string write(const char *section, const KLIBSZHASH *h, const char *format, int *rc) {
    char text[128] = {};
    FILE *f = fmemopen(text, sizeof text - 1, "w");
    *rc = ErrKLIBIFileHash2File(f, section, h, format);
    fclose(f);
    return text;
}

TEST(HashToFile, WritesPairsInSlotOrderRefusesBadFormatsReportsFailures) {
    Hash h = filled(0);
    set(h, "z", "2");     // slot 30
    set(h, "abcd", "1");  // slot 5
    int rc = -1;
    EXPECT_EQ(write("global", h.get(), nullptr, &rc), "[global]\nabcd=1\nz=2\n");
    EXPECT_EQ(rc, 0);
    EXPECT_EQ(write(nullptr, h.get(), "%s = \"%s\"\n", &rc), "abcd = \"1\"\nz = \"2\"\n");
    EXPECT_EQ(write("empty", nullptr, nullptr, &rc), "[empty]\n");
    EXPECT_EQ(rc, 0);
    for (const char *format :
         {"%s%s\n", "%s=%s", "=%s%s\n", "%s\n=%s", "%d=%s\n", "%s=%s\n%s", "%s=%n%s\n"}) {
        EXPECT_EQ(KLIBIFileCheckFormat(format), 0) << format;
    }
    EXPECT_EQ(write("s", h.get(), "%s=%s", &rc), "");  // refused before the header is written
    EXPECT_EQ(rc, -1);
    EXPECT_EQ(KOVAErrorGetLine(), 54);
    for (const char *format : {"%s=%s\n", "%%s=%s\n", "x%s y= %s z\n", "%s=%s\n\n"})
        EXPECT_EQ(KLIBIFileCheckFormat(format), 1) << format;
    EXPECT_EQ(KLIBIFileCheckFormat(nullptr), 1);

    char buffer[64] = "";
    FILE *read_only = fmemopen(buffer, sizeof buffer, "r");
    EXPECT_EQ(ErrKLIBIFileHash2File(read_only, "s", h.get(), nullptr), -1);
    EXPECT_EQ(KLIBErrGet(), static_cast<uint32_t>(ERR_WRITE_FAILED));
    EXPECT_EQ(KOVAErrorGetLine(), 60);
    EXPECT_EQ(ErrKLIBIFileHash2File(read_only, nullptr, h.get(), nullptr), -1);
    EXPECT_EQ(KOVAErrorGetLine(), 74);
    fclose(read_only);
    EXPECT_EQ(ErrKLIBIFileHash2File(nullptr, "s", h.get(), nullptr), -1);
    EXPECT_EQ(KLIBErrGet(), static_cast<uint32_t>(ERR_BAD_PARAMETERS));
}

// The hash against std::map over random set / overwrite / remove / remove-all operations on
// colliding keys; after every step the counts, free bytes and growth follow the rules.
TEST(HashModel, MatchesAMapOverRandomOperations) {
    std::vector<std::string> keys;
    for (char family = 'a'; family < 'i'; ++family) {
        const auto more = colliding_keys(family, 20);
        keys.insert(keys.end(), more.begin(), more.end());
    }
    for (int i = 0; i < 40; ++i)
        keys.push_back(std::string(1 + i % 3, static_cast<char>('!' + i)));
    std::mt19937 rng(20261121);
    Hash h = filled(0);
    std::map<std::string, std::string> model;
    int slots = 31, data = 512, used = 0;  // used: bytes taken from the string area

    // Making room for a store of needed bytes, written from the rules.
    auto take = [&](size_t bytes) {
        const int needed = static_cast<int>(bytes), pairs = static_cast<int>(model.size());
        const int new_slots =
            static_cast<float>(slots - pairs) / slots < 0.25f ? slots * 4 - 5 : slots;
        if (data - used <= needed)
            data += (slots - pairs) * (pairs > 0 ? data / pairs : needed) + needed;
        else if (new_slots == slots)
            return void(used += needed);
        slots = new_slots;
        used = needed;  // a rebuild packs the pairs it keeps
        for (const auto &[k, v] : model)
            used += static_cast<int>(k.size() + v.size() + 2);
    };

    for (int step = 0; step < 20000; ++step) {
        SCOPED_TRACE("step " + std::to_string(step));
        const std::string &key = keys[rng() % keys.size()];
        const unsigned op = rng() % 10;
        auto it = model.find(key);
        if (op < 6) {  // values mostly short, one in eight up to 300 bytes
            const size_t len = std::uniform_int_distribution<size_t>(0, rng() % 8 ? 12 : 300)(rng);
            const std::string value(len, static_cast<char>('a' + rng() % 26));
            if (it == model.end())
                take(key.size() + len + 2);
            else if (len > it->second.size())
                take(len + 1);
            model[key] = value;
            const int slot = set(h, key, value);
            ASSERT_GE(slot, 0);
            ASSERT_EQ(KLIBIGetLookDict(h.get(), key.c_str()), slot);
        } else if (op < 9) {
            const char *removed = SzKLIBSzHashRemoveKey(h.get(), key.c_str());
            ASSERT_EQ(removed ? removed : "<absent>", it != model.end() ? it->second : "<absent>");
            if (it != model.end()) model.erase(it);
        } else if (rng() % 50 == 0) {
            ASSERT_EQ(PslSzHashRemoveAll(h.get()), h.get());
            model.clear();
            used = 0;
        }
        ASSERT_EQ(h->nPair, static_cast<int>(model.size()));
        ASSERT_EQ(h->nSlot, slots);
        ASSERT_EQ(h->cbData, data);
        ASSERT_EQ(h->cbFree, data - used);
        for (size_t k = 0; (step % 7 == 0 || step > 19900) && k < keys.size(); ++k) {
            auto found = model.find(keys[k]);
            ASSERT_EQ(get(h, keys[k]), found != model.end() ? found->second : "<absent>")
                << keys[k];
        }
    }
    EXPECT_GE(slots, 471);  // the run went through two growths at least
}

}  // namespace
