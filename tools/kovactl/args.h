// What the account commands share: flags and options anywhere after the subcommand, and JSON
// output.
#pragma once

#include <nlohmann/json.hpp>
#include <span>

namespace kovactl {

bool has_flag(int argc, char **argv, const char *flag);
// Removes every occurrence of the flag from the arguments; whether there was one.
bool take_flag(int *argc, char **argv, const char *flag);
// The word after the option's name, or null.
const char *option(int argc, char **argv, const char *name);
// Indented JSON on standard output; text that is not UTF-8 is replaced, never a failure.
void print_json(const nlohmann::json &json);

// The usage text on standard output when asked for (0), else on standard error (1).
int print_usage(const char *usage, bool asked);

// The hidden argument with which `kovactl --completion` asks a command for its subcommands:
// dispatch answers with " name" for each; a command without subcommands answers nothing.
constexpr char kSubcommandQuery[] = "--subcommands";
inline bool is_subcommand_query(int argc, char **argv) {
    return argc == 2 && __builtin_strcmp(argv[1], kSubcommandQuery) == 0;
}

struct Subcommand {
    const char *name;
    int (*run)(int argc, char **argv);  // argv[1] is the subcommand's name
};
// Runs the subcommand argv[1] names; none, --help or -h prints the usage, an unknown one says
// so ("kovactl: <command>: unknown command '...'") with the usage. A subcommand that finds its
// arguments wrong returns kUsageError, and dispatch prints the usage for it.
constexpr int kUsageError = -2;
int dispatch(int argc, char **argv, const char *command, std::span<const Subcommand> subs,
             const char *usage);

}  // namespace kovactl
