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
    put("/etc/shadow",
        "root:*:20400:0:99999:7:::\nadmin:$1$Kv4mR9aQ$elO8o7:20783:0:99999:7:::\n"
        "alice:$1$Al1ceSlt$TgZ1Uc:20783:0:99999:7:::\n");
    put("/etc/kovauser.conf", "alice:3:\n");
    put("/usr/kova/etc/private/smbpasswd",
        "admin:1024:XXXXXXXXXXXXXXXXXXXXXXXXXXXXXXXX:XXXXXXXXXXXXXXXXXXXXXXXXXXXXXXXX:[U          ]"
        ":LCT-00000000:\n");
    put("/etc/group", "users:x:100:\nsales:x:65536:nobody,alice,nobody\n");
    put("/etc/group_desc", "users:Every local user\nsales:Sales\n");
    put("/usr/kova/etc/smb.conf",
        "[global]\n\tworkgroup=WORKGROUP\n[public]\n"
        "\tinvalid users=nobody,nobody\n\tvalid users=nobody,nobody\n"
        "\tcomment=\"All\"\n\tpath=/volume1/public\n\tguest ok=yes\n"
        "\tbrowseable=yes\n\tftp write only=no\n"
        "\tread list=nobody,nobody\n\twrite list=nobody,nobody\n"
        "\twriteable=yes\n");
    put("/etc/kovainfo.conf", "hostname=\"fuzz\"\ntimezone=\"UTC\"\n");
    setenv("KOVA_ROOT", g_root.c_str(), 1);
    g_file = kova::fuzz::scratch_file("sysbkp-input");
}

// What the account sections did. A user restored (renamed, say) also changes the groups and
// share lists that name it, and a group restored the share lists: a refused section is checked
// only where no earlier section could have changed its files.
struct Sections {
    bool failed_user = false, failed_group = false, failed_share = false;
    bool restored_user = false, restored_group = false;
};

void note(void *context, uint32_t bit, const char *, int state, int) {
    auto *seen = static_cast<Sections *>(context);
    const bool failed = state == KOVA_SYSBKP_FAILED;
    const bool restored = state == KOVA_SYSBKP_RESTORED;
    if (bit == KOVA_SYSBKP_USER) {
        seen->failed_user = seen->failed_user || failed;
        seen->restored_user = seen->restored_user || restored;
    } else if (bit == KOVA_SYSBKP_GROUP) {
        seen->failed_group = seen->failed_group || failed;
        seen->restored_group = seen->restored_group || restored;
    } else if (bit == KOVA_SYSBKP_SHARE) {
        seen->failed_share = seen->failed_share || failed;
    }
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
    const std::string users =
        get("/etc/passwd") + get("/etc/shadow") + get("/usr/kova/etc/private/smbpasswd");
    const std::string groups = get("/etc/group") + get("/etc/group_desc");
    const std::string shares = get("/usr/kova/etc/smb.conf");
    Sections seen;
    KOVASysbkpImportReport(g_file.c_str(), KOVA_SYSBKP_ALL, 0, note, &seen);
    ErrKLIBFileCloseLock();
    struct stat st {};
    if (stat((g_root + KOVA_SYSBKP_IMPORT_MARKER).c_str(), &st) == 0) abort();
    if (seen.failed_user && !seen.restored_user &&
        get("/etc/passwd") + get("/etc/shadow") + get("/usr/kova/etc/private/smbpasswd") != users) {
        abort();
    }
    if (seen.failed_group && !seen.restored_user && !seen.restored_group &&
        get("/etc/group") + get("/etc/group_desc") != groups) {
        abort();
    }
    if (seen.failed_share && !seen.restored_user && !seen.restored_group &&
        get("/usr/kova/etc/smb.conf") != shares) {
        abort();
    }
    return 0;
}
