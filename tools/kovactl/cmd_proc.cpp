#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "commands.h"
#include "kovasdk/proc.h"

namespace kovactl {
namespace {

constexpr int kMaxPids = 256;

int usage() {
    fprintf(stderr,
            "usage: kovactl ps PATTERN\n"
            "       kovactl ops                      live operations of the registry\n"
            "       kovactl ops check NAME           could NAME run now?\n"
            "       kovactl ops hold NAME SECONDS    register NAME for a while\n");
    return 2;
}

int operation_id(const char *name) {
    for (int op = 0; op < KOVA_OP_END; ++op) {
        if (strcmp(KOVAOperationGetName(op), name) == 0) return op;
    }
    return -1;
}

void print_names(const int *ids, int count) {
    for (int i = 0; i < count; ++i)
        printf("%s%s", i ? " " : "", KOVAOperationGetName(ids[i]));
    printf("\n");
}

// The live entries are what would block "iron", whose class every other class blocks.
int list_live() {
    int ids[16];
    int n = 16;
    const int rc = KOVAOperationRegister(KOVA_OP_IRON, KOVA_OP_FLAG_TEST_ONLY, ids, &n, 0);
    if (rc < 0) return report_failure("ops");
    if (rc == 0) {
        printf("no operation is running\n");
        return 0;
    }
    printf("running: ");
    print_names(ids, n < 16 ? n : 16);
    return 0;
}

int check(const char *name) {
    const int op = operation_id(name);
    if (op < 0) return usage();
    int ids[16];
    int n = 16;
    const int rc = KOVAOperationRegister(op, KOVA_OP_FLAG_TEST_ONLY, ids, &n, 0);
    if (rc < 0) return report_failure("ops check");
    if (rc == 0) {
        printf("%s: free to run\n", name);
        return 0;
    }
    printf("%s: blocked %s by: ", name, rc == 1 ? "hard" : "softly");
    print_names(ids, n < 16 ? n : 16);
    return 1;
}

int hold(const char *name, const char *seconds) {
    const int op = operation_id(name);
    if (op < 0) return usage();
    int ids[16];
    int n = 16;
    const int rc = KOVAOperationRegister(op, 0, ids, &n, 0);
    if (rc != 0) return rc < 0 ? report_failure("ops hold") : check(name);
    sleep(static_cast<unsigned>(atoi(seconds)));
    return KOVAOperationUnregister(op) == 0 ? 0 : report_failure("ops hold");
}

}  // namespace

// ps PATTERN: the processes whose command line matches.
int cmd_ps(int argc, char **argv) {
    if (argc != 2) return usage();
    int pids[kMaxPids];
    const int found = KLIBPs(argv[1], pids, kMaxPids);
    if (found < 0) return report_failure("ps");
    printf("%d %s '%s'", found, found == 1 ? "process matches" : "processes match", argv[1]);
    for (int i = 0; i < found && i < kMaxPids; ++i)
        printf("%s%d", i ? " " : ": ", pids[i]);
    printf("\n");
    return 0;
}

int cmd_ops(int argc, char **argv) {
    if (argc == 1) return list_live();
    if (argc == 3 && strcmp(argv[1], "check") == 0) return check(argv[2]);
    if (argc == 4 && strcmp(argv[1], "hold") == 0) return hold(argv[2], argv[3]);
    return usage();
}

}  // namespace kovactl
