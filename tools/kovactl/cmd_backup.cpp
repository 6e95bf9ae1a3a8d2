// kovactl backup: the configuration backup file (export, import, show).
#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <string>

#include "args.h"
#include "commands.h"
#include "kovasdk/error.h"
#include "kovasdk/sysbkp.h"

namespace kovactl {
namespace {

constexpr char kUsage[] =
    "usage: kovactl backup export FILE [--sections LIST]\n"
    "       kovactl backup import FILE [--sections LIST]\n"
    "       kovactl backup show FILE [--json]\n"
    "LIST is comma-separated section names, or all (the default). Sections: time, hostname,\n"
    "language, mail, apple, windows, user, group, share, hddsleep, runftpd, pppoe, runphoto,\n"
    "httpport, MTU, rcpower, usbcopyset, runweb, dcache, fetchbay, runmysql, user_quota.\n"
    "Import prints a line per section of the file: restored, skipped or failed.\n";

int usage(bool asked) {
    return print_usage(kUsage, asked);
}

// The section's short name: its description key without "_desc".
std::string section_name(const char *desc) {
    std::string name = desc;
    const size_t at = name.rfind("_desc");
    if (at != std::string::npos) name.erase(at);
    return name.empty() ? "finish" : name;
}

std::string name_of_bit(uint32_t bit) {
    const int idx = KOVASysbkpIGetIdx(bit);
    if (idx >= 0) return section_name(grgSysRoutine[idx].szDesc);
    return bit == KOVA_SYSBKP_INTERFACE ? "interface" : "unknown";
}

// The mask of --sections (all when absent); false for a name that is no section. The library's
// mask of all sections lacks the MySQL switch's bit, which export adds by itself and import
// does not: all here means that bit too.
bool sections_mask(int argc, char **argv, uint32_t *mask) {
    const char *list = option(argc, argv, "--sections");
    if (list == nullptr || strcmp(list, "all") == 0) {
        *mask = KOVA_SYSBKP_ALL | KOVA_SYSBKP_MYSQL;
        return true;
    }
    *mask = 0;
    std::string rest = list;
    while (!rest.empty()) {
        const size_t comma = rest.find(',');
        const std::string word = rest.substr(0, comma);
        rest = comma == std::string::npos ? "" : rest.substr(comma + 1);
        bool found = false;
        for (const SYSBKP_ROUTINE *row = grgSysRoutine; row->dwBit != 0; ++row) {
            if (section_name(row->szDesc) == word) {
                *mask |= row->dwBit;
                found = true;
            }
        }
        if (!found) {
            fprintf(stderr, "kovactl: backup: unknown section '%s'\n", word.c_str());
            return false;
        }
    }
    return true;
}

int backup_export(int argc, char **argv) {
    uint32_t mask = 0;
    if (argc < 3) return usage(false);
    if (!sections_mask(argc, argv, &mask)) return 2;
    if (mask == (KOVA_SYSBKP_ALL | KOVA_SYSBKP_MYSQL)) mask = KOVA_SYSBKP_ALL;
    if (KOVASysbkpExport(argv[2], mask) != 0) return report_failure(argv[2]);
    printf("exported to %s (mask 0x%08X)\n", argv[2], mask);
    return 0;
}

void print_section(void *, uint32_t bit, const char *desc, int state, int records) {
    static const char *const kStates[] = {"restored", "skipped", "failed"};
    printf("%-12s %s", section_name(desc).c_str(), kStates[state]);
    if (state == KOVA_SYSBKP_RESTORED && records > 0) printf(" (%d)", records);
    printf("\n");
    (void)bit;
    fflush(stdout);
}

int backup_import(int argc, char **argv) {
    uint32_t mask = 0;
    if (argc < 3) return usage(false);
    if (!sections_mask(argc, argv, &mask)) return 2;
    if (KOVASysbkpImportReport(argv[2], mask, 1, print_section, nullptr) != 0) {
        return report_failure(argv[2]);
    }
    return 0;
}

int backup_show(int argc, char **argv) {
    if (argc < 3) return usage(false);
    const int fd = open(argv[2], O_RDONLY | O_CLOEXEC);
    if (fd < 0) {
        fprintf(stderr, "kovactl: %s: cannot open: %s\n", argv[2], strerror(errno));
        return 1;
    }
    char magic[4];
    uint32_t head[2];
    if (read(fd, magic, 4) != 4 || memcmp(magic, KOVA_SYSBKP_MAGIC, 4) != 0 ||
        KOVASysbkpRawIntRead(fd, head, sizeof head) != sizeof head) {
        close(fd);
        fprintf(stderr, "kovactl: %s: not a backup file\n", argv[2]);
        return 1;
    }
    const bool json = has_flag(argc, argv, "--json");
    nlohmann::json sections = nlohmann::json::array();
    if (!json) printf("category %u, content mask 0x%08X\n", head[0], head[1]);
    uint32_t block[3];
    int rc = 0;
    while (KOVASysbkpRawIntRead(fd, block, sizeof block) == sizeof block) {
        if (json) {
            sections.push_back({{"section", name_of_bit(block[0])},
                                {"id", block[0]},
                                {"version", block[1]},
                                {"size", block[2]}});
        } else {
            printf("%-12s id 0x%08X  version %u  %u bytes\n", name_of_bit(block[0]).c_str(),
                   block[0], block[1], block[2]);
        }
        const off_t here = lseek(fd, 0, SEEK_CUR);
        const off_t end = lseek(fd, 0, SEEK_END);
        if (here < 0 || here + static_cast<off_t>(block[2]) > end) {
            fprintf(stderr, "kovactl: %s: the last section is cut short\n", argv[2]);
            rc = 1;
            break;
        }
        lseek(fd, here + static_cast<off_t>(block[2]), SEEK_SET);
    }
    close(fd);
    if (json) {
        print_json({{"category", head[0]}, {"mask", head[1]}, {"sections", sections}});
    }
    return rc;
}

}  // namespace

int cmd_backup(int argc, char **argv) {
    static constexpr Subcommand kSubs[] = {
        {"export", backup_export}, {"import", backup_import}, {"show", backup_show}};
    return dispatch(argc, argv, "backup", kSubs, kUsage);
}

}  // namespace kovactl
