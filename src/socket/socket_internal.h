// What the discovery files share: the paths, the daemon's name, the waits and the log texts.
#pragma once

#include <cstdint>

namespace kova::socket {

inline constexpr const char kFindhostd[] = "/usr/kova/bin/findhostd";
inline constexpr const char kFindhostdName[] = "findhostd";
inline constexpr const char kFindhostdPidFile[] = "/var/run/findhostd.pid";
inline constexpr const char kHostList[] = "/tmp/kovanas.list";
inline constexpr const char kHostListTaken[] = "/tmp/kovanas.list.tmp";
inline constexpr const char kTouch[] = "/bin/touch";

inline constexpr const char kCardFile[] = "/etc/sysconfig/network-scripts/ifcfg-eth%d";
inline constexpr const char kDhcpInfoFile[] = "/etc/dhcpc/%s.info";
inline constexpr const char kKeyDevice[] = "DEVICE";
inline constexpr const char kKeyBootProto[] = "BOOTPROTO";
inline constexpr const char kKeyIPAddr[] = "IPADDR";
inline constexpr const char kKeyNetmask[] = "NETMASK";

inline constexpr unsigned kDaemonStartSeconds = 3;
inline constexpr unsigned kCollectSeconds = 10;
inline constexpr int kCommandSize = 1024;
inline constexpr int kKeySize = 1024;
inline constexpr int kListFields = 5;
inline constexpr int kMinBuildLevel = 240;
inline constexpr int kListCapacity = 1024;
inline constexpr int kNetLockSeconds = 10;

// The raw frame: Ethernet II, IPv4 and UDP headers before the payload.
inline constexpr int kEthernetHeader = 14;
inline constexpr int kIpHeader = 20;
inline constexpr int kUdpHeader = 8;
inline constexpr int kFrameHeaders = kEthernetHeader + kIpHeader + kUdpHeader;  // 42
inline constexpr uint16_t kIpIdentification = 242;
inline constexpr uint8_t kIpTtl = 64;
inline constexpr uint8_t kFallbackMac[6] = {0x0d, 0x0e, 0x0a, 0x0d, 0x00, 0x00};

// Log texts.
inline constexpr const char kLogDaemonDown[] = "%s(%d): findhostd daemon is not running ....";
inline constexpr const char kLogQueryFailed[] = "%s(%d): ErrFHOSTSendQueryPkt() failed!";
inline constexpr const char kLogTrimFailed[] = "%s:%d KLIBStrTrimSpace error!!";
inline constexpr const char kLogFewFields[] = "%s:%d field number < 5";
inline constexpr const char kLogModelZero[] = "%s:%d model number == 0";
inline constexpr const char kLogSocket[] = "create socket error.";
inline constexpr const char kLogBind[] =
    "bind(sockfd=%d, brdcast.sin_addr.s_addr = %lu) error!! errno=%d, err_str=[%s]";
inline constexpr const char kLogSockOpt[] = "set socket option error.";
inline constexpr const char kLogSendTo[] = "sendto error.";

}  // namespace kova::socket
