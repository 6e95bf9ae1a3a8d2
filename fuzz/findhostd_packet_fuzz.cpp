// The discovery daemon's packet parser: any datagram is refused or parsed, and a parsed answer
// makes exactly one host-list line of six fields that, sent again, parses to the same line.
#include <cstdint>
#include <cstdlib>
#include <cstring>

#include "packet.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    findhostd::Packet packet;
    if (!findhostd::parse_packet(data, size, &packet)) return 0;
    if (packet.kind != findhostd::Kind::kAnswer) return 0;
    char line[256];
    if (!findhostd::format_list_line(packet.identity, line, sizeof line)) abort();
    int commas = 0;
    for (const char *p = line; *p != '\0'; ++p)
        commas += *p == ',';
    if (commas != 5 || strchr(line, '\n') != line + strlen(line) - 1) abort();
    uint8_t again[findhostd::kAnswerMax];
    const size_t n = findhostd::build_answer(packet.identity, again, sizeof again);
    findhostd::Packet back;
    if (n == 0 || !findhostd::parse_packet(again, n, &back)) abort();
    char line2[256];
    if (!findhostd::format_list_line(back.identity, line2, sizeof line2) ||
        strcmp(line, line2) != 0) {
        abort();
    }
    return 0;
}
