// The framing of a backup file: whole big-endian words, block headers with their size filled in
// afterwards, and the two kinds of items.
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>

#include "core/alloc.h"
#include "core/endian.h"
#include "core/owners.h"
#include "kovasdk/log.h"
#include "sysbkp/sysbkp_internal.h"

namespace kova::sysbkp {
namespace {

bool write_all(int fd, const unsigned char *bytes, size_t size) {
    while (size > 0) {
        const ssize_t n = write(fd, bytes, size);
        if (n < 0 && errno == EINTR) continue;
        if (n <= 0) return false;
        bytes += n;
        size -= static_cast<size_t>(n);
    }
    return true;
}

// The bytes read (fewer only at the end of the file), or -1.
ssize_t read_all(int fd, unsigned char *bytes, size_t size) {
    size_t done = 0;
    while (done < size) {
        const ssize_t n = read(fd, bytes + done, size - done);
        if (n < 0 && errno == EINTR) continue;
        if (n < 0) return -1;
        if (n == 0) break;
        done += static_cast<size_t>(n);
    }
    return static_cast<ssize_t>(done);
}

bool valid_length(int length) {
    return length > 0 && length % 4 == 0;
}

// An item's type and length words.
bool read_item_head(int fd, uint32_t type, uint32_t *length) {
    uint32_t head[2];
    if (KOVASysbkpRawIntRead(fd, head, sizeof head) != static_cast<int>(sizeof head)) {
        fail(ERR_READ_FAILED);
        return false;
    }
    if (head[0] != type) {
        fail(ERR_FORMAT_ERROR);
        return false;
    }
    *length = head[1];
    return true;
}

}  // namespace

void record_failure(uint32_t event) {
    KOVALogSet1(KOVA_LOG_CLASS_SYS, KOVA_LOG_TYPE_ERR, event, "", "", "", "");
}

bool begin_block(int fd, uint32_t bit, const char *function, long *start) {
    if (KOVASysbkpIWriteHeader(fd, bit) != 0) {
        log_at(LOG_ERR, Site(__LINE__, function), "%s(%d): fail to write header");
        return false;
    }
    *start = static_cast<long>(lseek(fd, 0, SEEK_CUR));
    if (*start < 0) {
        log_at(LOG_ERR, Site(__LINE__, function), "%s(%d): fail to get current location, errno =%d",
               errno);
        return false;
    }
    return true;
}

bool end_block(int fd, long start, const char *function) {
    const long end = static_cast<long>(lseek(fd, 0, SEEK_CUR));
    if (end < 0) {
        log_at(LOG_ERR, Site(__LINE__, function), "%s(%d): fail to get current location, errno =%d",
               errno);
        return false;
    }
    if (KOVASysbkpIWriteBlkSize(fd, start, end) != 0) {
        log_at(LOG_ERR, Site(__LINE__, function), "%s(%d): fail to write block size");
        return false;
    }
    return true;
}

std::string ItemReader::text() {
    if (!ok_) return {};
    char *value = nullptr;
    if (KOVASysbkpIReadString(fd_, &value) != 0) {
        ok_ = false;
        return {};
    }
    std::string result(value);
    free(value);
    return result;
}

uint32_t ItemReader::number() {
    uint32_t value = 0;
    if (ok_ && KOVASysbkpIReadLong(fd_, &value) != 0) ok_ = false;
    return ok_ ? value : 0;
}

bool ItemReader::at_end() {
    unsigned char probe;
    const ssize_t n = read_all(fd_, &probe, 1);
    if (n == 1) lseek(fd_, -1, SEEK_CUR);
    return n == 0;
}

}  // namespace kova::sysbkp

using namespace kova;

int KOVASysbkpRawIntWrite(int fd, const uint32_t *pdwWords, int cbLength) {
    if (fd < 0 || pdwWords == nullptr || !sysbkp::valid_length(cbLength)) {
        return fail(ERR_BAD_PARAMETERS);
    }
    UniqueMalloc<unsigned char> bytes(static_cast<unsigned char *>(xmalloc(cbLength)));
    if (!bytes) return fail(ERR_OUT_OF_MEMORY);
    for (int i = 0; i < cbLength / 4; ++i)
        store_be32(bytes.get() + 4 * i, pdwWords[i]);
    if (!sysbkp::write_all(fd, bytes.get(), static_cast<size_t>(cbLength))) {
        return fail(ERR_WRITE_FAILED);
    }
    return cbLength;
}

