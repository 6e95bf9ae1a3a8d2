// kovactl: the appliance's management command line over libkovasdk.
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "args.h"
#include "commands.h"
#include "kovasdk/kovasdk.h"

namespace kovactl {
namespace {

const Command kCommands[] = {
    {"bdb", "bdb dump|info|get|set|del|list-set FILE ...    records of a btree cache file",
     cmd_bdb},
    {"conf", "conf get|set|rm|sections|section FILE ...    read and change settings files",
     cmd_conf},
    {"error", "error CODE | error --trace CODE    name of an error code / a raise's back trace",
     cmd_error},
    {"list", "list sort|casesort|and|or|sub ...    string-list operations on comma lists",
     cmd_list},
    {"hash", "hash code KEY [SLOTS] | hash section NAME K=V...    string hash slots and sections",
     cmd_hash},
    {"str", "str colon-encode|colon-decode|hex|unhex|trim|pair|join ...    string helpers",
     cmd_str},
    {"ps", "ps PATTERN    the processes whose command line matches a grep pattern", cmd_ps},
    {"ops",
     "ops [list] | ops check NAME | ops hold NAME SECONDS    the registry of running operations",
     cmd_ops},
    {"user", "user list|get|add|set|passwd|del ...    the appliance's user accounts", cmd_user},
    {"group", "group list|get|add|set|del|members ...    the appliance's local groups", cmd_group},
    {"share", "share list|get|add|set|del|rights ...    the appliance's shared folders", cmd_share},
    {"disk", "disk list|info|smart|cache|standby ...    the appliance's disks", cmd_disk},
    {"raid", "raid list|info|create|add|stop|scan|expand ...    the appliance's md arrays",
     cmd_raid},
    {"part", "part layout|check|create|clean ...    the disks' partition layouts", cmd_part},
    {"vol", "vol list|info|mount|umount|lvm-status ...    the appliance's volumes", cmd_volume},
    {"log", "log show|add|size|conn ...    the appliance's event logs and connections", cmd_log},
    {"discover", "discover [--json]    the appliances that answer the discovery query",
     cmd_discover},
    {"net", "net cards [--json]    the configured network interfaces", cmd_net},
    {"backup", "backup export|import|show FILE ...    the configuration backup file", cmd_backup},
};

int usage(FILE *out) {
    fprintf(out, "usage: kovactl [--root DIR] COMMAND [ARGS]\n\ncommands:\n");
    for (const auto &c : kCommands)
        fprintf(out, "  %s\n", c.usage);
    fprintf(out,
            "\n--root DIR resolves the appliance's own files under DIR (a sandbox or an "
            "offline image).\n");
    return out == stdout ? 0 : 2;
}

// The words bash completion offers (tools/kovactl/completion.bash): one line per command, its
// name and then its subcommands, straight from the tables that print the usage texts.
int completion() {
    for (const auto &c : kCommands) {
        fputs(c.name, stdout);
        char name[32];
        snprintf(name, sizeof name, "%s", c.name);
        char query[sizeof kSubcommandQuery];
        snprintf(query, sizeof query, "%s", kSubcommandQuery);
        char *argv[] = {name, query, nullptr};
        c.run(2, argv);
        putchar('\n');
    }
    return 0;
}

}  // namespace

int report_failure(const char *what) {
    const uint32_t code = KLIBErrGet();
    const unsigned index = code >> 8;
    const char *name =
        (code & 0xFF) == 0 && index < static_cast<unsigned>(errNum) && rgszErrMsg[index][0] != '\0'
            ? rgszErrMsg[index]
            : "unnamed";
    const char *file = KOVAErrorGetFile();
    fprintf(stderr, "kovactl: %s: %s (kovaerr=0x%04X) at %s:%d\n", what, name, code,
            file != nullptr ? file : "?", KOVAErrorGetLine());
    return 1;
}

}  // namespace kovactl

int main(int argc, char **argv) {
    int arg = 1;
    if (arg + 1 < argc && strcmp(argv[arg], "--root") == 0) {
        setenv("KOVA_ROOT", argv[arg + 1], 1);
        arg += 2;
    }
    if (arg >= argc) return kovactl::usage(stderr);
    if (strcmp(argv[arg], "-h") == 0 || strcmp(argv[arg], "--help") == 0) {
        return kovactl::usage(stdout);
    }
    if (strcmp(argv[arg], "--completion") == 0) return kovactl::completion();
    for (const auto &c : kovactl::kCommands) {
        if (strcmp(argv[arg], c.name) == 0) return c.run(argc - arg, argv + arg);
    }
    fprintf(stderr, "kovactl: unknown command '%s'\n", argv[arg]);
    return kovactl::usage(stderr);
}
