#include <cstdio>
#include <cstdlib>
#include <cstring>

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

}  // namespace

// error CODE: the message name of a code. error --trace CODE: raise it and show the back trace
// that the SDK captured.
int cmd_error(int argc, char **argv) {
    const bool trace = argc == 3 && strcmp(argv[1], "--trace") == 0;
    uint32_t code = 0;
    if ((argc != 2 && !trace) || !parse_code(argv[argc - 1], &code)) {
        fprintf(stderr, "usage: kovactl error [--trace] CODE   (e.g. 0x0D00)\n");
        return 2;
    }
    const unsigned index = code >> 8;
    if ((code & 0xFF) != 0 || index >= static_cast<unsigned>(errNum)) {
        printf("0x%04X: not a code of the message table\n", code);
    } else if (rgszErrMsg[index][0] == '\0') {
        printf("0x%04X: (unnamed)\n", code);
    } else {
        printf("0x%04X: %s\n", code, rgszErrMsg[index]);
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
