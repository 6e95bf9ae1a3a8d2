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

using kova::test::AllocationFailure;

struct HashDeleter {
    void operator()(KLIBSZHASH *h) const { KLIBSzHashFree(h); }
};
using Hash = std::unique_ptr<KLIBSZHASH, HashDeleter>;

Hash make_hash(int size = 0) {
    return Hash(PshKLIBSzHashAlloc(size));
}

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

const char *string_area(KLIBSZHASH *h) {
    return reinterpret_cast<const char *>(&h->rgSlot[h->nSlot]);
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

TEST(HashLayout, NewHashHas31SlotsAndAtLeast512Bytes) {
    Hash h = make_hash(0);
    ASSERT_NE(h, nullptr);
    EXPECT_EQ(h->nSlot, 31);
    EXPECT_EQ(h->cbData, 512);
    EXPECT_EQ(h->cbFree, 512);
    EXPECT_EQ(h->nPair, 0);
    EXPECT_EQ(h->pNext, string_area(h.get()));
    EXPECT_EQ(make_hash(4000)->cbData, 4000);
    // Four 32-bit fields, then the pointer: 20 bytes with 4-byte pointers, 24 with 8-byte ones.
    EXPECT_EQ(offsetof(KLIBSZHASH, pNext), 16u);
    EXPECT_EQ(offsetof(KLIBSZHASH, rgSlot), sizeof(void *) == 4 ? 20u : 24u);
}

TEST(HashLayout, PairIsStoredAsKeyNulValueNul) {
    Hash h = make_hash();
    ASSERT_GE(set(h, "port", "5000"), 0);
    EXPECT_EQ(std::string(string_area(h.get()), 10), std::string("port\0"
                                                                 "5000\0",
                                                                 10));
    EXPECT_EQ(h->cbFree, 512 - 10);
    EXPECT_EQ(h->pNext, string_area(h.get()) + 10);
}

TEST(HashLayout, AllocationFailureIsReportedAtLine39) {
    AllocationFailure fail(1);
    EXPECT_EQ(PshKLIBSzHashAlloc(0), nullptr);
    EXPECT_EQ(KLIBErrGet(), static_cast<uint32_t>(ERR_OUT_OF_MEMORY));
    EXPECT_STREQ(KOVAErrorGetFile(), "hash_allocator.cpp");
    EXPECT_EQ(KOVAErrorGetLine(), 39);
}

TEST(HashCode, ReadsBigEndianGroupsAndWrapsAt32Bits) {
    constexpr int kBig = 0x7FFFFFFF;  // large enough to show the sum itself
    EXPECT_EQ(KLIBIRadixHashCode("", 31), 0);
    EXPECT_EQ(KLIBIRadixHashCode("abcd", 31), 5);
    EXPECT_EQ(KLIBIRadixHashCode("abcd", kBig), 0x61626364);
    EXPECT_EQ(KLIBIRadixHashCode("a", kBig), 0x61000000);
    EXPECT_EQ(KLIBIRadixHashCode("ab", kBig), 0x61620000);
    EXPECT_EQ(KLIBIRadixHashCode("abc", kBig), 0x61626300);
    EXPECT_EQ(KLIBIRadixHashCode("abcde", kBig), 0x46626365);  // 0xC6626364 mod (2^31 - 1)
    // Bytes above 0x7F are unsigned: 0xFE800000 mod (2^31 - 1).
    EXPECT_EQ(KLIBIRadixHashCode("\xFE\x80", kBig), 0x7E800001);
    // 0xFFFFFFFF + 0x01000000 wraps to 0x00FFFFFF.
    EXPECT_EQ(KLIBIRadixHashCode("\xFF\xFF\xFF\xFF\x01", kBig), 0x00FFFFFF);
    EXPECT_EQ(KLIBIRadixHashCode("\xFF\xFF\xFF\xFF", 1000), static_cast<int>(0xFFFFFFFFu % 1000));
    EXPECT_EQ(KLIBIRadixHashCode(nullptr, 31), -1);
    EXPECT_EQ(KLIBIRadixHashCode("abcd", 0), -1);
    EXPECT_EQ(KLIBIRadixHashCode("abcd", -5), -1);
}

TEST(HashCode, CollidingKeysShareTheirHomeSlotInEveryTableSize) {
    const auto keys = colliding_keys('a', 20);
    for (int slots : {31, 119, 471, 1879}) {
        for (const auto &k : keys) {
            EXPECT_EQ(KLIBIRadixHashCode(k.c_str(), slots),
                      KLIBIRadixHashCode(keys[0].c_str(), slots));
        }
    }
}

TEST(HashProbe, CollidersTakeTheFollowingSlotsAndWrap) {
    Hash h = make_hash();
    const auto keys = colliding_keys('b', 4);
    const int home = KLIBIRadixHashCode(keys[0].c_str(), 31);
    for (size_t i = 0; i < keys.size(); ++i) {
        EXPECT_EQ(set(h, keys[i], "v" + std::to_string(i)), (home + static_cast<int>(i)) % 31);
    }
    for (size_t i = 0; i < keys.size(); ++i)
        EXPECT_EQ(get(h, keys[i]), "v" + std::to_string(i));
}

TEST(HashProbe, RemovedKeyCanBeSetAgainWithCollidersBeyondIt) {
    Hash h = make_hash();
    const auto keys = colliding_keys('c', 3);
    const int home = set(h, keys[0], "first");
    set(h, keys[1], "second");
    set(h, keys[2], "third");
    EXPECT_STREQ(SzKLIBSzHashRemoveKey(h.get(), keys[0].c_str()), "first");
    EXPECT_EQ(get(h, keys[0]), "<absent>");
    EXPECT_EQ(get(h, keys[2]), "third");  // found past the tombstone
    // The tombstone in the home slot itself is not reused: the key lands after its colliders.
    EXPECT_EQ(set(h, keys[0], "again"), (home + 3) % 31);
    EXPECT_EQ(get(h, keys[0]), "again");
    EXPECT_EQ(get(h, keys[1]), "second");
    EXPECT_EQ(h->nPair, 3);
    // A tombstone after the home slot is reused.
    SzKLIBSzHashRemoveKey(h.get(), keys[1].c_str());
    EXPECT_EQ(set(h, keys[1], "back"), (home + 1) % 31);
}

TEST(HashSet, OverwriteReusesTextOnlyWhenNotLonger) {
    Hash h = make_hash();
    set(h, "name", "medium");
    const int free_before = h->cbFree;
    const char *old_text = SzKLIBSzHashGetValue(h.get(), "name");
    set(h, "name", "short");
    EXPECT_EQ(h->cbFree, free_before);
    EXPECT_EQ(SzKLIBSzHashGetValue(h.get(), "name"), old_text);
    set(h, "name", "a much longer value");
    EXPECT_EQ(h->cbFree, free_before - 20);
    EXPECT_EQ(get(h, "name"), "a much longer value");
    EXPECT_EQ(h->nPair, 1);
}

TEST(HashSet, NullArgumentsFail) {
    Hash h = make_hash();
    PKLIBSZHASH raw = h.get();
    EXPECT_EQ(KLIBSzHashSetValue(nullptr, "k", "v"), -1);
    EXPECT_EQ(KLIBSzHashSetValue(&raw, nullptr, "v"), -1);
    EXPECT_EQ(KLIBSzHashSetValue(&raw, "k", nullptr), -1);
    PKLIBSZHASH none = nullptr;
    EXPECT_EQ(KLIBSzHashSetValue(&none, "k", "v"), -1);
    EXPECT_EQ(SzKLIBSzHashGetValue(nullptr, "k"), nullptr);
    EXPECT_EQ(SzKLIBSzHashGetValue(h.get(), nullptr), nullptr);
    EXPECT_EQ(SzKLIBSzHashRemoveKey(h.get(), "absent"), nullptr);
}

TEST(HashGrowth, The25thKeyGrowsTheTableTo119ThenThe91stTo471) {
    Hash h = make_hash();
    for (int i = 0; i < 24; ++i)
        set(h, "key" + std::to_string(i), "v");
    EXPECT_EQ(h->nSlot, 31);
    set(h, "key24", "v");
    EXPECT_EQ(h->nSlot, 119);
    for (int i = 25; i < 90; ++i)
        set(h, "key" + std::to_string(i), "v");
    EXPECT_EQ(h->nSlot, 119);
    set(h, "key90", "v");
    EXPECT_EQ(h->nSlot, 471);
    for (int i = 0; i < 91; ++i)
        EXPECT_EQ(get(h, "key" + std::to_string(i)), "v");
}

TEST(HashGrowth, DataAreaGrowsByTheDefinedFormula) {
    Hash h = make_hash();
    const std::string value(200, 'x');
    set(h, "a", value);  // 203 bytes
    set(h, "b", value);  // 406 bytes, 106 left
    EXPECT_EQ(h->cbData, 512);
    // 203 needed, 106 free: 512 + (31 - 2) * (512 / 2) + 203.
    set(h, "c", value);
    EXPECT_EQ(h->cbData, 512 + 29 * 256 + 203);
    EXPECT_EQ(h->cbFree, h->cbData - 3 * 203);
    EXPECT_EQ(h->nSlot, 31);
    EXPECT_EQ(get(h, "a"), value);
}

TEST(HashGrowth, ValueTakenFromTheHashSurvivesARebuild) {
    Hash h = make_hash();
    for (int i = 0; i < 24; ++i)
        set(h, "key" + std::to_string(i), "value" + std::to_string(i));
    PKLIBSZHASH raw = h.release();
    // Key and value point into the block that this very call replaces.
    ASSERT_GE(KLIBSzHashSetValue(&raw, SzKLIBSzHashGetValue(raw, "key3"),
                                 SzKLIBSzHashGetValue(raw, "key7")),
              0);
    h.reset(raw);
    EXPECT_EQ(h->nSlot, 119);
    EXPECT_EQ(get(h, "value3"), "value7");
}

TEST(HashGrowth, FailedRebuildLeavesTheOldHashUnchanged) {
    for (const bool big_value : {false, true}) {
        Hash h = make_hash();
        for (int i = 0; i < 24; ++i)
            set(h, "key" + std::to_string(i), "v" + std::to_string(i));
        KLIBSZHASH *before = h.get();
        const std::vector<char> image(reinterpret_cast<const char *>(before),
                                      string_area(before) + 512);
        {
            AllocationFailure fail(1);
            // The 25th key grows the slots; a 600-byte value on an existing key grows the data.
            const int slot =
                big_value ? set(h, "key1", std::string(600, 'y')) : set(h, "key24", "v");
            EXPECT_EQ(slot, -1);
        }
        EXPECT_EQ(KLIBErrGet(), static_cast<uint32_t>(ERR_OUT_OF_MEMORY));
        ASSERT_EQ(h.get(), before);
        EXPECT_EQ(0, memcmp(image.data(), before, image.size()));
        for (int i = 0; i < 24; ++i)
            EXPECT_EQ(get(h, "key" + std::to_string(i)), "v" + std::to_string(i));
        EXPECT_GE(set(h, "key24", "v"), 0);  // and works once memory is back
    }
}

TEST(HashCounts, PairNumAndGetLength) {
    Hash h = make_hash();
    set(h, "a", "1");
    set(h, "b", "2");
    EXPECT_EQ(KLIBSzHashPairNum(h.get()), 2);
    EXPECT_EQ(KLIBSzHashGetLength(h.get()), 2u);
    KLIBErrSetEx(ERR_KEY_EXISTS, "sentinel", 1);
    EXPECT_EQ(KLIBSzHashGetLength(nullptr), 0xFFFFFFFFu);
    EXPECT_EQ(KLIBErrGet(), static_cast<uint32_t>(ERR_KEY_EXISTS));
    EXPECT_EQ(KLIBSzHashPairNum(nullptr), -1);
    EXPECT_EQ(KLIBErrGet(), static_cast<uint32_t>(ERR_BAD_PARAMETERS));
    EXPECT_STREQ(KOVAErrorGetFile(), "hash_pair_num.cpp");
    EXPECT_EQ(KOVAErrorGetLine(), 26);
}

TEST(HashRemoveAll, EmptiesInPlaceAndTheSpaceIsReused) {
    Hash h = make_hash();
    for (int i = 0; i < 10; ++i)
        set(h, "key" + std::to_string(i), "value");
    KLIBSZHASH *same = h.get();
    EXPECT_EQ(PslSzHashRemoveAll(h.get()), same);
    EXPECT_EQ(h->nPair, 0);
    EXPECT_EQ(h->cbFree, h->cbData);
    EXPECT_EQ(h->pNext, string_area(h.get()));
    for (int i = 0; i < 10; ++i)
        EXPECT_EQ(get(h, "key" + std::to_string(i)), "<absent>");
    set(h, "key3", "new");
    EXPECT_EQ(get(h, "key3"), "new");
    EXPECT_EQ(h.get(), same);
    EXPECT_EQ(PslSzHashRemoveAll(nullptr), nullptr);
}

std::vector<std::string> items_of(const KLIBSZLIST *list) {
    std::vector<std::string> out;
    for (int i = 0; i < list->nItem; ++i)
        out.emplace_back(SzKLIBSzListGet(list, i));
    return out;
}

TEST(HashEnum, KeysComeInSlotOrder) {
    Hash h = make_hash();
    for (const char *k : {"zeta", "alpha", "mid", "a", "abcd"})
        set(h, k, "x");
    PKLIBSZLIST list = PslKLIBSzListAlloc(0);
    ASSERT_EQ(KLIBSzHashEnumKey(h.get(), &list), 5);
    ASSERT_EQ(list->nItem, 5);
    int last = -1;
    for (int i = 0; i < list->nItem; ++i) {
        const int slot = KLIBIGetLookDict(h.get(), SzKLIBSzListGet(list, i));
        EXPECT_GT(slot, last);
        last = slot;
    }
    EXPECT_EQ(KLIBSzHashEnumKey(h.get(), nullptr), 5);
    PKLIBSZLIST made = nullptr;
    EXPECT_EQ(KLIBSzHashEnumKey(h.get(), &made), 5);
    ASSERT_NE(made, nullptr);
    EXPECT_EQ(items_of(made), items_of(list));
    KLIBSzListFree(made);
    EXPECT_EQ(KLIBSzHashEnumKey(nullptr, &list), -1);
    KLIBSzListFree(list);
}

TEST(HashEnum, FailedPushLeavesTheListAsItWas) {
    Hash h = make_hash();
    for (int i = 0; i < 60; ++i)
        set(h, "a-rather-long-key-number-" + std::to_string(i), "x");
    PKLIBSZLIST list = PslKLIBSzListAlloc(0);
    KLIBSzListPush(&list, "kept");
    {
        AllocationFailure fail(1);
        EXPECT_EQ(KLIBSzHashEnumKey(h.get(), &list), -1);
    }
    EXPECT_EQ(list->nItem, 1);
    EXPECT_STREQ(SzKLIBSzListGet(list, 0), "kept");
    KLIBSzListFree(list);
}

class HashToFile : public kova::test::SandboxTest {
  protected:
    std::string write(const char *section, const KLIBSZHASH *h, const char *format, int *rc) {
        char *text = nullptr;
        size_t size = 0;
        FILE *f = open_memstream(&text, &size);
        *rc = ErrKLIBIFileHash2File(f, section, h, format);
        fclose(f);
        std::string out(text, size);
        free(text);
        return out;
    }
};

TEST_F(HashToFile, WritesHeaderAndPairsInSlotOrder) {
    Hash h = make_hash();
    set(h, "abcd", "1");  // slot 5
    set(h, "z", "2");     // 0x7A000000 % 31 = 30
    int rc;
    EXPECT_EQ(write("global", h.get(), nullptr, &rc), "[global]\nabcd=1\nz=2\n");
    EXPECT_EQ(rc, 0);
    EXPECT_EQ(write(nullptr, h.get(), "%s = \"%s\"\n", &rc), "abcd = \"1\"\nz = \"2\"\n");
    EXPECT_EQ(write("empty", nullptr, nullptr, &rc), "[empty]\n");
    EXPECT_EQ(rc, 0);
}

TEST_F(HashToFile, RefusesBadFormatsAtLine54) {
    Hash h = make_hash();
    set(h, "k", "v");
    for (const char *format :
         {"%s%s\n", "%s=%s", "=%s%s\n", "%s\n=%s", "%d=%s\n", "%s=%s\n%s", "%s=%n%s\n"}) {
        int rc;
        EXPECT_EQ(write("s", h.get(), format, &rc), "") << format;
        EXPECT_EQ(rc, -1);
        EXPECT_EQ(KOVAErrorGetLine(), 54);
        EXPECT_EQ(KLIBIFileCheckFormat(format), 0) << format;
    }
    for (const char *format : {"%s=%s\n", "%%s=%s\n", "x%s y= %s z\n", "%s=%s\n\n"}) {
        EXPECT_EQ(KLIBIFileCheckFormat(format), 1) << format;
    }
    EXPECT_EQ(KLIBIFileCheckFormat(nullptr), 1);
}

TEST_F(HashToFile, WriteFailuresAreReported) {
    Hash h = make_hash();
    set(h, "k", "v");
    kova::test::write_file(path("/etc/ro.conf"), "");
    FILE *ro = fopen(path("/etc/ro.conf").c_str(), "r");
    ASSERT_NE(ro, nullptr);
    EXPECT_EQ(ErrKLIBIFileHash2File(ro, "s", h.get(), nullptr), -1);
    EXPECT_EQ(KLIBErrGet(), static_cast<uint32_t>(ERR_WRITE_FAILED));
    EXPECT_EQ(KOVAErrorGetLine(), 60);
    EXPECT_EQ(ErrKLIBIFileHash2File(ro, nullptr, h.get(), nullptr), -1);
    EXPECT_EQ(KOVAErrorGetLine(), 74);
    fclose(ro);
    EXPECT_EQ(ErrKLIBIFileHash2File(nullptr, "s", h.get(), nullptr), -1);
    EXPECT_EQ(KLIBErrGet(), static_cast<uint32_t>(ERR_BAD_PARAMETERS));
}

// The hash against std::map over random operations on colliding keys, with the free bytes and
// the slot and data growth checked against the rules after every step.
TEST(HashModel, MatchesAMapOverRandomOperations) {
    std::vector<std::string> keys;
    for (char family = 'a'; family < 'a' + 8; ++family) {
        for (auto &k : colliding_keys(family, 20))
            keys.push_back(k);
    }
    for (int i = 0; i < 40; ++i)
        keys.push_back(std::string(1 + i % 3, static_cast<char>('!' + i)));

    std::mt19937 rng(20261121);
    auto random_value = [&] {
        const int len = std::uniform_int_distribution<int>(0, rng() % 8 == 0 ? 300 : 12)(rng);
        return std::string(static_cast<size_t>(len), static_cast<char>('a' + rng() % 26));
    };

    Hash h = make_hash();
    std::map<std::string, std::string> model;
    int slots = 31, data = 512, used = 0;  // used: bytes taken from the string area

    // The rules a store that needs more bytes goes through, written from the definition.
    auto make_room = [&](int needed) {
        const float ratio = static_cast<float>(slots - static_cast<int>(model.size())) / slots;
        const int new_slots = ratio < 0.25f ? slots * 4 - 5 : slots;
        const int pairs = static_cast<int>(model.size());
        if (data - used > needed) {
            if (new_slots == slots) return;
        } else {
            const int average = pairs > 0 ? data / pairs : needed;
            data += (slots - pairs) * average + needed;
        }
        slots = new_slots;
        used = 0;
        for (const auto &[k, v] : model)
            used += static_cast<int>(k.size() + v.size() + 2);
    };

    for (int step = 0; step < 20000; ++step) {
        const std::string &key = keys[rng() % keys.size()];
        const int op = static_cast<int>(rng() % 10);
        if (op < 6) {
            const std::string value = random_value();
            auto it = model.find(key);
            if (it == model.end()) {
                make_room(static_cast<int>(key.size() + value.size() + 2));
                used += static_cast<int>(key.size() + value.size() + 2);
            } else if (value.size() > it->second.size()) {
                make_room(static_cast<int>(value.size() + 1));
                used += static_cast<int>(value.size() + 1);
            }
            model[key] = value;
            const int slot = set(h, key, value);
            ASSERT_GE(slot, 0);
            ASSERT_EQ(KLIBIGetLookDict(h.get(), key.c_str()), slot);
        } else if (op < 9) {
            const char *removed = SzKLIBSzHashRemoveKey(h.get(), key.c_str());
            auto it = model.find(key);
            ASSERT_EQ(removed != nullptr, it != model.end()) << key;
            if (it != model.end()) {
                ASSERT_EQ(removed, it->second);
                model.erase(it);
            }
        } else if (rng() % 50 == 0) {
            PslSzHashRemoveAll(h.get());
            model.clear();
            used = 0;
        }
        ASSERT_EQ(h->nPair, static_cast<int>(model.size())) << "step " << step;
        ASSERT_EQ(h->nSlot, slots) << "step " << step;
        ASSERT_EQ(h->cbData, data) << "step " << step;
        ASSERT_EQ(h->cbFree, data - used) << "step " << step;
        if (step % 7 == 0 || step > 19900) {
            for (const auto &k : keys) {
                auto it = model.find(k);
                ASSERT_EQ(get(h, k), it != model.end() ? it->second : "<absent>") << k;
            }
        }
    }
    EXPECT_GE(slots, 471);  // the run went through two growths at least
}

}  // namespace
