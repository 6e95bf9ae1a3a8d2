// smb.conf as the share cache builds it: any file is read into the cache or refused, never a
// crash; whatever was read is written back and read again to the same shares.
#include <sys/stat.h>
#include <unistd.h>

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

#include "kovasdk/share.h"

namespace {

std::string g_root;

void write_file(const std::string &path, const char *text, size_t size) {
    FILE *out = fopen(path.c_str(), "w");
    if (out == nullptr) abort();
    fwrite(text, 1, size, out);
    fclose(out);
}

// A small appliance under the fuzzing root: two users, one group, the lock and cache folders.
void make_root() {
    const char *base = getenv("KOVA_ROOT");
    g_root = std::string(base != nullptr && base[0] != '\0' ? base : ".") + "/smb-conf";
    for (const char *dir :
         {"", "/etc", "/tmp", "/usr", "/usr/kova", "/usr/kova/etc", "/usr/kova/etc/private"}) {
        mkdir((g_root + dir).c_str(), 0755);
    }
    const char *files[][2] = {
        {"/etc/passwd", "alice:x:1026:100::/h/alice:/bin/sh\nbob:x:1027:100::/h/bob:/bin/sh\n"},
        {"/etc/shadow", "alice:*:1:0:99999:7:::\nbob:*:1:0:99999:7:::\n"},
        {"/etc/kovauser.conf", "alice:0:\nbob:0:\n"},
        {"/usr/kova/etc/private/smbpasswd", ""},
        {"/etc/group", "users:x:100:\nsales:x:65536:nobody,alice,nobody\n"},
        {"/etc/group_desc", ""},
    };
    for (const auto &file : files)
        write_file(g_root + file[0], file[1], strlen(file[1]));
    setenv("KOVA_ROOT", g_root.c_str(), 1);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    if (g_root.empty()) make_root();
    if (size > 1 << 16 || memchr(data, '\0', size) != nullptr) return 0;
    write_file(g_root + "/usr/kova/etc/smb.conf", reinterpret_cast<const char *>(data), size);
    PKLIBSZLIST before = PslKLIBSzListAlloc(0);
    if (KOVAShareEnum(&before) >= 0) {
        // Written back (one share rewritten makes the dump) and read again: the same shares.
        PKOVASHARE share = nullptr;
        if (before->nItem > 0 && KOVAShareGet(SzKLIBSzListGet(before, 0), &share) == 0) {
            if (KOVAShareSet(share->szName, share) == 0) {
                PKLIBSZLIST after = PslKLIBSzListAlloc(0);
                if (KOVAShareEnum(&after) != before->nItem) abort();
                KLIBSzListFree(after);
            }
        }
        KOVAShareFree(share);
    }
    KLIBSzListFree(before);
    return 0;
}
