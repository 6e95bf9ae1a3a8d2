// The ATA commands the disk code sends, over the two command interfaces: the HDIO_DRIVE_CMD
// ioctl, and, for disks behind the SoC's controller (KOVADiskIsMvSocDriver), SG_IO with SCSI
// ATA PASS-THROUGH (16). Every ioctl goes through the system-call seam (core/sys.h), so tests
// answer from recorded replies.
#pragma once

#include <cstddef>
#include <cstdint>

namespace kova::ata {

// The command numbers both interfaces take.
enum Command : int {
    kCheckPower = 4,       // CHECK POWER MODE; result: the sector-count register
    kSetStandbyTimer = 5,  // IDLE with the standby timer (the SoC interface's form)
    kStandbyNow = 6,       // STANDBY IMMEDIATE
    kSleep = 7,            // SLEEP
    kDrain = 9,            // FLUSH CACHE: no data, returns once the drive's queue has drained
};

// ATA opcodes and their arguments.
inline constexpr uint8_t kOpCheckPower = 0xE5;
inline constexpr uint8_t kOpStandbyNow = 0xE0;
inline constexpr uint8_t kOpIdle = 0xE3;
inline constexpr uint8_t kOpSleep = 0xE6;
inline constexpr uint8_t kOpFlushCache = 0xE7;
inline constexpr uint8_t kOpIdentify = 0xEC;
inline constexpr uint8_t kOpIdentifyPacket = 0xA1;
inline constexpr uint8_t kOpSetFeatures = 0xEF;
inline constexpr uint8_t kOpSmart = 0xB0;
inline constexpr uint8_t kSmartReadData = 0xD0;
inline constexpr uint8_t kFeatureWriteCacheOn = 0x02;
inline constexpr uint8_t kFeatureWriteCacheOff = 0x82;

inline constexpr size_t kSector = 512;

// Runs a numbered command on the disk. value goes in the sector-count register (the standby
// timer); *result (may be null) receives the sector-count register of the answer. 0, or -1 with
// errno as the ioctl left it.
int command(int fd, bool soc, Command command, uint8_t value, uint8_t *result);

// HDIO_DRIVE_CMD: args = command, sector count / value, feature, sectors of data returned,
// followed by those sectors. 0 or -1.
int drive_cmd(int fd, uint8_t *args);

// SG_IO with a SCSI command block. direction: SG_DXFER_NONE, _FROM_DEV or _TO_DEV. 0 when the
// ioctl worked and the device reported GOOD status, -1 otherwise.
int sg_io(int fd, const uint8_t *cdb, size_t cdb_size, int direction, void *data, size_t size,
          unsigned timeout_ms, uint8_t *sense, size_t sense_size);

// An ATA command through ATA PASS-THROUGH (16): without data, or reading sectors sectors of
// PIO data into data. *count (may be null) receives the answer's sector-count register.
int passthrough(int fd, uint8_t opcode, uint8_t feature, uint8_t sector_count, uint8_t lba_low,
                uint8_t *data, size_t sectors, uint8_t *count);

// IDENTIFY DEVICE (IDENTIFY PACKET DEVICE when that fails) into 256 words in the drive's word
// order. 0 or -1.
int identify(int fd, bool soc, uint16_t (&words)[256]);

// S.M.A.R.T. READ DATA: 512 bytes. 0 or -1.
int smart_read_data(int fd, bool soc, uint8_t (&data)[kSector]);

// The temperature in the attribute table of S.M.A.R.T. data: attribute 194, else 190 (the
// first byte of its raw value); -1 when neither is there.
int smart_temperature(const uint8_t (&data)[kSector]);

}  // namespace kova::ata
