// kovalogset1: records one event in an event log, for the appliance's scripts.
//
//     kovalogset1 sys err 0x1180050A [ARG1 [ARG2 [ARG3 [ARG4]]]]
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "kovasdk/error.h"
#include "kovasdk/log.h"
#include "log/log_names.h"

namespace {

constexpr char kUsage[] =
    "usage: kovalogset1 CLASS TYPE KEY [ARG1 [ARG2 [ARG3 [ARG4]]]]\n"
    "Records one event in the appliance's event log of CLASS.\n"
    "  CLASS  sys, man, conn, bkp, copy, netbkp or sur\n"
    "  TYPE   info, warn or err\n"
    "  KEY    the event key in hexadecimal (0x1180050A or 1180050A)\n"
    "  ARGn   the texts that fill the placeholders @1..@4 of the event's message\n"
    "Exit status 0 when the event was recorded, 1 otherwise.\n";

using kova::log_names::kClasses;
using kova::log_names::kTypes;
using kova::log_names::lookup;
using kova::log_names::parse_key;

int refuse(const char *what, const char *word) {
    fprintf(stderr, "kovalogset1: %s '%s'\n%s", what, word, kUsage);
    return 1;
}

}  // namespace

int main(int argc, char **argv) {
    if (argc >= 2 && (strcmp(argv[1], "--help") == 0 || strcmp(argv[1], "-h") == 0)) {
        fputs(kUsage, stdout);
        return 0;
    }
    if (argc < 4 || argc > 8) {
        fputs(argc < 4 ? "kovalogset1: too few arguments\n" : "kovalogset1: too many arguments\n",
              stderr);
        fputs(kUsage, stderr);
        return 1;
    }
    const int log_class = lookup(kClasses, argv[1]);
    if (log_class < 0) return refuse("unknown log class", argv[1]);
    const int type = lookup(kTypes, argv[2]);
    if (type < 0) return refuse("unknown event type", argv[2]);
    uint32_t key = 0;
    if (!parse_key(argv[3], &key)) return refuse("bad event key", argv[3]);
    const char *args[4] = {};
    for (int i = 4; i < argc; ++i)
        args[i - 4] = argv[i];
    if (KOVALogSet1(log_class, type, key, args[0], args[1], args[2], args[3]) < 0) {
        const uint32_t code = KLIBErrGet();
        const unsigned index = code >> 8;
        const char *name = (code & 0xFF) == 0 && index < static_cast<unsigned>(errNum)
                               ? rgszErrMsg[index]
                               : "unnamed";
        fprintf(stderr, "kovalogset1: cannot record the event: %s (kovaerr=0x%04X)\n", name, code);
        return 1;
    }
    return 0;
}
