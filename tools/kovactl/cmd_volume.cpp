// kovactl vol: the appliance's volumes, their health, mounting, and the volume-group status
// file that the logical-volume tools keep.
#include <cstdio>
#include <cstring>
#include <fstream>
#include <sstream>
#include <string>

#include "args.h"
#include "commands.h"
#include "core/root.h"
#include "kovasdk/volume.h"

namespace kovactl {
namespace {

constexpr char kUsage[] =
    "usage: kovactl vol list [--json]                       every volume\n"
    "       kovactl vol info VOLUME [--json]                one volume, its health and "
    "writability\n"
    "       kovactl vol mount DEVICE VOLUME                 mount with user and group quotas\n"
    "       kovactl vol umount VOLUME\n"
    "       kovactl vol lvm-status set VG PV:STATE...       the group's lines of /tmp/lvm.status\n"
    "VOLUME is /volumeN, /volumeXN ...; VG is vgN; PV an array /dev/mdN; STATE 0 normal or\n"
    "1 missing. /tmp/lvm.status holds one line \"VG PV STATE\" per physical volume.\n";

constexpr char kLvmStatus[] = "/tmp/lvm.status";

struct FlagName {
    uint32_t bit;
    const char *name;
};
constexpr FlagName kFlags[] = {{VOLUME_NOT_MOUNTED, "not-mounted"},
                               {VOLUME_FS_STATE2, "fs-read-only"},
                               {VOLUME_PV_STATE1_INTERNAL, "pv-missing-internal"},
                               {VOLUME_PV_STATE1_EBOX, "pv-missing-ebox"},
                               {VOLUME_RAID_DEGRADE, "raid-degraded"},
                               {VOLUME_RAID_CRASHED, "raid-crashed"},
                               {VOLUME_SYSTEM_PARTITION_ABNORMAL, "system-partition-abnormal"}};

nlohmann::json to_json(const VOLUME_INFO &info) {
    nlohmann::json out = {{"path", info.szPath}, {"number", info.num}, {"location", info.location}};
    if (info.pFSInfo != nullptr)
        out["file_system"] = {{"device", info.pFSInfo->szDevice},
                              {"type", info.pFSInfo->szType},
                              {"read_only", info.pFSInfo->state == FS_STATE_READONLY}};
    if (info.pVGInfo != nullptr) {
        nlohmann::json pvs = nlohmann::json::array();
        for (const PV_INFO *pv = info.pVGInfo->pPVList; pv != nullptr; pv = pv->pNext)
            pvs.push_back({{"path", pv->szPath}, {"missing", pv->state == PV_STATE_MISSING}});
        out["volume_group"] = {{"name", info.pVGInfo->szName}, {"physical_volumes", pvs}};
    }
    nlohmann::json arrays = nlohmann::json::array();
    for (const RAID_LIST *n = info.pRaidList; n != nullptr; n = n->pNext)
        arrays.push_back(n->pRaid->szPath);
    out["arrays"] = arrays;
    uint32_t flags = 0;
    const int writable = VolumeIsWritable(&info, &flags);
    nlohmann::json names = nlohmann::json::array();
    for (const FlagName &f : kFlags)
        if (writable >= 0 && (flags & f.bit)) names.push_back(f.name);
    out["health"] = names;
    if (writable >= 0) out["writable"] = writable == 1;
    return out;
}

void print(const nlohmann::json &v) {
    std::string arrays;
    for (const auto &a : v["arrays"])
        arrays += (arrays.empty() ? "" : ",") + a.get<std::string>();
    std::string health;
    for (const auto &h : v["health"])
        health += (health.empty() ? "" : ",") + h.get<std::string>();
    const char *device = v.contains("file_system")
                             ? v["file_system"]["device"].get_ref<const std::string &>().c_str()
                             : "-";
    printf("%-22s %-16s %-20s %-9s %s\n", v["path"].get<std::string>().c_str(), device,
           arrays.empty() ? "-" : arrays.c_str(),
           !v.contains("writable")     ? "?"
           : v["writable"].get<bool>() ? "writable"
                                       : "read-only",
           !v.contains("writable") ? "health not judged (no arrays)"
           : health.empty()        ? "healthy"
                                   : health.c_str());
}

int vol_list(int argc, char **argv) {
    PVOLUME_LIST list = nullptr;
    if (VolumeInfoEnum(&list) < 0) return report_failure("vol list");
    nlohmann::json all = nlohmann::json::array();
    for (PVOLUME_LIST n = list; n != nullptr; n = n->pNext)
        all.push_back(to_json(*n->pVolume));
    VolumeInfoListFree(list);
    if (has_flag(argc, argv, "--json")) {
        print_json(all);
    } else if (all.empty()) {
        puts("no volumes");
    } else {
        for (const auto &v : all)
            print(v);
    }
    return 0;
}

int vol_info(int argc, char **argv) {
    if (argc < 3) return print_usage(kUsage, false);
    PVOLUME_INFO info = nullptr;
    const int rc = VolumeInfoGet(argv[2], &info);
    if (rc < 0) return report_failure(argv[2]);
    if (rc == 0) {
        fprintf(stderr, "kovactl: %s: no such volume\n", argv[2]);
        return 1;
    }
    const nlohmann::json v = to_json(*info);
    VolumeInfoFree(info);
    if (has_flag(argc, argv, "--json")) {
        print_json(v);
    } else {
        print(v);
    }
    return 0;
}

int vol_mount(int argc, char **argv) {
    if (argc < 4) return print_usage(kUsage, false);
    return VolumeMount(argv[2], argv[3]) == 0 ? 0 : report_failure(argv[3]);
}

int vol_umount(int argc, char **argv) {
    if (argc < 3) return print_usage(kUsage, false);
    return VolumeUnmount(argv[2]) == 0 ? 0 : report_failure(argv[2]);
}

// Replaces the group's lines, keeping the others, through a temporary file and a rename.
int vol_lvm_status(int argc, char **argv) {
    if (argc < 5 || strcmp(argv[2], "set") != 0) return print_usage(kUsage, false);
    const std::string group = argv[3];
    const std::string file = kova::RootedPath(kLvmStatus).c_str();
    std::ostringstream out;
    std::ifstream in(file);
    for (std::string line; std::getline(in, line);) {
        std::istringstream words(line);
        std::string first;
        words >> first;
        if (first != group) out << line << "\n";
    }
    for (int i = 4; i < argc; i++) {
        const char *colon = strrchr(argv[i], ':');
        if (colon == nullptr || (strcmp(colon, ":0") != 0 && strcmp(colon, ":1") != 0)) {
            fprintf(stderr, "kovactl: vol lvm-status: '%s' is not PV:STATE\n", argv[i]);
            return 2;
        }
        out << group << " " << std::string(argv[i], static_cast<size_t>(colon - argv[i])) << " "
            << colon + 1 << "\n";
    }
    const std::string temp = file + ".kovactl";
    std::ofstream(temp) << out.str();
    if (rename(temp.c_str(), file.c_str()) != 0) {
        perror(file.c_str());
        remove(temp.c_str());
        return 1;
    }
    return 0;
}

}  // namespace

int cmd_volume(int argc, char **argv) {
    static constexpr Subcommand kSubs[] = {{"list", vol_list},
                                           {"info", vol_info},
                                           {"mount", vol_mount},
                                           {"umount", vol_umount},
                                           {"lvm-status", vol_lvm_status}};
    return dispatch(argc, argv, "vol", kSubs, kUsage);
}

}  // namespace kovactl
