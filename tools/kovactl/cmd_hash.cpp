#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "commands.h"
#include "kovasdk/hash.h"
#include "kovasdk/kstring.h"

namespace kovactl {
namespace {

int usage() {
    fprintf(stderr,
            "usage: kovactl hash code KEY [SLOTS]                 home slot of KEY (31 slots)\n"
            "       kovactl hash section NAME KEY=VALUE...       the section as it is written\n");
    return 2;
}

int code(int argc, char **argv) {
    const int slots = argc > 3 ? atoi(argv[3]) : KLIB_SZHASH_INIT_SLOTS;
    const int slot = KLIBIRadixHashCode(argv[2], slots);
    if (slot < 0) return usage();
    printf("%s: slot %d of %d\n", argv[2], slot, slots);
    return 0;
}

// Each argument is parsed as a settings line, set in argument order, and written back in
// slot order, the order every settings file gets.
int section(int argc, char **argv) {
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
    if (rc == 0 && ErrKLIBIFileHash2File(stdout, argv[2], hash, nullptr) < 0) {
        rc = report_failure("hash write");
    }
    if (rc == 0) {
        printf("# %d pairs in %d slots, %d of %d string bytes free\n", hash->nPair, hash->nSlot,
               hash->cbFree, hash->cbData);
    }
    KLIBSzListFree(pair);
    KLIBSzHashFree(hash);
    return rc;
}

}  // namespace

int cmd_hash(int argc, char **argv) {
    if (argc >= 3 && argc <= 4 && strcmp(argv[1], "code") == 0) return code(argc, argv);
    if (argc >= 3 && strcmp(argv[1], "section") == 0) return section(argc, argv);
    return usage();
}

}  // namespace kovactl
