#include "packet.h"

#include <cstdio>
#include <cstring>

namespace findhostd {
namespace {

constexpr uint8_t kHeader[8] = {0x12, 0x34, 0x56, 0x78, 'K', 'O', 'V', 'A'};
constexpr uint8_t kRevisionCurrent[4] = {0x00, 0x00, 0x02, 0x01};

uint32_t big_endian(const uint8_t *p) {
    return uint32_t{p[0]} << 24 | uint32_t{p[1]} << 16 | uint32_t{p[2]} << 8 | uint32_t{p[3]};
}

bool copy_text(const uint8_t *value, size_t length, size_t max, char *out) {
    if (length > max || !is_list_text(reinterpret_cast<const char *>(value), length)) return false;
    memcpy(out, value, length);
    out[length] = '\0';
    return true;
}

// Fields that an answer must carry.
enum Seen : unsigned { kSeenModel = 1, kSeenBuild = 2, kSeenName = 4, kSeenAddress = 8 };
constexpr unsigned kSeenAll = kSeenModel | kSeenBuild | kSeenName | kSeenAddress;

// One field into the packet; false when its length does not suit its id.
bool take_field(uint8_t id, const uint8_t *value, size_t length, Packet *packet, int *kind,
                unsigned *seen) {
    Identity &who = packet->identity;
    switch (id) {
        case kFieldKind:
            if (length != 4) return false;
            *kind = value[0];
            return true;
        case kFieldRevision:
            return length == 4;
        case kFieldModel:
        case kFieldBuild:
            if (length != 4) return false;
            (id == kFieldModel ? who.model : who.build) = big_endian(value);
            *seen |= id == kFieldModel ? kSeenModel : kSeenBuild;
            return true;
        case kFieldName:
            *seen |= kSeenName;
            return length > 0 && copy_text(value, length, kNameMax, who.name);
        case kFieldAddress:
            if (length != 4) return false;
            memcpy(who.address, value, 4);
            *seen |= kSeenAddress;
            return true;
        case kFieldMac:
            if (length != 6) return false;
            memcpy(who.mac, value, 6);
            return true;
        case kFieldVersion:
            return copy_text(value, length, kVersionMax, who.version);
        default:
            return true;  // a newer sender's field: skipped
    }
}

uint8_t *put_field(uint8_t *at, uint8_t id, const void *value, size_t length) {
    at[0] = id;
    at[1] = static_cast<uint8_t>(length);
    memcpy(at + 2, value, length);
    return at + 2 + length;
}

uint8_t *put_number(uint8_t *at, uint8_t id, uint32_t number) {
    const uint8_t bytes[4] = {static_cast<uint8_t>(number >> 24),
                              static_cast<uint8_t>(number >> 16), static_cast<uint8_t>(number >> 8),
                              static_cast<uint8_t>(number)};
    return put_field(at, id, bytes, sizeof bytes);
}

}  // namespace

bool is_list_text(const char *text, size_t length) {
    for (size_t i = 0; i < length; ++i) {
        const auto c = static_cast<unsigned char>(text[i]);
        if (c <= ' ' || c >= 0x7F || c == ',') return false;
    }
    return true;
}

bool parse_packet(const uint8_t *data, size_t size, Packet *packet) {
    if (data == nullptr || size < sizeof kHeader || memcmp(data, kHeader, sizeof kHeader) != 0) {
        return false;
    }
    *packet = Packet{};
    if (size == sizeof kHeader) return false;  // even the oldest probe has a field
    int kind = kKindQuery;                     // ... but no kind
    unsigned seen = 0;
    for (size_t at = sizeof kHeader; at < size;) {
        if (size - at < 2) return false;
        const uint8_t id = data[at];
        const size_t length = data[at + 1];
        if (size - at - 2 < length) return false;
        if (!take_field(id, data + at + 2, length, packet, &kind, &seen)) return false;
        at += 2 + length;
    }
    if (kind == kKindQuery) {
        packet->kind = Kind::kQuery;
        packet->identity = Identity{};
        return true;
    }
    packet->kind = Kind::kAnswer;
    return kind == kKindAnswer && seen == kSeenAll;
}

size_t build_answer(const Identity &identity, uint8_t *out, size_t size) {
    const size_t name = strnlen(identity.name, sizeof identity.name);
    const size_t version = strnlen(identity.version, sizeof identity.version);
    if (size < kAnswerMax || name == 0 || name > kNameMax || version > kVersionMax ||
        !is_list_text(identity.name, name) || !is_list_text(identity.version, version)) {
        return 0;
    }
    const uint8_t kind[4] = {kKindAnswer, 0, 0, 0};
    uint8_t *at = out;
    memcpy(at, kHeader, sizeof kHeader);
    at += sizeof kHeader;
    at = put_field(at, kFieldKind, kind, sizeof kind);
    at = put_field(at, kFieldRevision, kRevisionCurrent, sizeof kRevisionCurrent);
    at = put_number(at, kFieldModel, identity.model);
    at = put_number(at, kFieldBuild, identity.build);
    at = put_field(at, kFieldName, identity.name, name);
    at = put_field(at, kFieldAddress, identity.address, sizeof identity.address);
    at = put_field(at, kFieldMac, identity.mac, sizeof identity.mac);
    at = put_field(at, kFieldVersion, identity.version, version);
    return static_cast<size_t>(at - out);
}

bool format_list_line(const Identity &identity, char *line, size_t size) {
    const uint8_t *a = identity.address;
    const uint8_t *m = identity.mac;
    const int n = snprintf(line, size, "%u,%u,%s,%u.%u.%u.%u,%02x:%02x:%02x:%02x:%02x:%02x,%s\n",
                           identity.model, identity.build, identity.name, a[0], a[1], a[2], a[3],
                           m[0], m[1], m[2], m[3], m[4], m[5], identity.version);
    return n > 0 && static_cast<size_t>(n) < size;
}

}  // namespace findhostd
