// kovactl raid and part: the appliance's arrays and the partitions they are built from.
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <string>

#include "args.h"
#include "commands.h"
#include "core/root.h"
#include "kovasdk/partition.h"
#include "kovasdk/raid.h"

namespace kovactl {
namespace {

constexpr char kRaidUsage[] =
    "usage: kovactl raid list [--json]                      the running arrays\n"
    "       kovactl raid info MD [--json] [--watch]         one array; --watch follows a resync\n"
    "       kovactl raid create MD --level L --disks N [--spares S] DEVICE...\n"
    "       kovactl raid add MD DEVICE                      a member or spare (size checked)\n"
    "       kovactl raid stop MD\n"
    "       kovactl raid scan DEVICE... [--json]            superblocks of the devices\n"
    "       kovactl raid expand MD [KIB]                    to KIB per member, or all there is\n"
    "L is raid0, raid1, raid5, raid6 or linear; MD is /dev/mdN; a device may be \"missing\".\n";

constexpr char kPartUsage[] =
    "usage: kovactl part layout [--json]                    the layout new disks get\n"
    "       kovactl part check DISK [--json]                the disk's partitions and layout\n"
    "       kovactl part create DISK [--system] [--data] [--layout 1|2]\n"
    "       kovactl part clean DISK [--system] [--data]     (both when neither is given)\n";

const char *level_name(int level) {
    switch (level) {
        case RAID_LEVEL_RAID0:
            return "raid0";
        case RAID_LEVEL_RAID1:
            return "raid1";
        case RAID_LEVEL_RAID5:
            return "raid5";
        case RAID_LEVEL_RAID6:
            return "raid6";
        case RAID_LEVEL_LINEAR:
            return "linear";
    }
    return "unsupported";
}

int level_of(const char *name) {
    for (int level = RAID_LEVEL_RAID0; level <= RAID_LEVEL_LINEAR; level++)
        if (name != nullptr && strcmp(name, level_name(level)) == 0) return level;
    return 0;
}

const char *status_name(int status) {
    switch (status) {
        case RAID_STATUS_NORMAL:
            return "normal";
        case RAID_STATUS_DEGRADE:
            return "degraded";
        case RAID_STATUS_CRASHED:
            return "crashed";
    }
    return "unknown";
}

const char *member_name(int status) {
    switch (status) {
        case RAID_DISK_IN_SYNC:
            return "in_sync";
        case RAID_DISK_FAULTY:
            return "faulty";
        case RAID_DISK_ERROR:
            return "error";
        case RAID_DISK_RECOVERING:
            return "recovering";
        case RAID_DISK_SPARE:
            return "spare";
    }
    return "unknown";
}

// The md driver's resync progress (the stock kernel's sysfs, beside the record's own state).
struct Progress {
    std::string action;  // "idle", "resync", "recover", "reshape", "check" ...
    unsigned long long done = 0;
    unsigned long long total = 0;
};

Progress progress_of(const char *md) {
    const char *name = strrchr(md, '/') != nullptr ? strrchr(md, '/') + 1 : md;
    const std::string dir =
        kova::RootedPath(("/sys/block/" + std::string(name) + "/md/").c_str()).c_str();
    Progress p;
    std::ifstream(dir + "sync_action") >> p.action;
    std::ifstream completed(dir + "sync_completed");
    std::string slash;
    completed >> p.done >> slash >> p.total;
    if (slash != "/") p.done = p.total = 0;
    return p;
}

nlohmann::json to_json(const RAID_INFO &info) {
    nlohmann::json members = nlohmann::json::array();
    for (const RAID_DISK *d = info.pDiskList; d != nullptr; d = d->pNext)
        members.push_back({{"path", d->szPath}, {"status", member_name(d->status)}});
    const Progress p = progress_of(info.szPath);
    nlohmann::json sync = {{"action", p.action}};
    if (p.total > 0) sync["done_sectors"] = p.done, sync["total_sectors"] = p.total;
    return {{"path", info.szPath},
            {"level", level_name(info.level)},
            {"status", status_name(info.status)},
            {"slots", info.raidDisks},
            {"array_bytes", info.ullArraySize},
            {"member_bytes", info.ullDevSize},
            {"members", members},
            {"sync", sync}};
}

void print_info(const RAID_INFO &info) {
    printf("%-10s %-7s %-9s %d slots  %.1f GiB\n", info.szPath, level_name(info.level),
           status_name(info.status), info.raidDisks,
           static_cast<double>(info.ullArraySize) / (1ull << 30));
    for (const RAID_DISK *d = info.pDiskList; d != nullptr; d = d->pNext)
        printf("    %-12s %s\n", d->szPath, member_name(d->status));
}

void print_bar(const Progress &p) {
    const int width = 40;
    const double share = p.total > 0 ? static_cast<double>(p.done) / p.total : 0;
    const int filled = static_cast<int>(share * width);
    printf("\r%-8s [%.*s%*s] %5.1f%%", p.action.c_str(), filled,
           "########################################", width - filled, "", share * 100);
    fflush(stdout);
}

int raid_list(int argc, char **argv) {
    PKLIBSZLIST paths = PslKLIBSzListAlloc(0);
    if (paths == nullptr || RAIDPathEnum(&paths) != 0) {
        KLIBSzListFree(paths);
        return report_failure("raid list");
    }
    const bool json = has_flag(argc, argv, "--json");
    nlohmann::json all = nlohmann::json::array();
    for (int i = 0; i < paths->nItem; i++) {
        PRAID_INFO info = nullptr;
        if (RAIDInfoGet(SzKLIBSzListGet(paths, i), &info) != 1) continue;
        if (json) {
            all.push_back(to_json(*info));
        } else {
            print_info(*info);
        }
        RAIDInfoFree(info);
    }
    if (json) print_json(all);
    if (!json && paths->nItem == 0) puts("no arrays are running");
    KLIBSzListFree(paths);
    return 0;
}

int raid_info(int argc, char **argv) {
    if (argc < 3) return print_usage(kRaidUsage, false);
    PRAID_INFO info = nullptr;
    const int rc = RAIDInfoGet(argv[2], &info);
    if (rc < 0) return report_failure(argv[2]);
    if (rc == 0) {
        fprintf(stderr, "kovactl: %s: not running\n", argv[2]);
        return 1;
    }
    if (has_flag(argc, argv, "--json")) {
        print_json(to_json(*info));
    } else {
        print_info(*info);
    }
    RAIDInfoFree(info);
    if (!has_flag(argc, argv, "--watch")) return 0;
    // Follows the md driver's progress until it is idle again.
    for (Progress p = progress_of(argv[2]); p.action != "idle" && !p.action.empty();
         p = progress_of(argv[2])) {
        print_bar(p);
        sleep(1);
    }
    printf("\ridle%60s\n", "");
    return 0;
}

int raid_create(int argc, char **argv) {
    const char *level = option(argc, argv, "--level");
    const char *disks = option(argc, argv, "--disks");
    const char *spares = option(argc, argv, "--spares");
    if (argc < 3 || level_of(level) == 0 || disks == nullptr) return print_usage(kRaidUsage, false);
    PKLIBSZLIST devices = PslKLIBSzListAlloc(0);
    for (int i = 3; i < argc && devices != nullptr; i++) {
        if (argv[i][0] == '-') {
            i++;  // an option and its value
            continue;
        }
        KLIBSzListPush(&devices, argv[i]);
    }
    const int rc = RAIDCreate(argv[2], level_of(level), atoi(disks),
                              spares != nullptr ? atoi(spares) : 0, devices);
    KLIBSzListFree(devices);
    return rc == 0 ? 0 : report_failure(argv[2]);
}

int raid_add(int argc, char **argv) {
    if (argc < 4) return print_usage(kRaidUsage, false);
    return RAIDAddRobustCheck(argv[2], argv[3]) == 0 ? 0 : report_failure(argv[3]);
}

int raid_stop(int argc, char **argv) {
    if (argc < 3) return print_usage(kRaidUsage, false);
    return RAIDStop(argv[2]) == 0 ? 0 : report_failure(argv[2]);
}

int raid_scan(int argc, char **argv) {
    PKLIBSZLIST devices = PslKLIBSzListAlloc(0);
    for (int i = 2; i < argc && devices != nullptr; i++)
        if (argv[i][0] != '-') KLIBSzListPush(&devices, argv[i]);
    if (devices == nullptr || devices->nItem == 0) {
        KLIBSzListFree(devices);
        return print_usage(kRaidUsage, false);
    }
    PRAID_SB_LIST found = nullptr;
    const int n = RAIDScan(devices, RAID_SCAN_ALL, &found);
    KLIBSzListFree(devices);
    if (n < 0) return report_failure("raid scan");
    nlohmann::json all = nlohmann::json::array();
    for (PRAID_SB_LIST node = found; node != nullptr; node = node->pNext) {
        const RAID_SB &sb = *node->pSB;
        if (has_flag(argc, argv, "--json")) {
            all.push_back({{"md", sb.szMdPath},
                           {"uuid", sb.szUUID},
                           {"level", level_name(sb.level)},
                           {"devices", sb.numDevices}});
        } else {
            printf("%-10s %-7s %d devices  UUID %s\n", sb.szMdPath, level_name(sb.level),
                   sb.numDevices, sb.szUUID);
        }
    }
    RAIDSBEnumFree(found);
    if (has_flag(argc, argv, "--json")) print_json(all);
    return 0;
}

int raid_expand(int argc, char **argv) {
    if (argc < 3) return print_usage(kRaidUsage, false);
    uint64_t kib = argc > 3 ? strtoull(argv[3], nullptr, 10) : 0;
    if (kib == 0) {
        PRAID_INFO info = nullptr;
        if (RAIDInfoGet(argv[2], &info) != 1) return report_failure(argv[2]);
        const int rc = RAIDExpansible(info, &kib);
        RAIDInfoFree(info);
        if (rc < 0) return report_failure(argv[2]);
        if (rc == 0) {
            printf("%s: the members hold no more room\n", argv[2]);
            return 0;
        }
    }
    return RAIDExpand(argv[2], kib) == 0 ? 0 : report_failure(argv[2]);
}

int part_layout(int argc, char **argv) {
    int layout = 0;
    if (PartitionLayoutGet(&layout) != 0) return report_failure("layout");
    if (has_flag(argc, argv, "--json")) {
        print_json({{"layout", layout}});
    } else {
        printf("layout %d\n", layout);
    }
    return 0;
}

int part_check(int argc, char **argv) {
    if (argc < 3) return print_usage(kPartUsage, false);
    nlohmann::json parts = nlohmann::json::array();
    for (int n = 1; n <= 4; n++) {
        uint32_t start = 0;
        uint32_t type = 0;
        const int64_t sectors = RCPartitionConfigs(n, argv[2], &start, &type);
        if (sectors < 0) continue;
        parts.push_back({{"number", n}, {"start", start}, {"sectors", sectors}, {"type", type}});
    }
    int layout = 0;
    const bool raid = BlKOVACheckPartitionLayout(argv[2], 1, &layout) == 1;
    if (!raid && BlKOVACheckPartitionLayout(argv[2], 0, &layout) != 1) layout = 0;
    if (has_flag(argc, argv, "--json")) {
        print_json({{"disk", argv[2]}, {"partitions", parts}, {"layout", layout}, {"raid", raid}});
        return 0;
    }
    for (const auto &p : parts)
        printf("%d  start %10u  sectors %10lld  type %02x\n", p["number"].get<int>(),
               p["start"].get<uint32_t>(), p["sectors"].get<long long>(),
               p["type"].get<unsigned>());
    if (layout == 0) {
        puts("not an appliance layout");
    } else {
        printf("layout %d (%s)\n", layout, raid ? "RAID" : "earlier plain Linux");
    }
    return 0;
}

// "/dev/sdx" for "sdx": the library takes disk paths.
std::string disk_path(const char *disk) {
    return strncmp(disk, "/dev/", 5) == 0 ? disk : std::string("/dev/") + disk;
}

int mask_of(int argc, char **argv) {
    int mask = 0;
    if (has_flag(argc, argv, "--system")) mask |= PARTITION_SYSTEM;
    if (has_flag(argc, argv, "--data")) mask |= PARTITION_DATA;
    return mask;
}

int part_create(int argc, char **argv) {
    if (argc < 3) return print_usage(kPartUsage, false);
    const int mask = mask_of(argc, argv) != 0 ? mask_of(argc, argv) : PARTITION_SYSTEM;
    const char *layout_text = option(argc, argv, "--layout");
    const int layout = layout_text != nullptr ? atoi(layout_text) : 0;
    const std::string disk = disk_path(argv[2]);
    return PartitionCreate(disk.c_str(), mask, layout_text != nullptr ? &layout : nullptr) == 0
               ? 0
               : report_failure(argv[2]);
}

int part_clean(int argc, char **argv) {
    if (argc < 3) return print_usage(kPartUsage, false);
    const int mask = mask_of(argc, argv) != 0 ? mask_of(argc, argv) : 3;
    const std::string disk = disk_path(argv[2]);
    return PartitionClean(disk.c_str(), mask) == 0 ? 0 : report_failure(argv[2]);
}

}  // namespace

int cmd_raid(int argc, char **argv) {
    static constexpr Subcommand kSubs[] = {
        {"list", raid_list}, {"info", raid_info}, {"create", raid_create}, {"add", raid_add},
        {"stop", raid_stop}, {"scan", raid_scan}, {"expand", raid_expand}};
    return dispatch(argc, argv, "raid", kSubs, kRaidUsage);
}

int cmd_part(int argc, char **argv) {
    static constexpr Subcommand kSubs[] = {{"layout", part_layout},
                                           {"check", part_check},
                                           {"create", part_create},
                                           {"clean", part_clean}};
    return dispatch(argc, argv, "part", kSubs, kPartUsage);
}

}  // namespace kovactl
