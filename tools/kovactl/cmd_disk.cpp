// kovactl disk: the appliance's disks, their caches and power settings.
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

#include "args.h"
#include "commands.h"
#include "kovasdk/disk.h"

namespace kovactl {
namespace {

constexpr char kUsage[] =
    "usage: kovactl disk list [--json]                 the internal bays' disks\n"
    "       kovactl disk info DISK [--json]            one disk: size, model, class, cache\n"
    "       kovactl disk smart DISK [--json]           temperature, solid state, power state\n"
    "       kovactl disk cache DISK [on|off] [--json]  the drive's write cache\n"
    "       kovactl disk cache --stored [on|off]       the stored \"diskcache\" setting\n"
    "       kovactl disk standby [MINUTES] [--json]    the internal disks' standby timer\n"
    "       kovactl disk standby --usb MINUTES         the USB disks' standby timer\n"
    "       kovactl disk standby --now [DISK]          standby now (every bay without DISK)\n"
    "DISK is a device path (/dev/sda) or a name (sda). Standby minutes: 0-20, 21, 30-330 in\n"
    "steps of 30, 480.\n";

int usage(bool asked) {
    return print_usage(kUsage, asked);
}

std::string device_of(const char *disk) {
    return strncmp(disk, "/dev/", 5) == 0 ? disk : std::string("/dev/") + disk;
}

const char *class_name(const char *path) {
    int klass = 0;
    if (DiskContainerGet(path, &klass) != 0) return "unknown";
    switch (klass) {
        case DISK_CONTAINER_INTERNAL:
            return "internal";
        case DISK_CONTAINER_TWO_LETTER:
            return "two-letter";
        case DISK_CONTAINER_EXTERNAL:
            return "external";
        case DISK_CONTAINER_ESATA:
            return "esata";
    }
    return "unknown";
}

nlohmann::json to_json(const DISK_INFO &disk) {
    nlohmann::json temperature = nullptr;
    if (disk.temperature >= 0) temperature = disk.temperature;
    return {{"path", disk.szPath},
            {"model", disk.szModel},
            {"bytes", disk.ullSize},
            {"temperature", temperature},
            {"class", class_name(disk.szPath)}};
}

std::string size_text(uint64_t bytes) {
    char text[32];
    if (bytes < (1ull << 30)) {
        snprintf(text, sizeof text, "%llu MiB", static_cast<unsigned long long>(bytes >> 20));
    } else {
        snprintf(text, sizeof text, "%.1f GiB", static_cast<double>(bytes) / (1ull << 30));
    }
    return text;
}

int disk_list(int argc, char **argv) {
    PDISK_LIST list = nullptr;
    const int n = DiskInfoEnum(&list);
    if (n < 0) return report_failure("disk list");
    const bool json = has_flag(argc, argv, "--json");
    nlohmann::json all = nlohmann::json::array();
    for (PDISK_LIST node = list; node != nullptr; node = node->pNext) {
        const DISK_INFO &d = *node->pDisk;
        if (json) {
            all.push_back(to_json(d));
        } else {
            printf("%-10s %-10s %-24s %s\n", d.szPath, size_text(d.ullSize).c_str(), d.szModel,
                   d.temperature >= 0 ? (std::to_string(d.temperature) + " C").c_str() : "-");
        }
    }
    DiskInfoEnumFree(list);
    if (json) print_json(all);
    if (!json && n == 0) puts("no disks in the internal bays");
    return 0;
}

int disk_info(int argc, char **argv) {
    if (argc < 3) return usage(false);
    const std::string path = device_of(argv[2]);
    PDISK_INFO disk = nullptr;
    const int rc = DiskInfoGet(path.c_str(), &disk);
    if (rc < 0) return report_failure(path.c_str());
    if (rc == 0) {
        fprintf(stderr, "kovactl: %s: no disk there\n", path.c_str());
        return 1;
    }
    nlohmann::json info = to_json(*disk);
    info["write_cache"] = KOVADiskWriteCacheGet(path.c_str()) == 1;
    info["second_interface"] = KOVADiskIsMvSocDriver(path.c_str()) == 1;
    DiskInfoFree(disk);
    if (has_flag(argc, argv, "--json")) {
        print_json(info);
        return 0;
    }
    printf("path:         %s\n", info["path"].get<std::string>().c_str());
    printf("model:        %s\n", info["model"].get<std::string>().c_str());
    printf("size:         %s (%llu bytes)\n", size_text(info["bytes"]).c_str(),
           info["bytes"].get<unsigned long long>());
    printf("class:        %s\n", info["class"].get<std::string>().c_str());
    printf("write cache:  %s\n", info["write_cache"].get<bool>() ? "on" : "off");
    printf("temperature:  %s\n",
           info["temperature"].is_null() ? "unknown" : (info["temperature"].dump() + " C").c_str());
    return 0;
}

int disk_smart(int argc, char **argv) {
    if (argc < 3) return usage(false);
    const std::string path = device_of(argv[2]);
    const int ssd = KOVADiskIsSSD(path.c_str());
    if (ssd < 0) return report_failure(path.c_str());
    const int temperature = KOVADiskTemperatureGet(path.c_str());
    unsigned char state = 0;
    const bool power_known = KOVAIDiskCheckPower(path.c_str(), &state) == 0;
    const char *power = !power_known                       ? "unknown"
                        : state == KOVA_DISK_POWER_STANDBY ? "standby"
                        : state == KOVA_DISK_POWER_IDLE    ? "idle"
                        : state == KOVA_DISK_POWER_ACTIVE  ? "active"
                                                           : "other";
    if (has_flag(argc, argv, "--json")) {
        nlohmann::json t = nullptr;
        if (temperature >= 0) t = temperature;
        print_json(
            {{"path", path}, {"solid_state", ssd == 1}, {"temperature", t}, {"power", power}});
        return 0;
    }
    printf("solid state:  %s\n", ssd == 1 ? "yes" : "no");
    printf("temperature:  %s\n",
           temperature >= 0 ? (std::to_string(temperature) + " C").c_str() : "unknown");
    printf("power:        %s\n", power);
    return 0;
}

// "on" 1, "off" 0, anything else -1.
int on_off(const char *word) {
    if (word == nullptr) return -1;
    if (strcmp(word, "on") == 0) return 1;
    if (strcmp(word, "off") == 0) return 0;
    return -1;
}

int disk_cache(int argc, char **argv) {
    if (argc < 3) return usage(false);
    const bool stored = strcmp(argv[2], "--stored") == 0;
    const char *word = argc > 3 && argv[3][0] != '-' ? argv[3] : nullptr;
    const int want = on_off(word);
    if (word != nullptr && want < 0) return usage(false);
    if (stored) {
        if (want >= 0) return KOVADiskSetFileWCSetting(want) == 0 ? 0 : report_failure("diskcache");
        printf("%s\n", KOVADiskGetFileWCSetting() ? "on" : "off");
        return 0;
    }
    const std::string path = device_of(argv[2]);
    if (want >= 0) {
        if (KOVADiskWriteCacheSet(path.c_str(), want) != 0) return report_failure(path.c_str());
        return 0;
    }
    const bool on = KOVADiskWriteCacheGet(path.c_str()) == 1;
    if (has_flag(argc, argv, "--json")) {
        print_json({{"path", path}, {"write_cache", on}});
    } else {
        printf("%s\n", on ? "on" : "off");
    }
    return 0;
}

int disk_standby(int argc, char **argv) {
    if (const char *usb = option(argc, argv, "--usb")) {
        return KOVADiskSetUSBStandbyTimer(atoi(usb)) == 0 ? 0 : report_failure("usb standby");
    }
    if (has_flag(argc, argv, "--now")) {
        const char *disk = argc > 3 && argv[3][0] != '-' ? argv[3] : nullptr;
        if (disk == nullptr) return KOVADiskSetStandby() == 0 ? 0 : report_failure("standby");
        const std::string path = device_of(disk);
        return KOVAIDiskSetDiskStandby(path.c_str()) == 0 ? 0 : report_failure(path.c_str());
    }
    if (argc > 2 && argv[2][0] != '-') {
        char *end = nullptr;
        const long minutes = strtol(argv[2], &end, 10);
        if (*end != '\0') return usage(false);
        return KOVADiskSetStandbyTimer(static_cast<int>(minutes)) == 0
                   ? 0
                   : report_failure("standby timer");
    }
    int minutes = 0;
    int usb = 0;
    if (KOVADiskGetStandbyTimer(&minutes) != 0 || KOVADiskGetUSBStandbyTimer(&usb) != 0)
        return report_failure("standby timer");
    if (has_flag(argc, argv, "--json")) {
        print_json({{"standby_minutes", minutes}, {"usb_standby_minutes", usb}});
    } else {
        printf("internal disks: %s\n",
               minutes ? (std::to_string(minutes) + " min").c_str() : "off");
        printf("USB disks:      %s\n", usb ? (std::to_string(usb) + " min").c_str() : "off");
    }
    return 0;
}

}  // namespace

int cmd_disk(int argc, char **argv) {
    static constexpr Subcommand kSubs[] = {{"list", disk_list},
                                           {"info", disk_info},
                                           {"smart", disk_smart},
                                           {"cache", disk_cache},
                                           {"standby", disk_standby}};
    return dispatch(argc, argv, "disk", kSubs, kUsage);
}

}  // namespace kovactl
