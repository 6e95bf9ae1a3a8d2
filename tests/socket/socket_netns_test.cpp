// Discovery on the wire, inside private network namespaces joined by veth pairs (see
// netlab.h): the query as a listener on the far side receives it, the interface mask, raw
// frames captured by a packet socket, and whole passes between two appliances, each with its
// own findhostd.
#include <arpa/inet.h>
#include <fcntl.h>
#include <linux/if_packet.h>
#include <net/ethernet.h>
#include <net/if.h>
#include <netinet/in.h>
#include <poll.h>
#include <signal.h>
#include <sys/file.h>
#include <sys/ioctl.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <syslog.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <string>
#include <vector>

#include "core/owners.h"
#include "core/sys.h"
#include "kovasdk/error.h"
#include "kovasdk/hash.h"
#include "kovasdk/proc.h"
#include "kovasdk/socket.h"
#include "socket/netlab.h"
#include "support/sandbox.h"

namespace kova::test {
namespace {

constexpr char kCards[] = "/etc/sysconfig/network-scripts/ifcfg-eth";
constexpr char kPidFile[] = "/var/run/findhostd.pid";
const std::string kFindhostd = std::string(KOVA_TOOLS_DIR) + "/findhostd";

struct Datagram {
    std::vector<uint8_t> data;
    std::string from;  // source address
    std::string to;    // destination address of the IP header
    uint16_t to_port;
};

std::string text(in_addr address) {
    char out[INET_ADDRSTRLEN];
    return inet_ntop(AF_INET, &address, out, sizeof out);
}

// Reads what arrives until nothing more comes for quiet_ms.
std::vector<Datagram> drain(int sock, int quiet_ms = 300) {
    std::vector<Datagram> got;
    pollfd wait{sock, POLLIN, 0};
    while (poll(&wait, 1, quiet_ms) > 0) {
        uint8_t buf[2048];
        sockaddr_in from{};
        alignas(cmsghdr) char control[256];
        iovec data{buf, sizeof buf};
        msghdr message{};
        message.msg_name = &from;
        message.msg_namelen = sizeof from;
        message.msg_iov = &data;
        message.msg_iovlen = 1;
        message.msg_control = control;
        message.msg_controllen = sizeof control;
        const ssize_t n = recvmsg(sock, &message, 0);
        if (n < 0) break;
        Datagram d{{buf, buf + n}, text(from.sin_addr), "", 0};
        for (cmsghdr *c = CMSG_FIRSTHDR(&message); c != nullptr; c = CMSG_NXTHDR(&message, c)) {
            if (c->cmsg_level == IPPROTO_IP && c->cmsg_type == IP_PKTINFO) {
                in_pktinfo info{};
                memcpy(&info, CMSG_DATA(c), sizeof info);
                d.to = text(info.ipi_addr);
            }
        }
        got.push_back(d);
    }
    return got;
}

// The discovery pass's waits, shortened and recorded.
std::vector<unsigned> g_sleeps;
unsigned quick_sleep(unsigned seconds) {
    g_sleeps.push_back(seconds);
    usleep(seconds >= 10 ? 2500 * 1000 : 1000 * 1000);
    return 0;
}

class Discovery : public ::testing::Test {
  protected:
    void SetUp() override {
        // One discovery test at a time on this machine: whether a findhostd runs is asked of
        // the whole process table, which a parallel test's daemons would answer.
        serial_.reset(
            ::open(KOVA_TEST_SANDBOXES "/discovery.lock", O_RDWR | O_CREAT | O_CLOEXEC, 0644));
        ASSERT_TRUE(serial_);
        ASSERT_EQ(flock(serial_.get(), LOCK_EX), 0);
        const std::string why = lab_.open();
        if (!why.empty()) GTEST_SKIP() << why;
        ASSERT_TRUE(lab_.link("kva0", "192.0.2.1/24", "kvb0", "192.0.2.2/24"));
        saved_sleep_ = sys::calls().sleep;
        g_sleeps.clear();
    }

