#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "args.h"
#include "commands.h"
#include "kovasdk/error.h"

namespace kovactl {
namespace {

bool parse_code(const char *text, uint32_t *code) {
    char *end = nullptr;
    const unsigned long value = strtoul(text, &end, 0);
    if (end == text || *end != '\0' || value > 0xFFFFFFFFul) return false;
    *code = static_cast<uint32_t>(value);
    return true;
}

constexpr char kUsage[] =
    "usage: kovactl error [--trace] CODE [--json]   (e.g. 0x0D00)\n"
    "CODE's name in the message table; --trace raises it and shows the back trace.\n";

// The code's name: null when it is no code of the message table, "" when unnamed.
const char *name_of(uint32_t code) {
    const unsigned index = code >> 8;
    if ((code & 0xFF) != 0 || index >= static_cast<unsigned>(errNum)) return nullptr;
    return rgszErrMsg[index];
}

}  // namespace

// error CODE: the message name of a code. error --trace CODE: raise it and show the back trace
// that the SDK captured.
int cmd_error(int argc, char **argv) {
    if (is_subcommand_query(argc, argv)) return 0;
    if (has_flag(argc, argv, "--help") || has_flag(argc, argv, "-h")) {
        return print_usage(kUsage, true);
    }
    const bool json = take_flag(&argc, argv, "--json");
    const bool trace = take_flag(&argc, argv, "--trace");
    uint32_t code = 0;
    if (argc != 2 || !parse_code(argv[1], &code)) {
        print_usage(kUsage, false);
        return 2;
    }
    const char *name = name_of(code);
    if (json) {
        nlohmann::json out = {{"code", code}, {"in_table", name != nullptr}, {"name", nullptr}};
        if (name != nullptr && name[0] != '\0') out["name"] = name;
        if (trace) {
            KLIBErrSetEx(code, "kovactl", __LINE__);
            out["raised_at"] = {{"file", KOVAErrorGetFile()}, {"line", KOVAErrorGetLine()}};
        }
        print_json(out);
        return 0;
    }
    if (name == nullptr) {
        printf("0x%04X: not a code of the message table\n", code);
    } else {
        printf("0x%04X: %s\n", code, name[0] != '\0' ? name : "(unnamed)");
    }
    if (trace) {
        KLIBErrSetEx(code, "kovactl", __LINE__);
        printf("raised at %s:%d; back trace, innermost first:\n", KOVAErrorGetFile(),
               KOVAErrorGetLine());
        fflush(stdout);
        KOVAErrorBackTracePrint();
    }
    return 0;
}

}  // namespace kovactl
