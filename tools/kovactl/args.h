// What the account commands share: flags and options anywhere after the subcommand, and JSON
// output.
#pragma once

#include <nlohmann/json.hpp>

namespace kovactl {

bool has_flag(int argc, char **argv, const char *flag);
// The word after the option's name, or null.
const char *option(int argc, char **argv, const char *name);
// Indented JSON on standard output; text that is not UTF-8 is replaced, never a failure.
void print_json(const nlohmann::json &json);

}  // namespace kovactl
