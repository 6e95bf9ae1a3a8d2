// The discovery daemon's packets: reading a received datagram, writing an answer, and the line
// an answer becomes in the host list. Kept apart from the daemon's socket work so that a fuzz
// target and the tests can feed it any bytes.
#pragma once

#include <cstddef>
#include <cstdint>

namespace findhostd {

// Field ids after the 8-byte header (see kovasdk/socket.h for the whole layout).
inline constexpr uint8_t kFieldProbe = 0x00;
inline constexpr uint8_t kFieldKind = 0x01;
inline constexpr uint8_t kFieldRevision = 0xA4;
inline constexpr uint8_t kFieldModel = 0x10;
inline constexpr uint8_t kFieldBuild = 0x11;
inline constexpr uint8_t kFieldName = 0x12;
inline constexpr uint8_t kFieldAddress = 0x13;
inline constexpr uint8_t kFieldMac = 0x14;
inline constexpr uint8_t kFieldVersion = 0x15;

inline constexpr uint8_t kKindQuery = 1;
inline constexpr uint8_t kKindAnswer = 2;

inline constexpr size_t kNameMax = 63;
inline constexpr size_t kVersionMax = 31;
// The largest answer: header, kind, revision, two numbers, address, MAC and the two texts.
inline constexpr size_t kAnswerMax = 8 + 6 + 6 + 6 + 6 + 6 + 8 + (2 + kNameMax) + (2 + kVersionMax);

// What an appliance says about itself.
struct Identity {
    uint32_t model = 0;
    uint32_t build = 0;
    char name[kNameMax + 1] = {};
    uint8_t address[4] = {};  // network order
    uint8_t mac[6] = {};
    char version[kVersionMax + 1] = {};
};

enum class Kind { kQuery, kAnswer };

struct Packet {
    Kind kind = Kind::kQuery;
    Identity identity;  // answers only
};

// Reads a datagram: false for anything that is not a well-formed query or answer (wrong
// header, a field running past the end, a bad length or text, an answer missing its model,
// build, name or address, an unknown kind).
bool parse_packet(const uint8_t *data, size_t size, Packet *packet);

// Writes the answer for identity into out (at least kAnswerMax bytes): its length, or 0 when
// the identity's texts are not sendable.
size_t build_answer(const Identity &identity, uint8_t *out, size_t size);

// The host-list line of an answer ("model,build,name,address,mac,version\n"): false when it
// does not fit.
bool format_list_line(const Identity &identity, char *line, size_t size);

// A host name or version is printable ASCII without space or comma (the list is comma text).
bool is_list_text(const char *text, size_t length);

}  // namespace findhostd
