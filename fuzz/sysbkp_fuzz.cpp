// Whole backup files through KOVASysbkpImport into a small appliance root: no crash, no leak,
// the import marker gone after every call, and an account section that is refused leaves its
// files as they were.
#include <sys/stat.h>

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <sstream>
#include <string>

#include "fuzz_scratch.h"
#include "kovasdk/file.h"
#include "kovasdk/sysbkp.h"

namespace {

std::string g_root;
std::string g_file;

void put(const std::string &path, const std::string &text) {
    std::ofstream(g_root + path, std::ios::binary) << text;
}

std::string get(const std::string &path) {
    std::ifstream in(g_root + path, std::ios::binary);
    std::stringstream text;
    text << in.rdbuf();
    return text.str();
}

void make_root() {
    const char *base = getenv("KOVA_ROOT");
    g_root = std::string(base != nullptr && base[0] != '\0' ? base : ".") + "/sysbkp";
    for (const char *dir : {"", "/etc", "/tmp", "/usr", "/usr/kova", "/usr/kova/etc",
                            "/usr/kova/etc/private", "/var", "/var/log", "/volume1"}) {
        mkdir((g_root + dir).c_str(), 0755);
    }
    put("/etc/passwd",
        "root:x:0:0:root:/root:/bin/sh\nadmin:x:1024:100:Admin:/var/services/homes/admin:/bin/sh\n"
        "alice:x:1026:100:Alice:/var/services/homes/alice:/bin/csh\n");
    put("/etc/shadow", "root:*:20400:0:99999:7:::\nadmin:$1$Kv4mR9aQ$elO8o7:20783:0:99999:7:::\n"
                       "alice:$1$Al1ceSlt$TgZ1Uc:20783:0:99999:7:::\n");
    put("/etc/kovauser.conf", "alice:3:\n");
    put("/usr/kova/etc/private/smbpasswd",
        "admin:1024:XXXXXXXXXXXXXXXXXXXXXXXXXXXXXXXX:XXXXXXXXXXXXXXXXXXXXXXXXXXXXXXXX:[U          ]"
        ":LCT-00000000:\n");
    put("/etc/group", "users:x:100:\nsales:x:65536:nobody,alice,nobody\n");
    put("/etc/group_desc", "users:Every local user\nsales:Sales\n");
    put("/usr/kova/etc/smb.conf", "[global]\n\tworkgroup=WORKGROUP\n[public]\n"
                                  "\tinvalid users=nobody,nobody\n\tvalid users=nobody,nobody\n"
                                  "\tcomment=\"All\"\n\tpath=/volume1/public\n\tguest ok=yes\n"
                                  "\tbrowseable=yes\n\tftp write only=no\n"
                                  "\tread list=nobody,nobody\n\twrite list=nobody,nobody\n"
                                  "\twriteable=yes\n");
    put("/etc/kovainfo.conf", "hostname=\"fuzz\"\ntimezone=\"UTC\"\n");
    setenv("KOVA_ROOT", g_root.c_str(), 1);
    g_file = kova::fuzz::scratch_file("sysbkp-input");
}

struct Failed {
    bool user = false, group = false, share = false;
};

void note(void *context, uint32_t bit, const char *, int state, int) {
    auto *failed = static_cast<Failed *>(context);
    if (state != KOVA_SYSBKP_FAILED) return;
    failed->user = failed->user || bit == KOVA_SYSBKP_USER;
    failed->group = failed->group || bit == KOVA_SYSBKP_GROUP;
    failed->share = failed->share || bit == KOVA_SYSBKP_SHARE;
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int *, char ***) {
    make_root();
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    {
        std::ofstream out(g_file, std::ios::binary | std::ios::trunc);
        out.write(reinterpret_cast<const char *>(data), static_cast<std::streamsize>(size));
    }
    const std::string users = get("/etc/passwd") + get("/etc/shadow") +
                              get("/usr/kova/etc/private/smbpasswd");
    const std::string groups = get("/etc/group") + get("/etc/group_desc");
    const std::string shares = get("/usr/kova/etc/smb.conf");
    Failed failed;
    KOVASysbkpImportReport(g_file.c_str(), KOVA_SYSBKP_ALL, 0, note, &failed);
    ErrKLIBFileCloseLock();
    struct stat st {};
    if (stat((g_root + KOVA_SYSBKP_IMPORT_MARKER).c_str(), &st) == 0) abort();
    if (failed.user && get("/etc/passwd") + get("/etc/shadow") +
                               get("/usr/kova/etc/private/smbpasswd") !=
                           users) {
        abort();
    }
    if (failed.group && get("/etc/group") + get("/etc/group_desc") != groups) abort();
    if (failed.share && get("/usr/kova/etc/smb.conf") != shares) abort();
    return 0;
}