    void TearDown() override {
        for (pid_t pid : daemons_) {
            kill(pid, SIGTERM);
            int status = 0;
            waitpid(pid, &status, 0);
        }
        if (saved_sleep_ != nullptr) sys::calls().sleep = saved_sleep_;
        for (int fd : sockets_)
            close(fd);
    }

    // Interface slot files of this appliance ("" removes the slot).
    void card(int slot, const std::string &content) {
        const std::string file = here_.path(kCards + std::to_string(slot));
        if (content.empty()) {
            unlink(file.c_str());
        } else {
            write_file(file, content);
        }
    }
    static std::string static_card(const std::string &address) {
        return "BOOTPROTO=\"static\"\nIPADDR=\"" + address + "\"\nNETMASK=\"255.255.255.0\"\n";
    }

    // A UDP listener on port 9999 in the peer's namespace.
    int listener() {
        const int sock = keep(lab_.peer_socket(AF_INET, SOCK_DGRAM, 0));
        const int on = 1;
        sockaddr_in at{};
        at.sin_family = AF_INET;
        at.sin_port = htons(KOVA_FHOST_PORT);
        EXPECT_EQ(setsockopt(sock, IPPROTO_IP, IP_PKTINFO, &on, sizeof on), 0);
        EXPECT_EQ(bind(sock, reinterpret_cast<sockaddr *>(&at), sizeof at), 0) << strerror(errno);
        return sock;
    }

    int keep(int fd) {
        if (fd >= 0) sockets_.push_back(fd);
        return fd;
    }

    static void name_appliance(const Sandbox &box, const std::string &name) {
        const std::string file = box.path("/etc/kovainfo.conf");
        std::string conf = read_file(file);
        const size_t at = conf.find("hostname=\"kovastation\"");
        ASSERT_NE(at, std::string::npos);
        conf.replace(at, strlen("hostname=\"kovastation\""), "hostname=\"" + name + "\"");
        write_file(file, conf);
    }

    // Waits up to 10 s for a daemon's pid file in box (a loaded machine starts it slowly).
    static bool pid_file_appears(const Sandbox &box) {
        for (int i = 0; i < 500; ++i) {
            if (KLIBReadPidFile(box.path(kPidFile).c_str()) > 0) return true;
            usleep(20 * 1000);
        }
        return false;
    }

    // The peer appliance's daemon, in the foreground in the peer's namespace.
    void start_peer_daemon() {
        name_appliance(peer_, "kova-b");
        daemons_.push_back(lab_.spawn_in_peer({kFindhostd, "-f"}, {"KOVA_ROOT=" + peer_.root()}));
        ASSERT_TRUE(pid_file_appears(peer_));
    }

    // This appliance's daemon, in the foreground here.
    void start_own_daemon() {
        const pid_t pid = fork();
        if (pid == 0) {
            execl(kFindhostd.c_str(), kFindhostd.c_str(), "-f", static_cast<char *>(nullptr));
            _exit(127);
        }
        daemons_.push_back(pid);
        ASSERT_TRUE(pid_file_appears(here_));
    }

