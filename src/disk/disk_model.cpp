// What sysfs tells of a disk: its model, and which controller carries its ATA commands.
#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>

#include "core/root.h"
#include "disk/disk_internal.h"

using namespace kova;
using namespace kova::disk;

namespace {

// The PCI devices whose SATA ports the HDIO ioctls do not reach.
constexpr const char *kSocPciDevices[] = {"0x7042\n", "0x6145\n"};

}  // namespace

int KOVALnxDiskGetModel(const char *szDevPath, char *szBuf, int cbBuf) {
    if (szDevPath == nullptr || szBuf == nullptr || cbBuf <= 0)
        return fail(ERR_BAD_PARAMETERS, Site(), "%s (%d) Bad parameters.");
    const UniqueFd device = open_device(szDevPath, O_RDONLY | O_NONBLOCK);
    if (!device) {
        const int error = errno;
        return fail(ERR_OPEN_FAILED, Site(), "%s(%d) Failed to open %s. %d (%s)", szDevPath, error,
                    strerror(error));
    }
    char model_path[PATH_MAX];
    snprintf(model_path, sizeof model_path, "%s%s/device/model", kSysBlock,
             last_component(szDevPath));
    const RootedPath rooted(model_path);
    UniqueFile file(fopen(rooted.c_str(), "re"));
    if (!file) return fail(ERR_OPEN_FAILED, Site(), "%s (%d) Failed to open %s", model_path);
    memset(szBuf, 0, cbBuf);
    if (fgets(szBuf, cbBuf, file.get()) == nullptr)
        return fail(ERR_READ_FAILED, Site(), "%s (%d) Failed get disk model");
    szBuf[strcspn(szBuf, "\n")] = '\0';
    return 0;
}

int KOVADiskIsMvSocDriver(const char *szDevPath) {
    if (szDevPath == nullptr) return fail(ERR_BAD_PARAMETERS, Site(), "%s (%d) Bad parameter");
    const char *name = last_component(szDevPath);
    char link_path[PATH_MAX];
    snprintf(link_path, sizeof link_path, "%s%s/device", kSysBlock, name);
    char link[PATH_MAX];
    const ssize_t n = readlink(RootedPath(link_path).c_str(), link, sizeof link - 1);
    if (n < 0) {
        log(LOG_ERR, "readlink() from %s failed. (%s)", link_path, strerror(errno));
        return fail(ERR_OPEN_FAILED);
    }
    link[n] = '\0';
    if (strstr(link, "devices/platform/host") != nullptr) return 1;
    char *host = strstr(link, "/host");
    if (host == nullptr) return 0;
    // The controller is the directory above the SCSI host: its PCI device identifier.
    *host = '\0';
    char id_path[PATH_MAX * 2];
    snprintf(id_path, sizeof id_path, "%s%s/%s/device", kSysBlock, name, link);
    UniqueFile file(fopen(RootedPath(id_path).c_str(), "re"));
    char id[32] = "";
    if (!file || fgets(id, sizeof id, file.get()) == nullptr) return fail(ERR_OPEN_FAILED);
    for (const char *soc : kSocPciDevices)
        if (strcmp(id, soc) == 0) return 1;
    return 0;
}
