#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "args.h"
#include "commands.h"
#include "kovasdk/hash.h"
#include "kovasdk/kstring.h"

namespace kovactl {
namespace {

constexpr char kUsage[] =
    "usage: kovactl hash code KEY [SLOTS] [--json]          home slot of KEY (31 slots)\n"
    "       kovactl hash section NAME KEY=VALUE... [--json] the section as it is written\n";

int code(int argc, char **argv) {
    const bool json = take_flag(&argc, argv, "--json");
    if (argc < 3 || argc > 4) return kUsageError;
    const int slots = argc > 3 ? atoi(argv[3]) : KLIB_SZHASH_INIT_SLOTS;
    const int slot = KLIBIRadixHashCode(argv[2], slots);
    if (slot < 0) return kUsageError;
    if (json) {
        print_json({{"key", argv[2]}, {"slot", slot}, {"slots", slots}});
    } else {
        printf("%s: slot %d of %d\n", argv[2], slot, slots);
    }
    return 0;
}

// The section as the settings writer writes it.
bool section_text(const char *name, const KLIBSZHASH *hash, std::string *text) {
    char *buffer = nullptr;
    size_t size = 0;
    FILE *out = open_memstream(&buffer, &size);
    if (out == nullptr) return false;
    const bool written = ErrKLIBIFileHash2File(out, name, hash, nullptr) >= 0;
    fclose(out);
    if (written) text->assign(buffer, size);
    free(buffer);
    return written;
}

// Each argument is parsed as a settings line, set in argument order, and written back in
// slot order, the order every settings file gets.
int section(int argc, char **argv) {
    const bool json = take_flag(&argc, argv, "--json");
    if (argc < 3) return kUsageError;
    PKLIBSZHASH hash = PshKLIBSzHashAlloc(0);
    PKLIBSZLIST pair = PslKLIBSzListAlloc(0);
    int rc = hash != nullptr && pair != nullptr ? 0 : report_failure("hash");
    for (int i = 3; rc == 0 && i < argc; ++i) {
        KLIBSzListRemoveAll(pair);
        if (KLIBStrSepPair(argv[i], &pair) < 0) {
            rc = report_failure(argv[i]);
        } else if (KLIBSzHashSetValue(&hash, SzKLIBSzListGet(pair, 0), SzKLIBSzListGet(pair, 1)) <
                   0) {
            rc = report_failure("hash set");
        }
    }
    std::string text;
    if (rc == 0 && !section_text(argv[2], hash, &text)) rc = report_failure("hash write");
    if (rc == 0 && json) {
        print_json({{"text", text},
                    {"pairs", hash->nPair},
                    {"slots", hash->nSlot},
                    {"free_bytes", hash->cbFree},
                    {"data_bytes", hash->cbData}});
    } else if (rc == 0) {
        fputs(text.c_str(), stdout);
        printf("# %d pairs in %d slots, %d of %d string bytes free\n", hash->nPair, hash->nSlot,
               hash->cbFree, hash->cbData);
    }
    KLIBSzListFree(pair);
    KLIBSzHashFree(hash);
    return rc;
}

}  // namespace

int cmd_hash(int argc, char **argv) {
    static constexpr Subcommand kSubs[] = {{"code", code}, {"section", section}};
    return dispatch(argc, argv, "hash", kSubs, kUsage);
}

}  // namespace kovactl
