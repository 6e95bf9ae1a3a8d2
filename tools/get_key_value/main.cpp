// get_key_value FILE KEY: prints the key's value and exits 0; exits 1 when the key is absent or
// the file cannot be read, 2 on a usage error. The library itself runs it as
// "/bin/get_key_value".
#include <cstdio>
#include <cstdlib>

#include "kovasdk/file.h"

int main(int argc, char **argv) {
    if (argc != 3) {
        fprintf(stderr, "usage: get_key_value FILE KEY\n");
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
