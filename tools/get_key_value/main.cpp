// get_key_value FILE KEY: prints the key's value and exits 0; exits 1 when the key is absent or
// the file cannot be read, 2 on a usage error. The library itself runs it as
// "/bin/get_key_value".
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "kovasdk/file.h"

namespace {
constexpr char kUsage[] =
    "usage: get_key_value FILE KEY\n"
    "Prints the value of KEY in the settings file FILE (lines key=\"value\" or key=value).\n"
    "Exit status: 0 found, 1 absent or unreadable, 2 usage error.\n";
}  // namespace

int main(int argc, char **argv) {
    if (argc == 2 && strcmp(argv[1], "--help") == 0) {
        fputs(kUsage, stdout);
        return 0;
    }
    if (argc != 3) {
        fputs(kUsage, stderr);
        return 2;
    }
    const int needed = KLIBFileGetKeyValue(argv[1], argv[2], nullptr, 0, 0);
    if (needed <= 0) return 1;
    char *value = static_cast<char *>(malloc(static_cast<size_t>(needed)));
    if (value == nullptr) return 1;
    const int got = KLIBFileGetKeyValue(argv[1], argv[2], value, needed, 0);
    if (got > 0) printf("%s\n", value);
    free(value);
    return got > 0 ? 0 : 1;
}
