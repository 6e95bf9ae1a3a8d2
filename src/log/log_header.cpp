// The log file's header and the byte-level reads and writes every log function goes through.
#include <fcntl.h>
#include <syslog.h>
#include <unistd.h>

#include <cerrno>
#include <climits>
#include <cstring>

#include "core/fail.h"
#include "core/sys.h"
#include "log/log_internal.h"

using namespace kova::log_file;

namespace {

constexpr char kMagic[4] = {'K', 'O', 'V', 'A'};
constexpr off_t kHeadOffset = 8;
constexpr off_t kTailOffset = 12;

int get_end(int fd, off_t offset) {
    unsigned char field[4];
    if (!read_at(fd, field, sizeof field, offset)) return -1;
    const uint32_t value = get32(field);
    return value > INT32_MAX ? -1 : static_cast<int>(value);
}

int set_end(int fd, off_t offset, uint32_t value) {
    unsigned char field[4];
    put32(field, value);
    return write_at(fd, field, sizeof field, offset) ? 0 : -1;
}

}  // namespace

int KOVALogInit(int fd) {
    char magic[sizeof kMagic];
    if (read_at(fd, magic, sizeof magic, 0) && memcmp(magic, kMagic, sizeof kMagic) == 0) {
        return sizeof magic;
    }
    // A new or unrecognised file: magic, 4 unused bytes, head and tail at the record area, in
    // one write so that no reader sees the magic without its ends.
    unsigned char header[KOVA_LOG_HEADER_SIZE] = {};
    memcpy(header, kMagic, sizeof kMagic);
    put32(header + kHeadOffset, kStart);
    put32(header + kTailOffset, kStart);
    if (!write_at(fd, header, sizeof header, 0)) return -1;
    return sizeof header;
}

int KOVALogGetHead(int fd) {
    return get_end(fd, kHeadOffset);
}

int KOVALogGetTail(int fd) {
    return get_end(fd, kTailOffset);
}

int KOVALogSetHead(int fd, uint32_t dwHead) {
    if (set_end(fd, kHeadOffset, dwHead) < 0) return -1;
    return kova::sys::fsync(fd) == 0 ? 0 : kova::fail(ERR_WRITE_FAILED);
}

int KOVALogSetTail(int fd, uint32_t dwTail) {
    // The records before the new tail reach the disk before the tail that makes them live.
    if (kova::sys::fsync(fd) != 0) return kova::fail(ERR_WRITE_FAILED);
    return set_end(fd, kTailOffset, dwTail);
}

int KOVALogReadByte(int fd, void *pBuffer, int cbLength) {
    if (pBuffer == nullptr || cbLength < 0) return kova::fail(ERR_BAD_PARAMETERS);
    auto *at = static_cast<char *>(pBuffer);
    const size_t size = static_cast<size_t>(cbLength);
    if (!all_bytes(size,
                   [&](size_t done) { return kova::sys::read(fd, at + done, size - done); })) {
        return kova::fail(ERR_READ_FAILED);
    }
    return cbLength;
}

int KOVALogWriteByte(int fd, const void *pBuffer, int cbLength) {
    if (pBuffer == nullptr || cbLength < 0) return kova::fail(ERR_BAD_PARAMETERS);
    const auto *at = static_cast<const char *>(pBuffer);
    const size_t size = static_cast<size_t>(cbLength);
    if (!all_bytes(size,
                   [&](size_t done) { return kova::sys::write(fd, at + done, size - done); })) {
        write_failed(size);
        return -1;
    }
    return cbLength;
}

long KOVALogTell(int fd) {
    const off_t at = kova::sys::lseek(fd, 0, SEEK_CUR);
    return at < 0 ? kova::fail(ERR_SEEK_FAILED) : static_cast<long>(at);
}
