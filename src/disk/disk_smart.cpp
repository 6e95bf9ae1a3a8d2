// What the drive says of itself: solid state or not, and its temperature.
#include <cstdint>

#include "disk/ata.h"
#include "disk/disk_internal.h"

using namespace kova;
using namespace kova::disk;

namespace {

constexpr int kWordMajorVersion = 80;
constexpr int kWordCommandSet = 82;
constexpr int kWordCommandSetValid = 83;
constexpr int kWordCommandSetDefault = 84;
constexpr int kWordRotationRate = 217;
constexpr int kAta8 = 7;  // major-version bits above this are ATA8-ACS or later
constexpr uint16_t kNonRotating = 1;

// The temperature of the drive's S.M.A.R.T. data: degrees, or -1 (unreadable or not given).
int temperature(const char *path) {
    const UniqueFd fd(KOVAIDiskRawOpen(path));
    if (!fd) return -1;
    uint8_t data[ata::kSector];
    if (ata::smart_read_data(fd.get(), soc_interface(path), data) != 0) return -1;
    return ata::smart_temperature(data);
}

}  // namespace

int KOVADiskIsSSD(const char *szDevPath) {
    if (szDevPath == nullptr) {
        log_at(LOG_ERR, Site(), "%s(%d):Bad parameter, device path is null.");
        return fail(ERR_BAD_PARAMETERS);
    }
    uint16_t id[256];
    if (read_identify(szDevPath, id) != 0) {
        log_at(LOG_ERR, Site(), "%s(%d):SmartIdentifyRead failed.");
        return -1;
    }
    if (id[kWordMajorVersion] < 0xFFFF) {
        int highest = 0;
        for (int bit = 14; bit >= 1; bit--) {
            if (id[kWordMajorVersion] & (1u << bit)) {
                highest = bit;
                break;
            }
        }
        if (highest > kAta8 && id[kWordRotationRate] == kNonRotating) return 1;
    }
    if ((id[kWordCommandSetValid] & 0xC000) != 0x4000) return 0;
    if ((id[kWordCommandSet] & 1) == 0) return 1;         // no S.M.A.R.T.
    if ((id[kWordCommandSetDefault] & 1) == 0) return 1;  // no S.M.A.R.T. error logging
    return 0;
}

int KOVADiskTemperatureGet(const char *szDevPath) {
    if (szDevPath == nullptr) return fail(ERR_BAD_PARAMETERS);
    const int degrees = temperature(szDevPath);
    if (degrees < 0) log_at(LOG_ERR, Site(), "%s(%d) read value %s fail", szDevPath);
    return degrees;
}

int KOVADiskTemperatureC(const char *szDevPath) {
    if (szDevPath == nullptr) return fail(ERR_BAD_PARAMETERS);
    const int degrees = temperature(szDevPath);
    if (degrees < 0) log_at(LOG_ERR, Site(), "%s(%d)Failed to get status of RAID Temperature");
    return degrees;
}
