// Discovery without a network: the packets' bytes, the interface records, the host-list reader,
// the frame sender's argument checks, the connect check and the daemon's packet parser.
#include <fcntl.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <syslog.h>
#include <unistd.h>

#include <algorithm>
#include <cstring>
#include <random>
#include <string>
#include <vector>

#include "kovasdk/error.h"
#include "kovasdk/hash.h"
#include "kovasdk/socket.h"
#include "packet.h"
#include "support/sandbox.h"

namespace kova::test {
namespace {

constexpr char kCards[] = "/etc/sysconfig/network-scripts/ifcfg-eth";
constexpr char kTaken[] = "/tmp/kovanas.list.tmp";

std::vector<uint8_t> bytes(const unsigned char *data, unsigned size) {
    return {data, data + size};
}

TEST(DiscoveryPackets, AreByteExact) {
    const std::vector<uint8_t> header = {0x12, 0x34, 0x56, 0x78, 0x4B, 0x4F, 0x56, 0x41};
    std::vector<uint8_t> v20 = header;
    for (uint8_t b : {0x01, 0x04, 0x01, 0x00, 0x00, 0x00, 0xA4, 0x04, 0x00, 0x00, 0x02, 0x01})
        v20.push_back(b);
    std::vector<uint8_t> v11 = v20;
    v11.back() = 0x00;
    std::vector<uint8_t> oldest = header;
    oldest.insert(oldest.end(), {0x00, 0x00});
    EXPECT_EQ(bytes(stFHOSTHeader, FHOSTHeaderSize), header);
    EXPECT_EQ(bytes(stFHOSTBroadCast, FHOSTBroadCastSize), oldest);
    EXPECT_EQ(bytes(stFHOSTBroadCastV11, FHOSTBroadCastSizeV11), v11);
    EXPECT_EQ(bytes(stFHOSTBroadCastV20, FHOSTBroadCastSizeV20), v20);
}

class Cards : public SandboxTest {
  protected:
    void card(int slot, const std::string &text) {
        write_file(path(kCards + std::to_string(slot)), text);
    }
};

TEST_F(Cards, StaticAndDhcpInterfacesInSlotOrder) {
    card(0,
         "DEVICE=\"eth0\"\nBOOTPROTO=\"static\"\nIPADDR=\"192.0.2.10\"\nNETMASK=\"255.255.255."
         "0\"\n");
    card(1, "BOOTPROTO=\"dhcp\"\nIPADDR=\"198.51.100.99\"\n");  // the static value is not used
    mkdir(path("/etc/dhcpc").c_str(), 0755);
    write_file(path("/etc/dhcpc/eth1.info"), "IPADDR=198.51.100.7\nNETMASK=255.255.0.0\n");
    KOVANETCARD c{};
    ASSERT_EQ(KOVANetGetCard1(0, nullptr, &c), 1);
    EXPECT_STREQ(c.szDevice, "eth0");
    EXPECT_STREQ(c.szIPAddr, "192.0.2.10");
    EXPECT_STREQ(c.szNetmask, "255.255.255.0");
    EXPECT_EQ(c.blDhcp, 0);
    ASSERT_EQ(KOVANetGetCard1(1, nullptr, &c), 1);
    EXPECT_STREQ(c.szDevice, "eth1");  // named after its slot when DEVICE is absent
    EXPECT_STREQ(c.szIPAddr, "198.51.100.7");
    EXPECT_STREQ(c.szNetmask, "255.255.0.0");
    EXPECT_EQ(c.blDhcp, 1);
    EXPECT_EQ(KOVANetGetCard1(2, nullptr, &c), 0);  // the first missing file ends the list
    card(3, "IPADDR=\"192.0.2.30\"\n");
    EXPECT_EQ(KOVANetGetCard1(2, nullptr, &c), 0);

    // By address: the first slot from the given one that has it.
    ASSERT_EQ(KOVANetGetCard1(0, "198.51.100.7", &c), 1);
    EXPECT_STREQ(c.szDevice, "eth1");
    EXPECT_EQ(KOVANetGetCard1(0, "192.0.2.30", &c), 0);  // behind the gap
    EXPECT_EQ(KOVANetGetCard1(0, "203.0.113.1", &c), 0);
}

TEST_F(Cards, AbsentAddressIsEmptyButUnreadableOnesFail) {
    card(0, "DEVICE=\"eth0\"\n");
    card(1, "BOOTPROTO=\"dhcp\"\n");  // no info file from the DHCP client
    card(2, "IPADDR=\"" + std::string(40, '1') + "\"\n");
    KOVANETCARD c{};
    ASSERT_EQ(KOVANetGetCard1(0, nullptr, &c), 1);
    EXPECT_STREQ(c.szIPAddr, "");
    EXPECT_EQ(KOVANetGetCard1(1, nullptr, &c), -1);
    EXPECT_EQ(KOVANetGetCard1(2, nullptr, &c), -1);
    EXPECT_TRUE(raised(ERR_NOT_ENOUGH_MEMORY));  // never a cut address
    card(3, "DEVICE=\"../../x\"\n");
    EXPECT_EQ(KOVANetGetCard1(3, nullptr, &c), -1);
    EXPECT_EQ(KOVANetGetCard1(-1, nullptr, &c), -1);
    EXPECT_TRUE(raised(ERR_BAD_PARAMETERS));
    EXPECT_EQ(KOVANetGetCard1(8, nullptr, &c), -1);
    EXPECT_EQ(KOVANetGetCard1(0, nullptr, nullptr), -1);
}

TEST_F(Cards, KovactlListsThem) {
    const auto [text, rc] = run_tool("kovactl --root " + root() + " net cards");
    EXPECT_EQ(rc, 0);
    EXPECT_EQ(text, "0 eth0 static 192.168.1.20 255.255.255.0\n");
    const auto [json, jrc] = run_tool("kovactl --root " + root() + " net cards --json");
    EXPECT_EQ(jrc, 0);
    EXPECT_NE(json.find("\"address\": \"192.168.1.20\""), std::string::npos) << json;
    for (const char *help : {" net cards --help", " discover --help"}) {
        const auto [usage, urc] = run_tool("kovactl --root " + root() + help);
        EXPECT_EQ(urc, 0);
        EXPECT_EQ(usage.rfind("usage: kovactl ", 0), 0u) << usage;
    }
    EXPECT_NE(run_tool("kovactl --root " + root() + " discover --bogus 2>&1").second, 0);
    card(0, "BOOTPROTO=\"dhcp\"\n");
    const auto [err, erc] = run_tool("kovactl --root " + root() + " net cards 2>&1");
    EXPECT_EQ(erc, 1);
    EXPECT_NE(err.find("kovactl: net cards: "), std::string::npos) << err;
}

class HostList : public SandboxTest {
  protected:
    PKLIBSZHASH hash_ = PshKLIBSzHashAlloc(0);
    ~HostList() override { KLIBSzHashFree(hash_); }
    std::string value(const char *key) {
        const char *v = SzKLIBSzHashGetValue(hash_, key);
        return v != nullptr ? v : "<absent>";
    }
};

TEST_F(HostList, ReaderRules) {
    const std::string long_name(1100, 'n');
    write_file(path(kTaken),
               "0,250,zero,192.0.2.1,x\n"
               "1,239,old,192.0.2.2,x\n"
               "1,240,nas,10.0.0.5,x\n"
               "1,240,four,192.0.2.4\n"
               "  407,642,kova,192.0.2.5,02:00:00:00:00:01,2.1  \r\n"
               "\n"
               "407,700,kova,192.0.2.5,later\n"
               "407,642," +
                   long_name +
                   ",192.0.2.6,x\n"
                   "407,642,last,192.0.2.7,no-newline");
    LogCapture log;
    ASSERT_EQ(KOVAFHOSTGet2Hash(&hash_), 4);
    EXPECT_EQ(value("nas(10.0.0.5)"), "10.0.0.5");
    EXPECT_EQ(value("kova(192.0.2.5)"), "192.0.2.5");
    EXPECT_EQ(value("last(192.0.2.7)"), "192.0.2.7");
    EXPECT_EQ(value(("n" + long_name.substr(0, 1020) + "(19").c_str()), "<absent>");
    EXPECT_EQ(value((long_name + "(19").substr(0, 1023).c_str()), "192.0.2.6");  // cut key
    EXPECT_EQ(value("zero(192.0.2.1)"), "<absent>");
    EXPECT_EQ(value("old(192.0.2.2)"), "<absent>");
    EXPECT_EQ(value("four(192.0.2.4)"), "<absent>");

    int model_zero = 0, few_fields = 0;
    for (const LogLine &line : log.lines()) {
        EXPECT_EQ(line.priority, LOG_ERR);
        model_zero += line.text.find("socket_fhost_get2hash.cpp:") == 0 &&
                      line.text.ends_with(" model number == 0");
        few_fields += line.text.find("socket_fhost_get2hash.cpp:") == 0 &&
                      line.text.ends_with(" field number < 5");
    }
    EXPECT_EQ(model_zero, 1);
    EXPECT_EQ(few_fields, 2);  // "four" and the empty line; level 239 is skipped silently
    EXPECT_EQ(log.lines().size(), 3u);
    EXPECT_FALSE(file_exists(path(kTaken)));  // read once

    // Nothing to read: 0, with the open failure recorded, the hash as it was.
    ASSERT_EQ(KOVAFHOSTGet2Hash(&hash_), 0);
    EXPECT_TRUE(raised(ERR_OPEN_FAILED));
    EXPECT_EQ(KLIBSzHashPairNum(hash_), 4);
}

TEST_F(HostList, RefusesWhatIsNoListFile) {
    EXPECT_EQ(KOVAFHOSTGet2Hash(nullptr), -1);
    EXPECT_TRUE(raised(ERR_BAD_PARAMETERS));
    PKLIBSZHASH none = nullptr;
    EXPECT_EQ(KOVAFHOSTGet2Hash(&none), -1);
    // A link planted at the name in /tmp is not followed, and a FIFO does not block.
    write_file(path("/tmp/elsewhere"), "1,240,evil,192.0.2.66,x\n");
    ASSERT_EQ(symlink(path("/tmp/elsewhere").c_str(), path(kTaken).c_str()), 0);
    EXPECT_EQ(KOVAFHOSTGet2Hash(&hash_), 0);
    EXPECT_TRUE(raised(ERR_OPEN_FAILED));
    unlink(path(kTaken).c_str());
    ASSERT_EQ(mkfifo(path(kTaken).c_str(), 0600), 0);
    EXPECT_EQ(KOVAFHOSTGet2Hash(&hash_), 0);
    EXPECT_EQ(KLIBSzHashPairNum(hash_), 0);
}

TEST_F(HostList, OutOfMemoryFailsAndStillDeletes) {
    std::string many;
    for (int i = 0; i < 200; ++i)
        many += "1,240,host" + std::to_string(i) + ",192.0.2." + std::to_string(i) + ",x\n";
    bool completed = false;
    for (long nth = 1; nth < 400 && !completed; ++nth) {
        write_file(path(kTaken), many);
        PKLIBSZHASH hash = PshKLIBSzHashAlloc(0);
        ASSERT_NE(hash, nullptr);
        int rc;
        {
            AllocationFailure fail(nth);
            rc = KOVAFHOSTGet2Hash(&hash);
        }
        KLIBSzHashFree(hash);
        EXPECT_FALSE(file_exists(path(kTaken)));
        completed = rc == 200;
        if (completed) break;
        ASSERT_EQ(rc, -1) << "allocation " << nth;
        EXPECT_TRUE(raised(ERR_OUT_OF_MEMORY)) << "allocation " << nth;
    }
    EXPECT_TRUE(completed);
}

TEST(RawFrame, BadArgumentsNeverTouchTheLink) {
    KOVANETFRAME frame{};
    const uint8_t payload[4] = {1, 2, 3, 4};
    // The device does not exist: opening it would fail with ERR_UNKNOWN instead.
    for (int kind : {0, 2, -1}) {
        EXPECT_EQ(KOVANetSendUDPBroadCast(kind, &frame, payload, 4, "kv-none0"), -1);
        EXPECT_TRUE(raised(ERR_BAD_PARAMETERS));
    }
    EXPECT_EQ(KOVANetSendUDPBroadCast(1, &frame, payload, 0, "kv-none0"), -1);
    EXPECT_TRUE(raised(ERR_BAD_PARAMETERS));
    EXPECT_EQ(KOVANetSendUDPBroadCast(1, nullptr, payload, 4, "kv-none0"), -1);
    EXPECT_EQ(KOVANetSendUDPBroadCast(1, &frame, nullptr, 4, "kv-none0"), -1);
    EXPECT_EQ(KOVANetSendUDPBroadCast(1, &frame, payload, 4, nullptr), -1);
    EXPECT_EQ(KOVANetSendUDPBroadCast(1, &frame, payload, 65508, "kv-none0"), -1);  // > 16 bits
    EXPECT_TRUE(raised(ERR_BAD_PARAMETERS));
}

TEST(IsConnected, NeedsMembershipAndNoPendingError) {
    int pair[2];
    ASSERT_EQ(socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, pair), 0);
    fd_set in, out, none;
    FD_ZERO(&in);
    FD_ZERO(&out);
    FD_ZERO(&none);
    FD_SET(pair[0], &in);
    FD_SET(pair[0], &out);
    EXPECT_EQ(isconnected(pair[0], &in, &none), 1);
    EXPECT_EQ(isconnected(pair[0], &none, &out), 1);
    EXPECT_EQ(isconnected(pair[0], &none, &none), 0);
    EXPECT_EQ(isconnected(pair[0], nullptr, nullptr), 0);
    // A member that is no socket: getsockopt fails.
    int p[2];
    ASSERT_EQ(pipe2(p, O_CLOEXEC), 0);
    FD_SET(p[0], &in);
    EXPECT_EQ(isconnected(p[0], &in, &none), 0);
    // A refused connect leaves its error pending.
    const int s = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
    ASSERT_GE(s, 0);
    FD_SET(s, &out);
    EXPECT_EQ(isconnected(s, &none, &out), 1);
    close(pair[0]);
    close(pair[1]);
    close(p[0]);
    close(p[1]);
    close(s);
}

// ---- The daemon's packets ------------------------------------------------------------------

findhostd::Identity sample() {
    findhostd::Identity who;
    who.model = 407;
    who.build = 642;
    strcpy(who.name, "kova-b");
    const uint8_t address[4] = {192, 0, 2, 2};
    const uint8_t mac[6] = {0x02, 0x00, 0x5e, 0x10, 0x00, 0x01};
    memcpy(who.address, address, 4);
    memcpy(who.mac, mac, 6);
    strcpy(who.version, "2.1");
    return who;
}

TEST(FindhostdPacket, AnswerRoundTripAndListLine) {
    uint8_t buf[findhostd::kAnswerMax];
    const size_t size = findhostd::build_answer(sample(), buf, sizeof buf);
    ASSERT_GT(size, 8u);
    EXPECT_EQ(0, memcmp(buf, stFHOSTHeader, 8));
    findhostd::Packet packet;
    ASSERT_TRUE(findhostd::parse_packet(buf, size, &packet));
    EXPECT_EQ(packet.kind, findhostd::Kind::kAnswer);
    char line[256];
    ASSERT_TRUE(findhostd::format_list_line(packet.identity, line, sizeof line));
    EXPECT_STREQ(line, "407,642,kova-b,192.0.2.2,02:00:5e:10:00:01,2.1\n");
    // A prefix cut inside a field, or before the address, is refused; after the address (46)
    // and after the MAC (54) it is an answer without the optional fields.
    for (size_t cut = 0; cut < size; ++cut) {
        EXPECT_EQ(findhostd::parse_packet(buf, cut, &packet), cut == 46 || cut == 54) << cut;
    }
    ASSERT_TRUE(findhostd::parse_packet(buf, 46, &packet));
    EXPECT_STREQ(packet.identity.version, "");
    // Names the list cannot carry are neither sent nor accepted.
    findhostd::Identity bad = sample();
    strcpy(bad.name, "a,b");
    EXPECT_EQ(findhostd::build_answer(bad, buf, sizeof buf), 0u);
    strcpy(bad.name, "");
    EXPECT_EQ(findhostd::build_answer(bad, buf, sizeof buf), 0u);
}

TEST(FindhostdPacket, QueriesOfEveryRevision) {
    findhostd::Packet packet;
    EXPECT_TRUE(findhostd::parse_packet(stFHOSTBroadCastV20, FHOSTBroadCastSizeV20, &packet));
    EXPECT_EQ(packet.kind, findhostd::Kind::kQuery);
    EXPECT_TRUE(findhostd::parse_packet(stFHOSTBroadCastV11, FHOSTBroadCastSizeV11, &packet));
    EXPECT_TRUE(findhostd::parse_packet(stFHOSTBroadCast, FHOSTBroadCastSize, &packet));
    EXPECT_EQ(packet.kind, findhostd::Kind::kQuery);
    std::vector<uint8_t> q = bytes(stFHOSTBroadCastV20, FHOSTBroadCastSizeV20);
    q.insert(q.end(), {0x7E, 0x02, 0xAA, 0xBB});  // an unknown field is skipped
    EXPECT_TRUE(findhostd::parse_packet(q.data(), q.size(), &packet));
    q.push_back(0x01);  // a lone id byte
    EXPECT_FALSE(findhostd::parse_packet(q.data(), q.size(), &packet));
    q = bytes(stFHOSTBroadCastV20, FHOSTBroadCastSizeV20);
    q[10] = 3;  // an unknown kind
    EXPECT_FALSE(findhostd::parse_packet(q.data(), q.size(), &packet));
    q[10] = 2;  // an answer without the answer's fields
    EXPECT_FALSE(findhostd::parse_packet(q.data(), q.size(), &packet));
    q = bytes(stFHOSTBroadCastV20, FHOSTBroadCastSizeV20);
    q[9] = 5;  // the kind field's length overruns the next field
    EXPECT_FALSE(findhostd::parse_packet(q.data(), q.size(), &packet));
    q[0] = 0x13;
    EXPECT_FALSE(findhostd::parse_packet(q.data(), q.size(), &packet));
    EXPECT_FALSE(findhostd::parse_packet(nullptr, 20, &packet));
}

TEST(FindhostdPacket, RandomDamageIsRejectedOrParsedCleanly) {
    uint8_t answer[findhostd::kAnswerMax];
    const size_t size = findhostd::build_answer(sample(), answer, sizeof answer);
    std::mt19937 random(20);
    findhostd::Packet packet;
    for (int round = 0; round < 20000; ++round) {
        std::vector<uint8_t> damaged(answer, answer + size);
        const int flips = 1 + static_cast<int>(random() % 4);
        for (int i = 0; i < flips; ++i)
            damaged[random() % damaged.size()] = static_cast<uint8_t>(random());
        damaged.resize(random() % 3 == 0 ? random() % (size + 8) : damaged.size(), 0);
        if (!findhostd::parse_packet(damaged.data(), damaged.size(), &packet)) continue;
        if (packet.kind != findhostd::Kind::kAnswer) continue;
        // Whatever got through makes a line the reader splits into the same six fields.
        char line[256];
        ASSERT_TRUE(findhostd::format_list_line(packet.identity, line, sizeof line));
        EXPECT_EQ(std::count(line, line + strlen(line), ','), 5) << line;
        EXPECT_EQ(strchr(line, '\n'), line + strlen(line) - 1) << line;
    }
}

}  // namespace
}  // namespace kova::test
