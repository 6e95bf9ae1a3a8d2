// The drives' volatile write cache, and the stored "diskcache" setting.
#include <scsi/sg.h>

#include <cstdio>
#include <cstring>

#include "core/paths.h"
#include "core/root.h"
#include "disk/ata.h"
#include "disk/disk_internal.h"
#include "kovasdk/file.h"

using namespace kova;
using namespace kova::disk;

namespace {

constexpr int kWordCommandSetEnabled = 85;
constexpr uint16_t kWriteCacheEnabled = 1 << 5;

// The SoC interface's caching mode page, exactly as the appliance sends it.
constexpr uint8_t kModeSense[6] = {0x1A, 0x00, 0x08, 0x00, 0x00, 0x00};
constexpr uint8_t kModeSelect[6] = {0x15, 0x10, 0x00, 0x00, 0x24, 0x00};
constexpr size_t kPageBytes = 24;
constexpr size_t kModeHeader = 4;
constexpr int kWceByte = 6;
constexpr uint8_t kWce = 1 << 2;
constexpr unsigned kTimeoutMs = 60000;

// MODE SENSE of the caching page; a failure is reported on standard output and leaves the
// zeroed page as it is.
int sense_caching_page(int fd, uint8_t (&page)[kPageBytes], Site site) {
    uint8_t sense[24] = {};
    memset(page, 0, sizeof page);
    const int rc = ata::sg_io(fd, kModeSense, sizeof kModeSense, SG_DXFER_FROM_DEV, page,
                              sizeof page, kTimeoutMs, sense, sizeof sense);
    if (rc != 0) printf("%s (%d) Failed to run ioctl SG_IO\n", site.file, site.line);
    return rc;
}

int soc_cache_get(int fd) {
    uint8_t page[kPageBytes];
    sense_caching_page(fd, page, Site());
    return (page[kWceByte] & kWce) != 0 ? 1 : 0;
}

int soc_cache_set(int fd, bool on) {
    uint8_t page[kPageBytes];
    if (sense_caching_page(fd, page, Site()) != 0) {
        log_at(LOG_ERR, Site(), "%s (%d) Failed to get write cache setting.");
        return -1;
    }
    if (((page[kWceByte] & kWce) != 0) == on) return 0;
    memset(page, 0, kModeHeader);
    page[kWceByte] = on ? (page[kWceByte] | kWce) : (page[kWceByte] & ~kWce);
    uint8_t sense[24] = {};
    // The parameter list length says 36 while 24 bytes go out: kept as the appliance sends it.
    const int rc = ata::sg_io(fd, kModeSelect, sizeof kModeSelect, SG_DXFER_TO_DEV, page,
                              sizeof page, kTimeoutMs, sense, sizeof sense);
    if (rc != 0) log_at(LOG_ERR, Site(), "%s (%d) Failed to set write cache setting.");
    return rc;
}

}  // namespace

int KOVADiskWriteCacheGet(const char *szDevPath) {
    if (szDevPath == nullptr) {
        fail(ERR_BAD_PARAMETERS);
        return 0;
    }
    const UniqueFd fd(KOVAIDiskRawOpen(szDevPath));
    if (!fd) return 0;
    if (soc_interface(szDevPath)) return soc_cache_get(fd.get());
    uint16_t id[256];
    if (ata::identify(fd.get(), false, id) != 0) {
        log(LOG_ERR, "%s HDIO_DRIVE_CMD(identify) failed", szDevPath);
        return 0;
    }
    return (id[kWordCommandSetEnabled] & kWriteCacheEnabled) != 0 ? 1 : 0;
}

int KOVADiskWriteCacheSet(const char *szDevPath, int on) {
    if (szDevPath == nullptr) return fail(ERR_BAD_PARAMETERS);
    const UniqueFd fd(KOVAIDiskRawOpen(szDevPath));
    if (!fd) return -1;
    if (soc_interface(szDevPath)) return soc_cache_set(fd.get(), on != 0);
    uint8_t args[4] = {ata::kOpSetFeatures, 0,
                       on ? ata::kFeatureWriteCacheOn : ata::kFeatureWriteCacheOff, 0};
    return ata::drive_cmd(fd.get(), args);
}

int KOVADiskGetFileWCSetting(void) {
    char value[16] = "";
    const RootedPath info(paths::kKovaInfo);
    if (KLIBFileGetKeyValue(info.c_str(), kKeyDiskCache, value, sizeof value, 0) <= 0) return 0;
    return strcmp(value, "off") != 0 ? 1 : 0;
}

int KOVADiskSetFileWCSetting(int on) {
    return KOVAINFOSetKeyValue(kKeyDiskCache, on ? "on" : "off");
}
