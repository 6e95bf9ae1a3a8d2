#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "args.h"
#include "commands.h"
#include "kovasdk/proc.h"

namespace kovactl {
namespace {

constexpr int kMaxPids = 256;
constexpr int kMaxBlockers = 16;

constexpr char kPsUsage[] =
    "usage: kovactl ps PATTERN [--json]    the processes whose command line matches\n";
constexpr char kOpsUsage[] =
    "usage: kovactl ops list [--json]                 live operations of the registry\n"
    "       kovactl ops check NAME [--json]           could NAME run now?\n"
    "       kovactl ops hold NAME SECONDS             register NAME for a while\n"
    "(\"kovactl ops\" alone is \"ops list\".)\n";

int operation_id(const char *name) {
    for (int op = 0; op < KOVA_OP_END; ++op) {
        if (strcmp(KOVAOperationGetName(op), name) == 0) return op;
    }
    return -1;
}

nlohmann::json names_of(const int *ids, int count) {
    nlohmann::json names = nlohmann::json::array();
    for (int i = 0; i < count && i < kMaxBlockers; ++i)
        names.push_back(KOVAOperationGetName(ids[i]));
    return names;
}

void print_names(const nlohmann::json &names) {
    for (size_t i = 0; i < names.size(); ++i)
        printf("%s%s", i ? " " : "", names[i].get<std::string>().c_str());
    printf("\n");
}

// The live entries are what would block "iron", whose class every other class blocks.
int list_live(int argc, char **argv) {
    const bool json = take_flag(&argc, argv, "--json");
    if (argc > 2) return kUsageError;
    int ids[kMaxBlockers];
    int n = kMaxBlockers;
    const int rc = KOVAOperationRegister(KOVA_OP_IRON, KOVA_OP_FLAG_TEST_ONLY, ids, &n, 0);
    if (rc < 0) return report_failure("ops");
    const nlohmann::json running = rc == 0 ? nlohmann::json::array() : names_of(ids, n);
    if (json) {
        print_json({{"running", running}});
    } else if (running.empty()) {
        printf("no operation is running\n");
    } else {
        printf("running: ");
        print_names(running);
    }
    return 0;
}

int check_operation(const char *name, bool json) {
    const int op = operation_id(name);
    if (op < 0) return kUsageError;
    int ids[kMaxBlockers];
    int n = kMaxBlockers;
    const int rc = KOVAOperationRegister(op, KOVA_OP_FLAG_TEST_ONLY, ids, &n, 0);
    if (rc < 0) return report_failure("ops check");
    const nlohmann::json blockers = rc == 0 ? nlohmann::json::array() : names_of(ids, n);
    const char *blocked = rc == 0 ? "no" : rc == 1 ? "hard" : "softly";
    if (json) {
        print_json({{"operation", name}, {"blocked", blocked}, {"by", blockers}});
    } else if (rc == 0) {
        printf("%s: free to run\n", name);
    } else {
        printf("%s: blocked %s by: ", name, blocked);
        print_names(blockers);
    }
    return rc == 0 ? 0 : 1;
}

int check(int argc, char **argv) {
    const bool json = take_flag(&argc, argv, "--json");
    return argc == 3 ? check_operation(argv[2], json) : kUsageError;
}

int hold(int argc, char **argv) {
    if (argc != 4) return kUsageError;
    const int op = operation_id(argv[2]);
    if (op < 0) return kUsageError;
    int ids[kMaxBlockers];
    int n = kMaxBlockers;
    const int rc = KOVAOperationRegister(op, 0, ids, &n, 0);
    if (rc != 0) return rc < 0 ? report_failure("ops hold") : check_operation(argv[2], false);
    sleep(static_cast<unsigned>(atoi(argv[3])));
    return KOVAOperationUnregister(op) == 0 ? 0 : report_failure("ops hold");
}

}  // namespace

// ps PATTERN: the processes whose command line matches.
int cmd_ps(int argc, char **argv) {
    if (is_subcommand_query(argc, argv)) return 0;
    if (has_flag(argc, argv, "--help") || has_flag(argc, argv, "-h")) {
        return print_usage(kPsUsage, true);
    }
    const bool json = take_flag(&argc, argv, "--json");
    if (argc != 2) return print_usage(kPsUsage, false);
    int pids[kMaxPids];
    const int found = KLIBPs(argv[1], pids, kMaxPids);
    if (found < 0) return report_failure("ps");
    if (json) {
        nlohmann::json list = nlohmann::json::array();
        for (int i = 0; i < found && i < kMaxPids; ++i)
            list.push_back(pids[i]);
        print_json({{"pattern", argv[1]}, {"count", found}, {"pids", list}});
        return 0;
    }
    printf("%d %s '%s'", found, found == 1 ? "process matches" : "processes match", argv[1]);
    for (int i = 0; i < found && i < kMaxPids; ++i)
        printf("%s%d", i ? " " : ": ", pids[i]);
    printf("\n");
    return 0;
}

int cmd_ops(int argc, char **argv) {
    static constexpr Subcommand kSubs[] = {{"list", list_live}, {"check", check}, {"hold", hold}};
    // Bare "ops" (or "ops --json") lists, as it always did.
    if (argc == 1 || (argc == 2 && strcmp(argv[1], "--json") == 0)) return list_live(argc, argv);
    return dispatch(argc, argv, "ops", kSubs, kOpsUsage);
}

}  // namespace kovactl
