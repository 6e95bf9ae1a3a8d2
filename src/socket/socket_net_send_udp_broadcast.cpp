#include <arpa/inet.h>
#include <libnet.h>

#include <cstddef>
#include <cstring>
#include <memory>

#include "core/raise.h"
#include "kovasdk/socket.h"
#include "socket/socket_internal.h"

using namespace kova::socket;

static_assert(sizeof(KOVANETFRAME) == 24, "the frame description is 24 bytes");
static_assert(offsetof(KOVANETFRAME, ulSrcIP) == 12 && offsetof(KOVANETFRAME, usDstPort) == 22,
              "the frame description's layout is fixed");

namespace {

struct LinkCloser {
    void operator()(libnet_t *link) const { libnet_destroy(link); }
};
using Link = std::unique_ptr<libnet_t, LinkCloser>;

// The largest payload whose IPv4 total length still fits 16 bits.
constexpr int kMaxPayload = 0xFFFF - kIpHeader - kUdpHeader;

bool is_zero(const uint8_t (&mac)[6]) {
    for (uint8_t b : mac) {
        if (b != 0) return false;
    }
    return true;
}

// The source MAC: the description's, else the link's own, else the fixed fallback (kept so
// that a frame still goes out when the hardware address cannot be read).
void source_mac(libnet_t *link, const KOVANETFRAME &frame, uint8_t (&mac)[6]) {
    if (!is_zero(frame.rgbSrcMac)) {
        memcpy(mac, frame.rgbSrcMac, sizeof mac);
        return;
    }
    const libnet_ether_addr *own = libnet_get_hwaddr(link);
    memcpy(mac, own != nullptr ? own->ether_addr_octet : kFallbackMac, sizeof mac);
}

// Builds the three headers around the payload; libnet fills both checksums when it writes.
bool build_frame(libnet_t *link, const KOVANETFRAME &frame, const uint8_t *payload, int size) {
    uint8_t source[6];
    uint8_t destination[6];
    source_mac(link, frame, source);
    if (is_zero(frame.rgbDstMac)) {
        memset(destination, 0xFF, sizeof destination);
    } else {
        memcpy(destination, frame.rgbDstMac, sizeof destination);
    }
    const auto udp_length = static_cast<uint16_t>(kUdpHeader + size);
    const auto ip_length = static_cast<uint16_t>(kIpHeader + kUdpHeader + size);
    return libnet_build_udp(ntohs(frame.usSrcPort), ntohs(frame.usDstPort), udp_length, 0, payload,
                            static_cast<uint32_t>(size), link, 0) != -1 &&
           libnet_build_ipv4(ip_length, 0, kIpIdentification, 0, kIpTtl, IPPROTO_UDP, 0,
                             frame.ulSrcIP, frame.ulDstIP, nullptr, 0, link, 0) != -1 &&
           libnet_build_ethernet(destination, source, ETHERTYPE_IP, nullptr, 0, link, 0) != -1;
}

}  // namespace

int KOVANetSendUDPBroadCast(int nKind, const KOVANETFRAME *pFrame, const void *pPayload,
                            int cbPayload, const char *szDevice) {
    if (nKind != KOVA_NET_FRAME_UDP || pFrame == nullptr || pPayload == nullptr ||
        szDevice == nullptr || cbPayload < 1 || cbPayload > kMaxPayload) {
        kova::raise(ERR_BAD_PARAMETERS);
        return -1;
    }
    char error[LIBNET_ERRBUF_SIZE];
    Link link(libnet_init(LIBNET_LINK, szDevice, error));
    if (!link) {
        kova::raise(ERR_UNKNOWN);
        return -1;
    }
    // A checksum that cannot be computed makes libnet refuse the write: no frame goes out.
    const int length = kFrameHeaders + cbPayload;
    if (!build_frame(link.get(), *pFrame, static_cast<const uint8_t *>(pPayload), cbPayload) ||
        libnet_write(link.get()) < length) {
        kova::raise(ERR_UNKNOWN);
        return -1;
    }
    return 0;
}
