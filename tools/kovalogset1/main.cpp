// kovalogset1: records one event in an event log, for the appliance's scripts.
//
//     kovalogset1 sys err 0x1180050A [ARG1 [ARG2 [ARG3 [ARG4]]]]
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "kovasdk/error.h"
#include "kovasdk/log.h"

namespace {

constexpr char kUsage[] =
    "usage: kovalogset1 CLASS TYPE KEY [ARG1 [ARG2 [ARG3 [ARG4]]]]\n"
    "Records one event in the appliance's event log of CLASS.\n"
    "  CLASS  sys, man, conn, bkp, copy, netbkp or sur\n"
    "  TYPE   info, warn or err\n"
    "  KEY    the event key in hexadecimal (0x1180050A or 1180050A)\n"
    "  ARGn   the texts that fill the placeholders @1..@4 of the event's message\n"
    "Exit status 0 when the event was recorded, 1 otherwise.\n";

struct Name {
    const char *name;
    int value;
};
constexpr Name kClasses[] = {{"sys", KOVA_LOG_CLASS_SYS},   {"man", KOVA_LOG_CLASS_MAN},
                             {"conn", KOVA_LOG_CLASS_CONN}, {"bkp", KOVA_LOG_CLASS_BKP},
                             {"copy", KOVA_LOG_CLASS_COPY}, {"netbkp", KOVA_LOG_CLASS_NETBKP},
                             {"sur", KOVA_LOG_CLASS_SUR}};
constexpr Name kTypes[] = {
    {"info", KOVA_LOG_TYPE_INFO}, {"warn", KOVA_LOG_TYPE_WARN}, {"err", KOVA_LOG_TYPE_ERR}};

template <size_t N>
int lookup(const Name (&names)[N], const char *word) {
    for (const Name &n : names) {
        if (strcmp(n.name, word) == 0) return n.value;
    }
    return -1;
}

bool parse_key(const char *text, uint32_t *key) {
    if (strncmp(text, "0x", 2) == 0 || strncmp(text, "0X", 2) == 0) text += 2;
    if (*text == '\0' || strlen(text) > 8) return false;
    char *end = nullptr;
    errno = 0;
    const unsigned long value = strtoul(text, &end, 16);
    if (*end != '\0' || errno != 0 || text[0] == '-' || text[0] == '+') return false;
    *key = static_cast<uint32_t>(value);
    return true;
}

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