int KOVASysbkpRawIntRead(int fd, uint32_t *pdwWords, int cbLength) {
    if (fd < 0 || pdwWords == nullptr || !sysbkp::valid_length(cbLength)) {
        return fail(ERR_BAD_PARAMETERS);
    }
    UniqueMalloc<unsigned char> bytes(static_cast<unsigned char *>(xmalloc(cbLength)));
    if (!bytes) return fail(ERR_OUT_OF_MEMORY);
    const ssize_t n = sysbkp::read_all(fd, bytes.get(), static_cast<size_t>(cbLength));
    if (n == 0) return 0;
    if (n != cbLength) return fail(ERR_READ_FAILED);
    for (int i = 0; i < cbLength / 4; ++i)
        pdwWords[i] = load_be32(bytes.get() + 4 * i);
    return cbLength;
}

int KOVASysbkpIWriteHeader(int fd, uint32_t dwBit) {
    const uint32_t header[3] = {dwBit, KOVA_SYSBKP_VERSION, 0};
    return KOVASysbkpRawIntWrite(fd, header, sizeof header) == sizeof header ? 0 : -1;
}

int KOVASysbkpIWriteBlkSize(int fd, long lStart, long lEnd) {
    // In 64 bits: on a 32-bit target long cannot hold UINT32_MAX.
    if (fd < 0 || lStart < 4 || lEnd < lStart ||
        static_cast<long long>(lEnd) - lStart > static_cast<long long>(UINT32_MAX)) {
        return fail(ERR_BAD_PARAMETERS);
    }
    const uint32_t size = static_cast<uint32_t>(lEnd - lStart);
    if (lseek(fd, lStart - 4, SEEK_SET) < 0) return fail(ERR_SEEK_FAILED);
    if (KOVASysbkpRawIntWrite(fd, &size, 4) != 4) return -1;
    if (lseek(fd, lEnd, SEEK_SET) < 0) return fail(ERR_SEEK_FAILED);
    return 0;
}

int KOVASysbkpIWriteLong(int fd, uint32_t dwValue) {
    const uint32_t item[3] = {KOVA_SYSBKP_ITEM_LONG, 4, dwValue};
    return KOVASysbkpRawIntWrite(fd, item, sizeof item) == sizeof item ? 0 : -1;
}

int KOVASysbkpIWriteString(int fd, const char *szText) {
    if (fd < 0 || szText == nullptr) return fail(ERR_BAD_PARAMETERS);
    const size_t len = strlen(szText) + 1;
    if (len > sysbkp::kMaxString) return fail(ERR_BAD_PARAMETERS);
    UniqueMalloc<unsigned char> item(static_cast<unsigned char *>(xmalloc(8 + len)));
    if (!item) return fail(ERR_OUT_OF_MEMORY);
    store_be32(item.get(), KOVA_SYSBKP_ITEM_STRING);
    store_be32(item.get() + 4, static_cast<uint32_t>(len));
    memcpy(item.get() + 8, szText, len);
    if (!sysbkp::write_all(fd, item.get(), 8 + len)) return fail(ERR_WRITE_FAILED);
    return 0;
}

int KOVASysbkpIReadLong(int fd, uint32_t *pdwValue) {
    if (fd < 0 || pdwValue == nullptr) return fail(ERR_BAD_PARAMETERS);
    uint32_t length = 0;
    if (!sysbkp::read_item_head(fd, KOVA_SYSBKP_ITEM_LONG, &length)) return -1;
    if (length != 4) return fail(ERR_FORMAT_ERROR);
    if (KOVASysbkpRawIntRead(fd, pdwValue, 4) != 4) return fail(ERR_READ_FAILED);
    return 0;
}

int KOVASysbkpIReadString(int fd, char **pszText) {
    if (fd < 0 || pszText == nullptr) return fail(ERR_BAD_PARAMETERS);
    *pszText = nullptr;
    uint32_t length = 0;
    if (!sysbkp::read_item_head(fd, KOVA_SYSBKP_ITEM_STRING, &length)) return -1;
    if (length == 0 || length > sysbkp::kMaxString) return fail(ERR_FORMAT_ERROR);
    UniqueMalloc<char> text(static_cast<char *>(xmalloc(length)));
    if (!text) return fail(ERR_OUT_OF_MEMORY);
    const ssize_t n = sysbkp::read_all(fd, reinterpret_cast<unsigned char *>(text.get()), length);
    if (n != static_cast<ssize_t>(length)) return fail(ERR_READ_FAILED);
    // The NUL ends the string and nothing inside it: a string with a NUL inside is damaged.
    if (memchr(text.get(), '\0', length) != text.get() + length - 1) {
        return fail(ERR_FORMAT_ERROR);
    }
    *pszText = text.release();
    return 0;
}