    // Declared in this order: the peer's root first, so that KOVA_ROOT is this appliance's.
    UniqueFd serial_;
    Sandbox peer_;
    Sandbox here_;
    NetLab lab_;
    std::vector<pid_t> daemons_;
    std::vector<int> sockets_;
    unsigned (*saved_sleep_)(unsigned) = nullptr;
};

TEST_F(Discovery, QueryGoesOutTwicePerInterfaceFromItsAddress) {
    ASSERT_TRUE(lab_.link("kva1", "198.51.100.1/24", "kvb1", "198.51.100.2/24"));
    card(0, static_card("192.0.2.1"));
    card(1, static_card("198.51.100.1"));
    const int sock = listener();
    EXPECT_EQ(ErrFHOSTSendQueryPkt(), 0);
    const std::vector<Datagram> got = drain(sock);
    ASSERT_EQ(got.size(), 4u);
    const std::vector<uint8_t> query(stFHOSTBroadCastV20, stFHOSTBroadCastV20 + 20);
    int first = 0, second = 0;
    for (const Datagram &d : got) {
        EXPECT_EQ(d.data, query);
        EXPECT_EQ(d.to, "255.255.255.255");
        first += d.from == "192.0.2.1";
        second += d.from == "198.51.100.1";
    }
    EXPECT_EQ(first, 2);
    EXPECT_EQ(second, 2);
}

TEST_F(Discovery, FailingInterfacesMakeTheMask) {
    card(0, static_card("203.0.113.9"));  // no interface has it: bind fails
    card(1, static_card("192.0.2.1"));
    card(2, "BOOTPROTO=\"dhcp\"\n");  // the DHCP client's file is missing
    const int sock = listener();
    LogCapture log;
    EXPECT_EQ(ErrFHOSTSendBroadcastUdp(stFHOSTBroadCastV20, FHOSTBroadCastSizeV20), 5);
    EXPECT_EQ(drain(sock).size(), 1u);
    const unsigned long bad = inet_addr("203.0.113.9");
    bool bind_logged = false;
    for (const LogLine &line : log.lines()) {
        bind_logged |=
            line.priority == LOG_ERR &&
            line.text.find("brdcast.sin_addr.s_addr = " + std::to_string(bad) +
                           ") error!! errno=" + std::to_string(EADDRNOTAVAIL) + ", err_str=[" +
                           strerror(EADDRNOTAVAIL) + "]") != std::string::npos &&
            line.text.starts_with("bind(sockfd=");
    }
    EXPECT_TRUE(bind_logged);

    // The pass gives up on any failed interface.
    sys::calls().sleep = quick_sleep;
    start_own_daemon();
    EXPECT_EQ(KOVAFHOSTDumpHost(), -1);
    EXPECT_TRUE(log.mentions(LOG_ERR, "): ErrFHOSTSendQueryPkt() failed!"));
    EXPECT_TRUE(g_sleeps.empty());
    const auto [err, rc] = run_tool("kovactl --root " + here_.root() + " discover 2>&1");
    EXPECT_EQ(rc, 1);
    EXPECT_EQ(err.rfind("kovactl: discover: ", 0), 0u) << err;
    EXPECT_EQ(std::count(err.begin(), err.end(), '\n'), 1) << err;

    // No interface at all: nothing to fail, nothing sent.
    card(0, "");
    card(1, "");
    card(2, "");
    drain(sock);
    EXPECT_EQ(ErrFHOSTSendQueryPkt(), 0);
    EXPECT_TRUE(drain(sock).empty());
}

TEST_F(Discovery, AnEmptyOrInvalidAddressSendsFromAnyAddress) {
    // 0.0.0.0 needs a route to leave by.
    ASSERT_TRUE(lab_.ip("route add default dev kva0"));
    card(0, "BOOTPROTO=\"static\"\nIPADDR=\"\"\n");
    card(1, static_card("not-an-address"));
    const int sock = listener();
    EXPECT_EQ(ErrFHOSTSendBroadcastUdp(stFHOSTBroadCastV20, FHOSTBroadCastSizeV20), 0);
    const std::vector<Datagram> got = drain(sock);
    ASSERT_EQ(got.size(), 2u);
    for (const Datagram &d : got)
        EXPECT_EQ(d.to, "255.255.255.255");
}

// ---- Raw frames ------------------------------------------------------------------------------

uint16_t checksum(const uint8_t *p, size_t size, uint32_t sum = 0) {
    for (size_t i = 0; i + 1 < size; i += 2)
        sum += static_cast<uint32_t>(p[i] << 8 | p[i + 1]);
    if (size % 2 != 0) sum += static_cast<uint32_t>(p[size - 1] << 8);
    while (sum >> 16)
        sum = (sum & 0xFFFF) + (sum >> 16);
    return static_cast<uint16_t>(~sum);
}

class RawFrames : public Discovery {
  protected:
    // A packet socket on the far end of the veth, in the peer's namespace.
    int capture() {
        const int sock = keep(lab_.peer_socket(AF_PACKET, SOCK_RAW, htons(ETH_P_ALL)));
        if (sock < 0) return -1;
        sockaddr_ll at{};
        at.sll_family = AF_PACKET;
        at.sll_protocol = htons(ETH_P_ALL);
        at.sll_ifindex = peer_ifindex_;
        EXPECT_EQ(bind(sock, reinterpret_cast<sockaddr *>(&at), sizeof at), 0) << strerror(errno);
        return sock;
    }
    // The next IPv4/UDP frame to port, skipping the link's own chatter (IPv6 and the like).
    std::vector<uint8_t> next_frame(int sock, uint16_t port) {
        pollfd wait{sock, POLLIN, 0};
        while (poll(&wait, 1, 1000) > 0) {
            uint8_t buf[2048];
            const ssize_t n = recv(sock, buf, sizeof buf, 0);
            if (n >= 42 && buf[12] == 0x08 && buf[13] == 0x00 && buf[23] == 17 &&
                (buf[36] << 8 | buf[37]) == port) {
                return {buf, buf + n};
            }
        }
        return {};
    }
    void SetUp() override {
        Discovery::SetUp();
        if (IsSkipped() || HasFatalFailure()) return;
        const int probe = keep(lab_.peer_socket(AF_INET, SOCK_DGRAM, 0));
        ifreq request{};
        strcpy(request.ifr_name, "kvb0");
        ASSERT_EQ(ioctl(probe, SIOCGIFINDEX, &request), 0);
        peer_ifindex_ = request.ifr_ifindex;
        const int own = keep(socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0));
        strcpy(request.ifr_name, "kva0");
        ASSERT_EQ(ioctl(own, SIOCGIFHWADDR, &request), 0);
        memcpy(own_mac_, request.ifr_hwaddr.sa_data, 6);
    }
    int peer_ifindex_ = 0;
    uint8_t own_mac_[6] = {};
};

TEST_F(RawFrames, HeadersAndChecksumsOnTheWire) {
    const int sock = capture();
    ASSERT_GE(sock, 0);
    KOVANETFRAME frame{};
    frame.ulSrcIP = inet_addr("192.0.2.1");
    frame.ulDstIP = inet_addr("255.255.255.255");
    frame.usSrcPort = htons(4321);
    frame.usDstPort = htons(KOVA_FHOST_PORT);
    const uint8_t payload[5] = {'h', 'e', 'l', 'l', 'o'};  // odd: the UDP checksum pads
    ASSERT_EQ(KOVANetSendUDPBroadCast(1, &frame, payload, 5, "kva0"), 0);
    std::vector<uint8_t> f = next_frame(sock, KOVA_FHOST_PORT);
    ASSERT_EQ(f.size(), 42u + 5u);
    const std::vector<uint8_t> broadcast(6, 0xFF);
    EXPECT_EQ(std::vector<uint8_t>(f.begin(), f.begin() + 6), broadcast);
    EXPECT_EQ(0, memcmp(&f[6], own_mac_, 6));  // zero source: the link's own address
    const uint8_t *ip = &f[14];
    EXPECT_EQ(ip[0], 0x45);
    EXPECT_EQ(ip[1], 0);                    // type of service
    EXPECT_EQ(ip[2] << 8 | ip[3], 28 + 5);  // total length
    EXPECT_EQ(ip[4] << 8 | ip[5], 242);     // identification
    EXPECT_EQ(ip[6] << 8 | ip[7], 0);       // no fragment flags or offset
    EXPECT_EQ(ip[8], 64);                   // time to live
    EXPECT_EQ(checksum(ip, 20), 0);         // header checksum holds
    EXPECT_EQ(0, memcmp(&ip[12], &frame.ulSrcIP, 4));
    EXPECT_EQ(0, memcmp(&ip[16], &frame.ulDstIP, 4));
    const uint8_t *udp = &f[34];
    EXPECT_EQ(udp[0] << 8 | udp[1], 4321);
    EXPECT_EQ(udp[4] << 8 | udp[5], 8 + 5);
    EXPECT_NE(udp[6] << 8 | udp[7], 0);
    uint8_t pseudo[12];
    memcpy(pseudo, &ip[12], 8);
    pseudo[8] = 0;
    pseudo[9] = 17;
    pseudo[10] = 0;
    pseudo[11] = 8 + 5;
    uint32_t partial = static_cast<uint16_t>(~checksum(pseudo, sizeof pseudo));
    EXPECT_EQ(checksum(udp, 8 + 5, partial), 0);  // UDP checksum over the pseudo-header
    EXPECT_EQ(0, memcmp(&f[42], payload, 5));

    // Given MACs are used as they are.
    const uint8_t src[6] = {0x02, 0x11, 0x22, 0x33, 0x44, 0x55};
    const uint8_t dst[6] = {0x02, 0xaa, 0xbb, 0xcc, 0xdd, 0xee};
    memcpy(frame.rgbSrcMac, src, 6);
    memcpy(frame.rgbDstMac, dst, 6);
    frame.usDstPort = htons(7777);
    ASSERT_EQ(KOVANetSendUDPBroadCast(1, &frame, payload, 1, "kva0"), 0);
    f = next_frame(sock, 7777);
    ASSERT_EQ(f.size(), 43u);
    EXPECT_EQ(0, memcmp(&f[0], dst, 6));
    EXPECT_EQ(0, memcmp(&f[6], src, 6));
}

TEST_F(RawFrames, AnUnknownLinkFails) {
    KOVANETFRAME frame{};
    const uint8_t payload[1] = {0};
    EXPECT_EQ(KOVANetSendUDPBroadCast(1, &frame, payload, 1, "kv-none0"), -1);
    EXPECT_TRUE(raised(ERR_UNKNOWN));
}

// ---- Whole passes ----------------------------------------------------------------------------

TEST_F(Discovery, PassFindsTheOtherApplianceByNameAndAddress) {
    card(0, static_card("192.0.2.1"));
    name_appliance(here_, "kova-a");
    start_peer_daemon();
    start_own_daemon();
    sys::calls().sleep = quick_sleep;
    ASSERT_EQ(KOVAFHOSTDumpHost(), 0);
    EXPECT_EQ(g_sleeps, std::vector<unsigned>{10});  // the daemon ran: no start-up wait
    EXPECT_FALSE(file_exists(here_.path("/tmp/kovanas.list")));
    // Each daemon answers once per query: twice, from both appliances.
    const std::string list = read_file(here_.path("/tmp/kovanas.list.tmp"));
    EXPECT_NE(list.find("407,642,kova-b,192.0.2.2,"), std::string::npos) << list;
    EXPECT_NE(list.find(",2.1\n"), std::string::npos) << list;
    EXPECT_EQ(std::count(list.begin(), list.end(), '\n'), 4) << list;

    PKLIBSZHASH found = PshKLIBSzHashAlloc(0);
    ASSERT_EQ(KOVAFHOSTGet2Hash(&found), 2);
    const char *peer = SzKLIBSzHashGetValue(found, "kova-b(192.0.2.2)");
    ASSERT_NE(peer, nullptr);
    EXPECT_STREQ(peer, "192.0.2.2");
    EXPECT_NE(SzKLIBSzHashGetValue(found, "kova-a(192.0.2.1)"), nullptr);  // itself too
    KLIBSzHashFree(found);

    // kovactl runs the same pass (with its real 10 s wait).
    const auto [out, rc] = run_tool("kovactl --root " + here_.root() + " discover --json");
    EXPECT_EQ(rc, 0);
    EXPECT_NE(out.find("\"name\": \"kova-b\""), std::string::npos) << out;
    EXPECT_NE(out.find("\"address\": \"192.0.2.2\""), std::string::npos) << out;
}

TEST_F(Discovery, PassStartsTheDaemonWhenItIsNotRunning) {
    if (BlKLIBIIsProcAlive("findhostd")) GTEST_SKIP() << "another findhostd runs on this machine";
    card(0, static_card("192.0.2.1"));
    name_appliance(here_, "kova-a");
    // The daemon leaves its starter: it becomes our child, so it can be reaped.
    ASSERT_EQ(prctl(PR_SET_CHILD_SUBREAPER, 1), 0);
    sys::calls().sleep = quick_sleep;
    LogCapture log;
    const int rc = KOVAFHOSTDumpHost();
    const int pid = KLIBReadPidFile(here_.path(kPidFile).c_str());
    if (pid > 0) daemons_.push_back(pid);
    ASSERT_EQ(rc, 0);
    EXPECT_EQ(g_sleeps, (std::vector<unsigned>{3, 10}));
    EXPECT_TRUE(log.mentions(LOG_ERR, "): findhostd daemon is not running ...."));
    PKLIBSZHASH found = PshKLIBSzHashAlloc(0);
    EXPECT_EQ(KOVAFHOSTGet2Hash(&found), 1);  // the started daemon answered for itself
    EXPECT_NE(SzKLIBSzHashGetValue(found, "kova-a(192.0.2.1)"), nullptr);
    KLIBSzHashFree(found);

    // It ends cleanly on SIGTERM and takes its pid file along.
    ASSERT_GT(pid, 0);
    daemons_.clear();
    ASSERT_EQ(kill(pid, SIGTERM), 0);
    int status = 0;
    ASSERT_EQ(waitpid(pid, &status, 0), pid);
    EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0);
    EXPECT_FALSE(file_exists(here_.path(kPidFile)));

