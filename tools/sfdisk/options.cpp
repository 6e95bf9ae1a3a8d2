#include "options.h"

#include <getopt.h>

#include <charconv>
#include <cstdio>
#include <string_view>

namespace sfdisk {
namespace {

constexpr int kNoReread = 256;
constexpr int kHelp = 257;

// Leading ':' reports a missing argument as ':' instead of letting getopt print it.
constexpr const char kShortOptions[] = ":lu:N:qfj:z:t:FDo:M:h";
constexpr option kLongOptions[] = {
    {"help", no_argument, nullptr, kHelp},
    {"no-reread", no_argument, nullptr, kNoReread},
    {"list", no_argument, nullptr, 'l'},
    {nullptr, 0, nullptr, 0},
};

template <class T>
bool parse_whole(std::string_view text, T &value, int base) {
    if (text.empty()) return false;
    const auto [end, ec] = std::from_chars(text.data(), text.data() + text.size(), value, base);
    return ec == std::errc() && end == text.data() + text.size();
}

// A sector count or number: decimal, not negative.
bool parse_count(const char *option, std::string_view text, int64_t &value) {
    if (parse_whole(text, value, 10) && value >= 0) return true;
    complain(std::string(option) + " " + std::string(text), "bad number");
    return false;
}

bool parse_size(std::string_view text, int64_t &value) {
    if (text == "-1") {
        value = -1;
        return true;
    }
    return parse_count("-z", text, value);
}

// A type id in hexadecimal, with or without 0x, as the MS-DOS table stores it in one byte.
bool parse_type(std::string_view text, unsigned &value) {
    std::string_view digits = text;
    if (digits.starts_with("0x") || digits.starts_with("0X")) digits.remove_prefix(2);
    if (parse_whole(digits, value, 16) && value <= 0xff) return true;
    complain("-t " + std::string(text), "bad type (one hexadecimal byte, e.g. fd)");
    return false;
}

bool parse_partno(std::string_view text, int &partno) {
    int64_t value = 0;
    if (!parse_count("-N", text, value)) return false;
    if (value < 1 || value > 4) {
        complain("-N " + std::string(text), "partition number must be 1 to 4 (primary)");
        return false;
    }
    partno = static_cast<int>(value);
    return true;
}

// The option as the user wrote it, for messages about it.
std::string option_text(int argc, char **argv) {
    if (optopt > 0 && optopt < 256) return std::string("-") + static_cast<char>(optopt);
    return optind - 1 < argc ? argv[optind - 1] : "?";
}

bool handle(int c, const char *arg, Options &o) {
    switch (c) {
        case 'l':
            o.action = Action::kList;
            return true;
        case 'u':
            if (std::string_view(arg) == "S" || std::string_view(arg) == "s") return true;
            complain(std::string("-u ") + arg, "only sector units (S) are supported");
            return false;
        case 'N':
            return parse_partno(arg, o.partno);
        case 'q':
            o.quiet = true;
            return true;
        // Never asks and never second-guesses the caller anyway; MS-DOS compatible always.
        case 'f':
        case 'F':
        case 'D':
            return true;
        case 'j':
            return parse_count("-j", arg, o.gap);
        case 'o':
            return parse_count("-o", arg, o.offset);
        case 'z':
            o.size_given = true;
            return parse_size(arg, o.size);
        case 't':
            o.type_given = true;
            return parse_type(arg, o.type);
        case 'M':
            if (std::string_view(arg) != "1") {
                complain(std::string("-M ") + arg, "only 1 (MS-DOS signature) is supported");
                return false;
            }
            o.action = Action::kSignature;
            return true;
        case kNoReread:
            o.reread = false;
            return true;
        case 'h':
        case kHelp:
            o.action = Action::kHelp;
            return true;
    }
    complain(std::string("-") + static_cast<char>(c), "unknown option");
    return false;
}

}  // namespace

void complain(const std::string &what, const std::string &why) {
    fprintf(stderr, "sfdisk: %s: %s\n", what.c_str(), why.c_str());
}

void print_usage() {
    fputs(
        "usage: sfdisk -l -uS [-N PART] DISK          list partitions (start end sectors type)\n"
        "       sfdisk -N PART [-uS] [-q] [-f] [-F] [-j GAP | -o START] [-z SIZE] [-t TYPE] "
        "DISK\n"
        "                                             create or replace primary partition PART\n"
        "       sfdisk -N PART -o0 -z0 -t0 [-D] DISK    delete partition PART\n"
        "       sfdisk -M1 DISK                       write the MS-DOS signature\n"
        "\n"
        "  -N PART      partition 1..4\n"
        "  -j GAP       start GAP sectors after the end of the preceding partition\n"
        "  -o START     start at sector START\n"
        "  -z SIZE      SIZE sectors; -1 to the end of the disk; 0 deletes\n"
        "  -t TYPE      type id in hexadecimal (83, fd ...); 0 deletes\n"
        "  -uS          units are 512-byte sectors (the only units)\n"
        "  -q -f -F -D  quiet; force; do not ask; MS-DOS compatible (always)\n"
        "  --no-reread  do not ask the kernel to re-read the table\n",
        stdout);
}

bool parse_options(int argc, char **argv, Options &o) {
    opterr = 0;
    optind = 1;
    for (int c; (c = getopt_long(argc, argv, kShortOptions, kLongOptions, nullptr)) != -1;) {
        if (c == '?') {
            complain(option_text(argc, argv), "unknown option");
            return false;
        }
        if (c == ':') {
            complain(option_text(argc, argv), "needs a value");
            return false;
        }
        if (!handle(c, optarg, o)) return false;
    }
    if (o.action == Action::kHelp) return true;
    if (optind >= argc) {
        complain("DISK", "missing (see sfdisk --help)");
        return false;
    }
    if (optind + 1 < argc) {
        complain(argv[optind + 1], "unexpected argument (one DISK only)");
        return false;
    }
    o.disk = argv[optind];
    if (o.action == Action::kChange && o.partno == 0) {
        complain(o.disk, "nothing to do: give -l, -M1 or -N PART");
        return false;
    }
    return true;
}

}  // namespace sfdisk
