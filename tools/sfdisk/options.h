// The command line of the appliance's partition tool: what the library and its scripts pass, in
// the attached (-N3) and the separate (-N 3) forms alike.
#pragma once

#include <cstdint>
#include <string>

namespace sfdisk {

enum class Action { kHelp, kList, kChange, kSignature };

struct Options {
    Action action = Action::kChange;
    std::string disk;
    int partno = 0;        // -N, 1..4; 0: not given
    int64_t gap = 0;       // -j: sectors between the preceding partition's end and the start
    int64_t offset = -1;   // -o: an absolute start sector instead; -1: not given
    int64_t size = -1;     // -z: sectors; -1 runs to the end of the disk
    unsigned type = 0x83;  // -t, hexadecimal
    bool size_given = false;
    bool type_given = false;
    bool quiet = false;  // -q
    bool reread = true;  // cleared by --no-reread
};

// Parses argv into options. On a refusal prints "sfdisk: <what>: <why>" on standard error and
// returns false.
bool parse_options(int argc, char **argv, Options &options);

// "sfdisk: <what>: <why>" on standard error.
void complain(const std::string &what, const std::string &why);

void print_usage();

}  // namespace sfdisk