    // No daemon to start: the pass ends after the start-up wait.
    unlink(here_.path("/usr/kova/bin/findhostd").c_str());
    g_sleeps.clear();
    EXPECT_EQ(KOVAFHOSTDumpHost(), -1);
    EXPECT_EQ(g_sleeps, std::vector<unsigned>{3});
    prctl(PR_SET_CHILD_SUBREAPER, 0);
}

TEST_F(Discovery, DaemonSurvivesMalformedPackets) {
    start_own_daemon();
    const int sock = keep(socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0));
    sockaddr_in to{};
    to.sin_family = AF_INET;
    to.sin_port = htons(KOVA_FHOST_PORT);
    to.sin_addr.s_addr = inet_addr("127.0.0.1");
    std::vector<uint8_t> junk(stFHOSTBroadCastV20, stFHOSTBroadCastV20 + 20);
    for (int i = 0; i < 300; ++i) {
        junk[8 + i % 12] = static_cast<uint8_t>(i * 37);
        junk.resize(8 + (i * 7) % 40, static_cast<uint8_t>(i));
        sendto(sock, junk.data(), junk.size(), 0, reinterpret_cast<sockaddr *>(&to), sizeof to);
    }
    sendto(sock, "", 0, 0, reinterpret_cast<sockaddr *>(&to), sizeof to);
    usleep(200 * 1000);
    EXPECT_EQ(kill(daemons_[0], 0), 0);
    int status = 0;
    EXPECT_EQ(waitpid(daemons_[0], &status, WNOHANG), 0);  // still running
    // ... and still answers a real query (to 127.0.0.1, recorded by itself).
    name_appliance(here_, "kova-a");
    ASSERT_EQ(
        sendto(sock, stFHOSTBroadCastV20, 20, 0, reinterpret_cast<sockaddr *>(&to), sizeof to), 20);
    // Some of the junk happens to be a valid query (the oldest probe's form): its answer (under the
    // old name) may come first, so the list is searched for the real query's answer.
    const std::string answer = "407,642,kova-a,127.0.0.1,00:00:00:00:00:00,2.1\n";
    std::string list;
    for (int i = 0; i < 500 && list.find(answer) == std::string::npos; ++i) {  // up to 10 s
        usleep(20 * 1000);
        list = read_file(here_.path("/tmp/kovanas.list"));
    }
    EXPECT_NE(list.find(answer), std::string::npos) << list;
}

}  // namespace
}  // namespace kova::test
