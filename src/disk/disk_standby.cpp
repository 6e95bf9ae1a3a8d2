// Power: standby timers and their settings, standby and sleep now, the power state, flushing
// and resetting the drives.
#include <fcntl.h>
#include <linux/fs.h>
#include <linux/hdreg.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "core/paths.h"
#include "core/root.h"
#include "core/run.h"
#include "core/sys.h"
#include "disk/ata.h"
#include "disk/disk_internal.h"
#include "kovasdk/file.h"

using namespace kova;
using namespace kova::disk;

namespace {

constexpr int kUsbStandbyMax = 1440;
constexpr int kSecondsValueMax = 240;

// The stored minutes of a key of "/etc/kovainfo.conf"; 0 when missing.
int stored_minutes(const char *key) {
    char value[32] = "";
    const RootedPath info(paths::kKovaInfo);
    if (KLIBFileGetKeyValue(info.c_str(), key, value, sizeof value, 0) <= 0) return 0;
    return atoi(value);
}

int store_minutes(const char *key, int minutes) {
    char value[16];
    snprintf(value, sizeof value, "%d", minutes);
    return KOVAINFOSetKeyValue(key, value);
}

// Runs a numbered command on a raw-opened disk: 0, or -1 with ERR_DISK_IO_FAILED.
int run_command(const char *path, ata::Command command, uint8_t value, uint8_t *result) {
    const UniqueFd fd(KOVAIDiskRawOpen(path));
    if (!fd) return -1;
    if (ata::command(fd.get(), soc_interface(path), command, value, result) != 0)
        return fail(ERR_DISK_IO_FAILED);
    return 0;
}

int set_timer(const char *path, int value) {
    return KOVAIDiskSetDiskStandbyTimer(path, value);
}

int standby(const char *path, int) {
    return KOVAIDiskSetDiskStandby(path);
}

int flush(const char *path, int) {
    return KOVAIDiskFlushBuffer(path);
}

int sleep_or_reset(const char *path, int on) {
    return on ? KOVAIDiskEnterSleep(path) : KOVAIDiskReset(path);
}

// Each bay whose node raw-opens (a disk node), the OR of the results.
int each_raw_bay(int (*run)(const char *path, int argument)) {
    int result = 0;
    for (int bay = 0; bay < kBays; bay++) {
        const BayPath path(bay);
        const int fd = KOVAIDiskRawOpen(path.c_str());
        if (fd < 0) continue;
        close(fd);
        result |= run(path.c_str(), 0);
    }
    return result;
}

}  // namespace

namespace kova::disk {

int standby_ata_value(int minutes) {
    if (minutes >= 0 && minutes <= 20) return minutes * 12;
    if (minutes == 21) return 252;
    if (minutes >= 30 && minutes <= 330 && minutes % 30 == 0) return 240 + minutes / 30;
    if (minutes == 480) return 253;
    return -1;
}

int each_bay(int (*run)(const char *path, int argument), int argument) {
    int result = 0;
    for (int bay = 0; bay < kBays; bay++) {
        const BayPath path(bay);
        const UniqueFd fd = open_device(path.c_str(), O_RDONLY | O_NONBLOCK);
        if (!fd) continue;
        if (run(path.c_str(), argument) != 0) result = -1;
    }
    return result;
}

}  // namespace kova::disk

int KOVADiskGetStandbyTimer(int *pMinutes) {
    if (pMinutes == nullptr) return fail(ERR_BAD_PARAMETERS);
    *pMinutes = stored_minutes(kKeyStandby);
    return *pMinutes < 0 ? -1 : 0;
}

int KOVADiskGetUSBStandbyTimer(int *pMinutes) {
    if (pMinutes == nullptr) return fail(ERR_BAD_PARAMETERS);
    *pMinutes = stored_minutes(kKeyUsbStandby);
    return *pMinutes < 0 ? -1 : 0;
}

