#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "args.h"
#include "commands.h"
#include "kovasdk/kstring.h"

namespace kovactl {
namespace {

constexpr char kUsage[] =
    "usage: kovactl str colon-encode|colon-decode|hex|unhex|trim TEXT [--json]\n"
    "       kovactl str pair LINE [--json]         key and value of a settings line\n"
    "       kovactl str join SEP TEXT... [--json]\n";

using Coder = int (*)(const char *, char *, int);

// The result as a line, or as {"result": ...}.
void print_result(const char *result, bool json) {
    if (json) {
        print_json({{"result", result}});
    } else {
        printf("%s\n", result);
    }
}

// Runs one of the size-checked coders with a buffer large enough for any of them.
int code(Coder coder, int argc, char **argv) {
    const bool json = take_flag(&argc, argv, "--json");
    if (argc != 3) return kUsageError;
    const size_t len = strlen(argv[2]);
    char *out = static_cast<char *>(malloc(2 * len + 1));
    if (out == nullptr) return 1;
    const int n = coder(argv[2], out, static_cast<int>(2 * len));
    const int rc = n < 0 ? report_failure("str") : 0;
    if (n >= 0) print_result(out, json);
    free(out);
    return rc;
}

int colon_encode(int argc, char **argv) {
    return code(KLIBStrEncodeColon, argc, argv);
}
int colon_decode(int argc, char **argv) {
    return code(KLIBStrDecodeColon, argc, argv);
}
int hex(int argc, char **argv) {
    return code(KLIBStringToHexCode, argc, argv);
}
int unhex(int argc, char **argv) {
    return code(KLIBStrHexCodeToString, argc, argv);
}

int trim(int argc, char **argv) {
    const bool json = take_flag(&argc, argv, "--json");
    if (argc != 3) return kUsageError;
    char *copy = strdup(argv[2]);
    if (copy == nullptr) return 1;
    const int n = KLIBStrTrimSpace(copy, nullptr);
    if (n >= 0 && json) {
        print_json({{"result", copy}, {"bytes", n}});
    } else if (n >= 0) {
        printf("[%s] (%d bytes)\n", copy, n);
    }
    free(copy);
    return n < 0 ? report_failure("str trim") : 0;
}

int pair(int argc, char **argv) {
    const bool json = take_flag(&argc, argv, "--json");
    if (argc != 3) return kUsageError;
    PKLIBSZLIST list = PslKLIBSzListAlloc(0);
    const int rc =
        list != nullptr && KLIBStrSepPair(argv[2], &list) == 0 ? 0 : report_failure(argv[2]);
    if (rc == 0 && json) {
        print_json({{"key", SzKLIBSzListGet(list, 0)}, {"value", SzKLIBSzListGet(list, 1)}});
    } else if (rc == 0) {
        printf("key [%s] value [%s]\n", SzKLIBSzListGet(list, 0), SzKLIBSzListGet(list, 1));
    }
    KLIBSzListFree(list);
    return rc;
}

int join(int argc, char **argv) {
    const bool json = take_flag(&argc, argv, "--json");
    if (argc < 4) return kUsageError;
    char *buf = nullptr;
    int size = 0;
    if (KOVAStrJoin(argv + 3, argc - 3, argv[2], &buf, &size) < 0) return report_failure("join");
    print_result(buf, json);
    free(buf);
    return 0;
}

}  // namespace

int cmd_str(int argc, char **argv) {
    static constexpr Subcommand kSubs[] = {{"colon-encode", colon_encode},
                                           {"colon-decode", colon_decode},
                                           {"hex", hex},
                                           {"unhex", unhex},
                                           {"trim", trim},
                                           {"pair", pair},
                                           {"join", join}};
    return dispatch(argc, argv, "str", kSubs, kUsage);
}

}  // namespace kovactl
