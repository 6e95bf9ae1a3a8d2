#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "commands.h"
#include "kovasdk/kstring.h"

namespace kovactl {
namespace {

int usage() {
    fprintf(stderr,
            "usage: kovactl str colon-encode|colon-decode|hex|unhex|trim TEXT\n"
            "       kovactl str pair LINE                 key and value of a settings line\n"
            "       kovactl str join SEP TEXT...\n");
    return 2;
}

using Coder = int (*)(const char *, char *, int);

// Runs one of the size-checked coders with a buffer large enough for any of them.
int code(Coder coder, const char *text) {
    const size_t len = strlen(text);
    char *out = static_cast<char *>(malloc(2 * len + 1));
    if (out == nullptr) return 1;
    const int n = coder(text, out, static_cast<int>(2 * len));
    const int rc = n < 0 ? report_failure("str") : 0;
    if (n >= 0) printf("%s\n", out);
    free(out);
    return rc;
}

int trim(const char *text) {
    char *copy = strdup(text);
    if (copy == nullptr) return 1;
    const int n = KLIBStrTrimSpace(copy, nullptr);
    if (n >= 0) printf("[%s] (%d bytes)\n", copy, n);
    free(copy);
    return n < 0 ? report_failure("str trim") : 0;
}

int pair(const char *line) {
    PKLIBSZLIST list = PslKLIBSzListAlloc(0);
    const int rc = list != nullptr && KLIBStrSepPair(line, &list) == 0 ? 0 : report_failure(line);
    if (rc == 0)
        printf("key [%s] value [%s]\n", SzKLIBSzListGet(list, 0), SzKLIBSzListGet(list, 1));
    KLIBSzListFree(list);
    return rc;
}

int join(int argc, char **argv) {
    char *buf = nullptr;
    int size = 0;
    if (KOVAStrJoin(argv + 3, argc - 3, argv[2], &buf, &size) < 0) return report_failure("join");
    printf("%s\n", buf);
    free(buf);
    return 0;
}

}  // namespace

int cmd_str(int argc, char **argv) {
    if (argc >= 4 && strcmp(argv[1], "join") == 0) return join(argc, argv);
    if (argc != 3) return usage();
    const char *op = argv[1];
    if (strcmp(op, "colon-encode") == 0) return code(KLIBStrEncodeColon, argv[2]);
    if (strcmp(op, "colon-decode") == 0) return code(KLIBStrDecodeColon, argv[2]);
    if (strcmp(op, "hex") == 0) return code(KLIBStringToHexCode, argv[2]);
    if (strcmp(op, "unhex") == 0) return code(KLIBStrHexCodeToString, argv[2]);
    if (strcmp(op, "trim") == 0) return trim(argv[2]);
    if (strcmp(op, "pair") == 0) return pair(argv[2]);
    return usage();
}

}  // namespace kovactl