int KOVADiskGetFileSBTimerSetting(void) {
    return stored_minutes(kKeyStandby);
}

int KOVADiskSetFileSBTimerSetting(int minutes) {
    if (store_minutes(kKeyStandby, minutes) != 0) return -1;
    KLIBScemdNotify(KOVA_SCEMD_EVENT_STANDBY_TIMER);
    return 0;
}

int KOVADiskSetStandbyTimer(int minutes) {
    // The table only validates the request: every disk gets 251 (or 0 for off), because the
    // appliance's power daemon, not the drive, times the standby. Deliberate.
    if (standby_ata_value(minutes) < 0) return fail(ERR_BAD_PARAMETERS);
    const int value = minutes == 0 ? 0 : kStandbyValue;
    if (each_bay(set_timer, value) != 0) return -1;
    if (KOVADiskGetFileSBTimerSetting() != minutes && KOVADiskSetFileSBTimerSetting(minutes) != 0)
        return -1;
    return 0;
}

int KOVADiskSetStandbySeconds(int seconds) {
    const int value = (seconds + 4) / 5;
    if (value < 1 || value > kSecondsValueMax) return fail(ERR_BAD_PARAMETERS);
    return each_bay(set_timer, value);
}

int KOVADiskSetUSBStandbyTimer(int minutes) {
    if (minutes > kUsbStandbyMax) return fail(ERR_BAD_PARAMETERS);
    if (store_minutes(kKeyUsbStandby, minutes) != 0) return -1;
    const ProgramPath echo("/bin/echo");
    char file[PATH_MAX];
    if (!shell_word(RootedPath(kUsbStandbyFile).c_str(), file, sizeof file))
        return fail(ERR_BAD_PARAMETERS);
    char command[PATH_MAX + sizeof file];
    const int n =
        snprintf(command, sizeof command, "%s time=%d > %s", echo.shell_word(), minutes, file);
    if (n < 0 || static_cast<size_t>(n) >= sizeof command) return fail(ERR_BAD_PARAMETERS);
    if (run_shell(command) != 0) {
        log(LOG_ERR, "system(%s) error", command);
        return fail(ERR_DISK_IO_FAILED);
    }
    return 0;
}

int KOVAIDiskSetDiskStandbyTimer(const char *szDevPath, int value) {
    if (szDevPath == nullptr) return fail(ERR_BAD_PARAMETERS);
    return run_command(szDevPath, ata::kSetStandbyTimer, static_cast<uint8_t>(value), nullptr);
}

int KOVAIDiskCheckPower(const char *szDevPath, unsigned char *pState) {
    if (szDevPath == nullptr || pState == nullptr) return fail(ERR_BAD_PARAMETERS);
    return run_command(szDevPath, ata::kCheckPower, 0, pState);
}

int KOVAIDiskSetDiskStandby(const char *szDevPath) {
    if (szDevPath == nullptr) {
        log_at(LOG_ERR, Site(), "%s:%d argument should not be NULL");
        return fail(ERR_BAD_PARAMETERS);
    }
    unsigned char state = KOVA_DISK_POWER_ACTIVE;
    if (KOVAIDiskCheckPower(szDevPath, &state) == 0 && state == KOVA_DISK_POWER_STANDBY) return 0;
    if (KOVAIDiskFlushBuffer(szDevPath) != 0)
        log_at(LOG_ERR, Site(), "%s:%d KOVAIDiskFlushBuffer(%s) fail, but still issue standby",
               szDevPath);
    return run_command(szDevPath, ata::kStandbyNow, 0, nullptr);
}

int KOVADiskSetStandby(void) {
    return each_raw_bay(standby);
}

int KOVAIDiskEnterSleep(const char *szDevPath) {
    if (szDevPath == nullptr) return fail(ERR_BAD_PARAMETERS);
    return run_command(szDevPath, ata::kSleep, 0, nullptr);
}

