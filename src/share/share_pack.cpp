// The packed share record as the cache stores it, identical on every host: a zero word, then
// the record as the appliance lays it out with its string pointers as offsets from byte 4, all
// integers big-endian.
#include <cstring>

#include "core/endian.h"
#include "share/share_internal.h"

namespace {

using kova::share::kDeviceHeader;
using kova::share::kStringFields;

bool empty(const char *text) {
    return text == nullptr || text[0] == '\0';
}

// Header words after the zero word, as offsets of the packed record.
constexpr size_t kOffsetsAt = 4;
constexpr size_t kTypeAt = 28, kBrowseableAt = 32, kFtpAt = 36, kPackedLenAt = 40, kSizeAt = 44;

}  // namespace

int KOVAShareDBPack(const KOVASHARE *pShare, void **ppData, int32_t *pcbAlloc) {
    if (pShare == nullptr || ppData == nullptr || pcbAlloc == nullptr) {
        return kova::fail(ERR_BAD_PARAMETERS);
    }
    size_t record = kDeviceHeader + 1;
    for (auto field : kStringFields) {
        if (!empty(pShare->*field)) record += strlen(pShare->*field) + 1;
    }
    const size_t packed = record + 4;
    if (packed > INT32_MAX) return kova::fail(ERR_BAD_PARAMETERS);
    if (KOVACheckAndRealloc(ppData, pcbAlloc, static_cast<int32_t>(packed)) != 0) return -1;
    auto *out = static_cast<unsigned char *>(*ppData);
    memset(out, 0, packed);
    size_t at = kDeviceHeader;  // from byte 4
    for (size_t i = 0; i < kova::share::kStrings; ++i) {
        const char *text = pShare->*kStringFields[i];
        if (empty(text)) {
            kova::store_be32(out + kOffsetsAt + 4 * i, static_cast<uint32_t>(record - 1));
            continue;
        }
        const size_t size = strlen(text) + 1;
        kova::store_be32(out + kOffsetsAt + 4 * i, static_cast<uint32_t>(at));
        memcpy(out + 4 + at, text, size);
        at += size;
    }
    kova::store_be32(out + kTypeAt, static_cast<uint32_t>(pShare->fType));
    kova::store_be32(out + kBrowseableAt, static_cast<uint32_t>(pShare->browseable));
    kova::store_be32(out + kFtpAt, static_cast<uint32_t>(pShare->ftpWriteOnly));
    kova::store_be32(out + kPackedLenAt, static_cast<uint32_t>(packed));
    kova::store_be32(out + kSizeAt, static_cast<uint32_t>(record));
    return static_cast<int>(packed);
}

int KOVAShareDBUnpack(const void *pData, int32_t cbData, PKOVASHARE *ppShare) {
    if (pData == nullptr || ppShare == nullptr || cbData < 0) return kova::fail(ERR_BAD_PARAMETERS);
    const auto *in = static_cast<const unsigned char *>(pData);
    const auto size = static_cast<size_t>(cbData);
    if (size < KOVA_SHARE_PACKED_HEADER + 1) return kova::fail(ERR_FORMAT_ERROR);
    const size_t packed = kova::load_be32(in + kPackedLenAt);
    const size_t record = kova::load_be32(in + kSizeAt);
    if (kova::load_be32(in) != 0 || packed != record + 4 || packed > size ||
        record < kDeviceHeader + 1 || in[packed - 1] != '\0') {
        return kova::fail(ERR_FORMAT_ERROR);
    }
    KOVASHARE values{};
    for (size_t i = 0; i < kova::share::kStrings; ++i) {
        const size_t at = kova::load_be32(in + kOffsetsAt + 4 * i);
        // Inside the record, and ending there (the record's last byte is zero).
        if (at < kDeviceHeader || at >= record) return kova::fail(ERR_FORMAT_ERROR);
        values.*kStringFields[i] = const_cast<char *>(reinterpret_cast<const char *>(in + 4 + at));
    }
    values.fType = static_cast<int32_t>(kova::load_be32(in + kTypeAt));
    values.browseable = static_cast<int32_t>(kova::load_be32(in + kBrowseableAt));
    values.ftpWriteOnly = static_cast<int32_t>(kova::load_be32(in + kFtpAt));
    if (KOVAShareAlloc(ppShare, &values) == 0) return 0;
    return KLIBErrGet() == ERR_OUT_OF_MEMORY ? -1 : kova::fail(ERR_FORMAT_ERROR);
}
