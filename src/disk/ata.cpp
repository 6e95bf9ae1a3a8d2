#include "disk/ata.h"

#include <linux/hdreg.h>
#include <scsi/sg.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

#include "core/sys.h"

namespace kova::ata {
namespace {

constexpr unsigned kTimeoutMs = 60000;
constexpr uint8_t kAtaPassThrough16 = 0x85;
// Protocol field (byte 1, bits 4..1) and the transfer flags of byte 2.
constexpr uint8_t kProtocolNonData = 3 << 1;
constexpr uint8_t kProtocolPioIn = 4 << 1;
constexpr uint8_t kCheckCondition = 0x20;    // return the task file in the sense data
constexpr uint8_t kFromDeviceBlocks = 0x0E;  // T_DIR in, BYT_BLOK, length in sector count
// The ATA Status Return sense descriptor and where it keeps the sector count.
constexpr uint8_t kAtaStatusDescriptor = 0x09;
constexpr int kDescriptorCount = 5;

// S.M.A.R.T. commands carry this signature in the LBA mid and high registers.
constexpr uint8_t kSmartLbaMid = 0x4F;
constexpr uint8_t kSmartLbaHigh = 0xC2;

constexpr int kAttributes = 30;
constexpr int kAttributeSize = 12;
constexpr int kAttributeRaw = 5;

// The sector-count register from a descriptor-format sense block (0x72/0x73) that carries
// the ATA Status Return descriptor.
bool sense_count(const uint8_t *sense, size_t size, uint8_t *count) {
    if (size < 8 || (sense[0] & 0x7F) < 0x72) return false;
    const size_t end = std::min(size, static_cast<size_t>(8 + sense[7]));
    for (size_t at = 8; at + 1 < end; at += 2 + sense[at + 1]) {
        if (sense[at] == kAtaStatusDescriptor && at + kDescriptorCount < end) {
            *count = sense[at + kDescriptorCount];
            return true;
        }
    }
    return false;
}

uint8_t opcode_of(Command command) {
    switch (command) {
        case kCheckPower:
            return kOpCheckPower;
        case kSetStandbyTimer:
            return kOpIdle;
        case kStandbyNow:
            return kOpStandbyNow;
        case kSleep:
            return kOpSleep;
        case kDrain:
            return kOpFlushCache;
    }
    return 0;
}

int hdio_command(int fd, Command command, uint8_t value, uint8_t *result) {
    uint8_t args[4] = {opcode_of(command), 0, 0, 0};
    if (command == kSetStandbyTimer) args[1] = value;
    if (drive_cmd(fd, args) != 0) return -1;
    if (result != nullptr) *result = args[2];
    return 0;
}

}  // namespace

int drive_cmd(int fd, uint8_t *args) {
    return sys::ioctl(fd, HDIO_DRIVE_CMD, args) == 0 ? 0 : -1;
}

int sg_io(int fd, const uint8_t *cdb, size_t cdb_size, int direction, void *data, size_t size,
          unsigned timeout_ms, uint8_t *sense, size_t sense_size) {
    sg_io_hdr_t io{};
    io.interface_id = 'S';
    io.cmd_len = static_cast<unsigned char>(cdb_size);
    io.cmdp = const_cast<uint8_t *>(cdb);
    io.dxfer_direction = direction;
    io.dxfer_len = static_cast<unsigned>(size);
    io.dxferp = data;
    io.mx_sb_len = static_cast<unsigned char>(sense_size);
    io.sbp = sense;
    io.timeout = timeout_ms;
    if (sys::ioctl(fd, SG_IO, &io) != 0) return -1;
    if ((io.info & SG_INFO_OK_MASK) != SG_INFO_OK) {
        errno = EIO;
        return -1;
    }
    return 0;
}

int passthrough(int fd, uint8_t opcode, uint8_t feature, uint8_t sector_count, uint8_t lba_low,
                uint8_t *data, size_t sectors, uint8_t *count) {
    uint8_t cdb[16] = {};
    cdb[0] = kAtaPassThrough16;
    cdb[4] = feature;
    cdb[6] = sector_count;
    cdb[8] = lba_low;
    cdb[14] = opcode;
    if (opcode == kOpSmart) {
        cdb[10] = kSmartLbaMid;
        cdb[12] = kSmartLbaHigh;
    }
    if (sectors > 0) {
        cdb[1] = kProtocolPioIn;
        cdb[2] = kFromDeviceBlocks;
    } else {
        // The answer's registers come back only as sense data of a CHECK CONDITION.
        cdb[1] = kProtocolNonData;
        cdb[2] = count != nullptr ? kCheckCondition : 0;
    }
    uint8_t sense[32] = {};
    sg_io_hdr_t io{};
    io.interface_id = 'S';
    io.cmd_len = sizeof cdb;
    io.cmdp = cdb;
    io.dxfer_direction = sectors > 0 ? SG_DXFER_FROM_DEV : SG_DXFER_NONE;
    io.dxfer_len = static_cast<unsigned>(sectors * kSector);
    io.dxferp = data;
    io.mx_sb_len = sizeof sense;
    io.sbp = sense;
    io.timeout = kTimeoutMs;
    if (sys::ioctl(fd, SG_IO, &io) != 0) return -1;
    if (count != nullptr && sectors == 0) {
        if (!sense_count(sense, io.sb_len_wr, count)) {
            errno = EIO;
            return -1;
        }
        return 0;
    }
    if ((io.info & SG_INFO_OK_MASK) != SG_INFO_OK) {
        errno = EIO;
        return -1;
    }
    return 0;
}

int command(int fd, bool soc, Command command, uint8_t value, uint8_t *result) {
    if (!soc) return hdio_command(fd, command, value, result);
    return passthrough(fd, opcode_of(command), 0, value, 0, nullptr, 0, result);
}

int identify(int fd, bool soc, uint16_t (&words)[256]) {
    uint8_t buffer[4 + kSector] = {};
    for (uint8_t opcode : {kOpIdentify, kOpIdentifyPacket}) {
        int rc;
        if (soc) {
            rc = passthrough(fd, opcode, 0, 1, 0, buffer + 4, 1, nullptr);
        } else {
            uint8_t args[4] = {opcode, 0, 0, 1};
            memcpy(buffer, args, sizeof args);
            rc = drive_cmd(fd, buffer);
        }
        if (rc == 0) {
            // IDENTIFY data is little-endian words.
            for (int i = 0; i < 256; i++)
                words[i] = static_cast<uint16_t>(buffer[4 + 2 * i] | buffer[5 + 2 * i] << 8);
            return 0;
        }
    }
    return -1;
}

int smart_read_data(int fd, bool soc, uint8_t (&data)[kSector]) {
    if (soc) return passthrough(fd, kOpSmart, kSmartReadData, 1, 0, data, 1, nullptr);
    uint8_t buffer[4 + kSector] = {kOpSmart, 0, kSmartReadData, 1};
    if (drive_cmd(fd, buffer) != 0) return -1;
    memcpy(data, buffer + 4, kSector);
    return 0;
}

int smart_temperature(const uint8_t (&data)[kSector]) {
    int airflow = -1;
    for (int i = 0; i < kAttributes; i++) {
        const uint8_t *attribute = data + 2 + i * kAttributeSize;
        if (attribute[0] == 194) return attribute[kAttributeRaw];
        if (attribute[0] == 190) airflow = attribute[kAttributeRaw];
    }
    return airflow;
}

}  // namespace kova::ata