int KOVAIDiskFlushBuffer(const char *szDevPath) {
    if (szDevPath == nullptr) return fail(ERR_BAD_PARAMETERS);
    const UniqueFd fd(KOVAIDiskRawOpen(szDevPath));
    if (!fd) return -1;
    sync();
    sys::fsync(fd.get());
    fdatasync(fd.get());
    sync();
    if (sys::ioctl(fd.get(), BLKFLSBUF, nullptr) != 0) {
        log_at(LOG_ERR, Site(), "%s:%d ioctl(fd, BLKFLSBUF, NULL) fail");
        return fail(ERR_DISK_IO_FAILED);
    }
    sync();
    // Waits for the drive's queue; its answer does not matter (EINVAL counts as success).
    ata::command(fd.get(), soc_interface(szDevPath), ata::kDrain, 0, nullptr);
    sync();
    return 0;
}

int KOVADiskFlushBufferAll(void) {
    return each_raw_bay(flush);
}

int KOVADiskSetSleepMode(int on) {
    return each_bay(sleep_or_reset, on != 0);
}

int KOVAIDiskReset(const char *szDevPath) {
    if (szDevPath == nullptr) return fail(ERR_BAD_PARAMETERS);
    const UniqueFd fd(KOVAIDiskRawOpen(szDevPath));
    if (!fd) return -1;
    const int reset = sys::ioctl(fd.get(), HDIO_DRIVE_RESET, nullptr);
    sys::sleep(kResetSettleSeconds);
    const int dma = sys::ioctl(fd.get(), HDIO_SET_DMA, reinterpret_cast<void *>(1));
    return reset | dma;
}

int KOVASetRCPowerConfig(int enable) {
    if (enable >= 2 || enable < 0) {
        log_at(LOG_ERR, Site(), "%s(%d): KOVASetRCPower error param.");
        return fail(ERR_BAD_PARAMETERS);
    }
    return KOVAINFOSetKeyValue(kKeyRcPower, enable ? "yes" : "no") == 0 ? 0 : -1;
}

int KOVASysBlkDevReadAheadSet(const char *szDevPath, int sectors) {
    if (szDevPath == nullptr || sectors < 0) return fail(ERR_BAD_PARAMETERS);
    const UniqueFd fd = open_device(szDevPath, O_RDONLY | O_NONBLOCK);
    if (!fd) return fail(ERR_OPEN_FAILED);
    if (sys::ioctl(fd.get(), BLKRASET, reinterpret_cast<void *>(static_cast<long>(sectors))) != 0)
        return fail(ERR_DISK_IO_FAILED);
    return 0;
}

int KOVADiskTuningPerformance(const char *szDevPath) {
    if (szDevPath == nullptr || strncmp(szDevPath, kTuningDevice, 9) != 0) {
        log_at(LOG_ERR, Site(), "%s:%d illegal device path: %s ",
               szDevPath != nullptr ? szDevPath : "NULL");
        return -1;
    }
    return KOVASysBlkDevReadAheadSet(szDevPath, kTuningReadAhead) == 0 ? 0 : -1;
}

int KLIBScemdNotify(int event) {
    const RootedPath fifo(kScemdFifo);
    const UniqueFd fd(sys::open(fifo.c_str(), O_WRONLY | O_NONBLOCK | O_NOFOLLOW | O_CLOEXEC));
    // No daemon: no FIFO, or nobody reading it.
    if (!fd) return errno == ENOENT || errno == ENXIO ? 0 : fail(ERR_OPEN_FAILED);
    struct stat st {};
    if (sys::fstat(fd.get(), &st) != 0 || !S_ISFIFO(st.st_mode)) return fail(ERR_OPEN_FAILED);
    char line[16];
    const int n = snprintf(line, sizeof line, "%d\n", event);
    if (sys::calls().write(fd.get(), line, n) != n) return fail(ERR_WRITE_FAILED);
    return 0;
}
