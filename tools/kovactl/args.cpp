#include "args.h"

#include <cstdio>
#include <cstring>

namespace kovactl {

bool has_flag(int argc, char **argv, const char *flag) {
    for (int i = 0; i < argc; ++i)
        if (strcmp(argv[i], flag) == 0) return true;
    return false;
}

bool take_flag(int *argc, char **argv, const char *flag) {
    int kept = 0;
    for (int i = 0; i < *argc; ++i)
        if (strcmp(argv[i], flag) != 0) argv[kept++] = argv[i];
    const bool found = kept != *argc;
    *argc = kept;
    return found;
}

const char *option(int argc, char **argv, const char *name) {
    for (int i = 0; i + 1 < argc; ++i)
        if (strcmp(argv[i], name) == 0) return argv[i + 1];
    return nullptr;
}

void print_json(const nlohmann::json &json) {
    puts(json.dump(2, ' ', false, nlohmann::json::error_handler_t::replace).c_str());
}

int print_usage(const char *usage, bool asked) {
    fputs(usage, asked ? stdout : stderr);
    return asked ? 0 : 1;
}

int dispatch(int argc, char **argv, const char *command, std::span<const Subcommand> subs,
             const char *usage) {
    if (is_subcommand_query(argc, argv)) {
        for (const Subcommand &sub : subs)
            printf(" %s", sub.name);
        return 0;
    }
    if (argc < 2 || has_flag(argc, argv, "--help") || has_flag(argc, argv, "-h")) {
        return print_usage(usage, argc >= 2);
    }
    for (const Subcommand &sub : subs) {
        if (strcmp(argv[1], sub.name) != 0) continue;
        const int rc = sub.run(argc, argv);
        return rc == kUsageError ? print_usage(usage, false) : rc;
    }
    fprintf(stderr, "kovactl: %s: unknown command '%s'\n", command, argv[1]);
    return print_usage(usage, false);
}

}  // namespace kovactl
