// The USB identity of a disk, from sysfs, and the devices that need special handling.
#include <climits>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

#include "core/owners.h"
#include "core/root.h"
#include "partition/partition_internal.h"

using namespace kova;

namespace {

constexpr uint32_t kSpecialVendor = 0x05AC;
struct Special {
    uint32_t product;
    int value;
};
constexpr Special kSpecial[] = {{0x1201, 2}, {0x1203, 2}, {0x1204, 2}, {0x1209, 2}, {0x1202, 2},
                                {0x1205, 2}, {0x120A, 2}, {0x1260, 2}, {0x1300, 0}, {0x1301, 0}};

// The first line of dir/name, newline cut; false when unreadable.
bool read_line(const std::string &dir, const char *name, char *out, size_t size) {
    UniqueFile file(fopen((dir + "/" + name).c_str(), "re"));
    if (!file || fgets(out, static_cast<int>(size), file.get()) == nullptr) return false;
    out[strcspn(out, "\n")] = '\0';
    return true;
}

}  // namespace

int KOVAUSBDevGetInfo(const char *szDevPath, PKOVAUSBDEVINFO pInfo) {
    if (szDevPath == nullptr || pInfo == nullptr) return fail(ERR_BAD_PARAMETERS);
    const char *slash = strrchr(szDevPath, '/');
    const char *name = slash != nullptr ? slash + 1 : szDevPath;
    char link[PATH_MAX];
    snprintf(link, sizeof link, "/sys/block/%s/device", name);
    char real[PATH_MAX];
    if (realpath(RootedPath(link).c_str(), real) == nullptr) return fail(ERR_OPEN_FAILED);
    // Up from the SCSI device to the USB device that carries idVendor.
    std::string dir = real;
    const std::string top = RootedPath("/sys").c_str();
    while (dir.size() > top.size()) {
        char vendor[16];
        char product[16];
        if (read_line(dir, "idVendor", vendor, sizeof vendor) &&
            read_line(dir, "idProduct", product, sizeof product)) {
            memset(pInfo, 0, sizeof *pInfo);
            pInfo->vendor = static_cast<uint32_t>(strtoul(vendor, nullptr, 16));
            pInfo->product = static_cast<uint32_t>(strtoul(product, nullptr, 16));
            read_line(dir, "manufacturer", pInfo->szManufacturer, sizeof pInfo->szManufacturer);
            read_line(dir, "product", pInfo->szProduct, sizeof pInfo->szProduct);
            read_line(dir, "serial", pInfo->szSerial, sizeof pInfo->szSerial);
            return 0;
        }
        dir.erase(dir.rfind('/'));
    }
    return fail(ERR_NO_DISK_ID);
}

int KOVACheckSpecialDevice(const char *szDevPath) {
    KOVAUSBDEVINFO info;
    if (KOVAUSBDevGetInfo(szDevPath, &info) != 0 || info.vendor != kSpecialVendor) return -1;
    for (const Special &s : kSpecial)
        if (s.product == info.product) return s.value;
    return -1;
}
