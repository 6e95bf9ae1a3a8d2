// findhostd: the discovery daemon. Listens on UDP port 9999, answers every discovery query
// with this appliance's identity, and writes every answer it receives as one line of
// "/tmp/kovanas.list", which the library's discovery pass hands to its reader. Packets are
// described in kovasdk/socket.h.
//
// Usage: findhostd [-f]    (-f: stay in the foreground)
//
// Its files resolve under the appliance root like the library's: KOVA_ROOT, or, when that is
// not set (the library starts the daemon with an empty environment), the directory above
// "usr/kova/bin/findhostd" in the path it was started by.
#include <arpa/inet.h>
#include <fcntl.h>
#include <net/if.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <syslog.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "core/root.h"
#include "kovasdk/file.h"
#include "kovasdk/proc.h"
#include "kovasdk/socket.h"
#include "packet.h"

namespace {

constexpr char kSelf[] = "/usr/kova/bin/findhostd";
constexpr char kPidFile[] = "/var/run/findhostd.pid";
constexpr char kHostList[] = "/tmp/kovanas.list";
constexpr char kSettings[] = "/etc/kovainfo.conf";
constexpr char kFactorySettings[] = "/etc.defaults/kovainfo.conf";

volatile sig_atomic_t g_stop = 0;

void on_stop(int) {
    g_stop = 1;
}

// The appliance root from the path the daemon was started by, when KOVA_ROOT does not say.
void adopt_root(const char *argv0) {
    const char *given = getenv("KOVA_ROOT");
    if (given != nullptr && given[0] != '\0') return;
    const size_t length = strlen(argv0);
    const size_t tail = sizeof kSelf - 1;
    if (argv0[0] != '/' || length <= tail || strcmp(argv0 + length - tail, kSelf) != 0) return;
    char root[PATH_MAX];
    snprintf(root, sizeof root, "%.*s", static_cast<int>(length - tail), argv0);
    setenv("KOVA_ROOT", root, 1);
}

// A setting of the appliance, the factory value when it has none of its own.
bool setting(const char *key, char *value, int size) {
    if (KLIBFileGetKeyValue(kova::RootedPath(kSettings).c_str(), key, value, size, 0) > 0) {
        return true;
    }
    return KLIBFileGetKeyValue(kova::RootedPath(kFactorySettings).c_str(), key, value, size, 0) > 0;
}

// The model number is the number in the model's name ("KS-407" is model 407).
uint32_t model_number(const char *model_name) {
    const char *digits = model_name + strlen(model_name);
    while (digits > model_name && digits[-1] >= '0' && digits[-1] <= '9')
        --digits;
    return static_cast<uint32_t>(strtoul(digits, nullptr, 10));
}

// This appliance as it answers on the interface ifindex whose address is local.
bool own_identity(int sock, int ifindex, in_addr local, findhostd::Identity *who) {
    char text[128];
    if (!setting("hostname", who->name, sizeof who->name)) return false;
    who->model = setting("modelname", text, sizeof text) ? model_number(text) : 0;
    who->build = setting("buildnumber", text, sizeof text)
                     ? static_cast<uint32_t>(strtoul(text, nullptr, 10))
                     : 0;
    if (!setting("productversion", who->version, sizeof who->version)) who->version[0] = '\0';
    memcpy(who->address, &local.s_addr, 4);
    ifreq request{};
    if (if_indextoname(static_cast<unsigned>(ifindex), request.ifr_name) != nullptr &&
        ioctl(sock, SIOCGIFHWADDR, &request) == 0) {
        memcpy(who->mac, request.ifr_hwaddr.sa_data, sizeof who->mac);
    }
    return true;
}

void answer(int sock, const sockaddr_in &asker, const in_pktinfo &arrival) {
    findhostd::Identity who;
    uint8_t packet[findhostd::kAnswerMax];
    if (!own_identity(sock, arrival.ipi_ifindex, arrival.ipi_spec_dst, &who)) return;
    const size_t size = findhostd::build_answer(who, packet, sizeof packet);
    if (size == 0) {
        syslog(LOG_ERR, "host name \"%s\" cannot be announced", who.name);
        return;
    }
    // Back to the asker's daemon; a query from 0.0.0.0 is answered by broadcast.
    sockaddr_in to{};
    to.sin_family = AF_INET;
    to.sin_port = htons(KOVA_FHOST_PORT);
    to.sin_addr.s_addr =
        asker.sin_addr.s_addr != 0 ? asker.sin_addr.s_addr : htonl(INADDR_BROADCAST);
    iovec data{packet, size};
    alignas(cmsghdr) char control[CMSG_SPACE(sizeof(in_pktinfo))] = {};
    msghdr message{};
    message.msg_name = &to;
    message.msg_namelen = sizeof to;
    message.msg_iov = &data;
    message.msg_iovlen = 1;
    message.msg_control = control;
    message.msg_controllen = sizeof control;
    cmsghdr *cmsg = CMSG_FIRSTHDR(&message);
    cmsg->cmsg_level = IPPROTO_IP;
    cmsg->cmsg_type = IP_PKTINFO;
    cmsg->cmsg_len = CMSG_LEN(sizeof(in_pktinfo));
    in_pktinfo out{};
    out.ipi_ifindex = arrival.ipi_ifindex;
    out.ipi_spec_dst = arrival.ipi_spec_dst;
    memcpy(CMSG_DATA(cmsg), &out, sizeof out);
    if (sendmsg(sock, &message, 0) < 0) syslog(LOG_ERR, "answer not sent: %m");
}

// One answer, one line, in one write: lines of two answers never mix.
void record(const findhostd::Identity &who) {
    char line[256];
    if (!findhostd::format_list_line(who, line, sizeof line)) return;
    const kova::RootedPath list(kHostList);
    const int fd = open(list.c_str(),
                        O_WRONLY | O_APPEND | O_CREAT | O_NOFOLLOW | O_CLOEXEC | O_NONBLOCK, 0644);
    if (fd < 0) {
        syslog(LOG_ERR, "%s: %m", list.c_str());
        return;
    }
    struct stat st {};
    const size_t length = strlen(line);
    if (fstat(fd, &st) != 0 || !S_ISREG(st.st_mode) ||
        write(fd, line, length) != static_cast<ssize_t>(length)) {
        syslog(LOG_ERR, "%s: answer not recorded", list.c_str());
    }
    close(fd);
}

void receive(int sock) {
    uint8_t buffer[2048];
    sockaddr_in from{};
    iovec data{buffer, sizeof buffer};
    alignas(cmsghdr) char control[256];
    msghdr message{};
    message.msg_name = &from;
    message.msg_namelen = sizeof from;
    message.msg_iov = &data;
    message.msg_iovlen = 1;
    message.msg_control = control;
    message.msg_controllen = sizeof control;
    const ssize_t size = recvmsg(sock, &message, MSG_DONTWAIT);
    if (size <= 0 || (message.msg_flags & MSG_TRUNC) != 0) return;
    findhostd::Packet packet;
    if (!findhostd::parse_packet(buffer, static_cast<size_t>(size), &packet)) return;
    if (packet.kind == findhostd::Kind::kAnswer) {
        record(packet.identity);
        return;
    }
    for (cmsghdr *c = CMSG_FIRSTHDR(&message); c != nullptr; c = CMSG_NXTHDR(&message, c)) {
        if (c->cmsg_level == IPPROTO_IP && c->cmsg_type == IP_PKTINFO) {
            in_pktinfo arrival{};
            memcpy(&arrival, CMSG_DATA(c), sizeof arrival);
            answer(sock, from, arrival);
            return;
        }
    }
}

int open_socket() {
    const int sock = socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    if (sock < 0) return -1;
    const int on = 1;
    sockaddr_in at{};
    at.sin_family = AF_INET;
    at.sin_port = htons(KOVA_FHOST_PORT);
    at.sin_addr.s_addr = htonl(INADDR_ANY);
    if (setsockopt(sock, SOL_SOCKET, SO_BROADCAST, &on, sizeof on) != 0 ||
        setsockopt(sock, IPPROTO_IP, IP_PKTINFO, &on, sizeof on) != 0 ||
        bind(sock, reinterpret_cast<const sockaddr *>(&at), sizeof at) != 0) {
        const int err = errno;
        close(sock);
        errno = err;
        return -1;
    }
    return sock;
}

// The parent returns to whoever started the daemon once the child runs on its own.
bool to_background() {
    const pid_t pid = fork();
    if (pid < 0) return false;
    if (pid > 0) _exit(0);
    setsid();
    const int null = open("/dev/null", O_RDWR | O_CLOEXEC);
    if (null >= 0) {
        dup2(null, STDIN_FILENO);
        dup2(null, STDOUT_FILENO);
        dup2(null, STDERR_FILENO);
        if (null > STDERR_FILENO) close(null);
    }
    return true;
}

void handle_stop_signals(sigset_t *during_wait) {
    struct sigaction action {};
    action.sa_handler = on_stop;
    sigemptyset(&action.sa_mask);
    sigaction(SIGTERM, &action, nullptr);
    sigaction(SIGINT, &action, nullptr);
    // Blocked except inside the wait, so a signal between two waits is not lost.
    sigset_t stop;
    sigemptyset(&stop);
    sigaddset(&stop, SIGTERM);
    sigaddset(&stop, SIGINT);
    sigprocmask(SIG_BLOCK, &stop, during_wait);
    sigdelset(during_wait, SIGTERM);
    sigdelset(during_wait, SIGINT);
}

}  // namespace

int main(int argc, char **argv) {
    bool foreground = false;
    for (int i = 1; i < argc; ++i) {
        if (strcmp(argv[i], "-f") == 0) {
            foreground = true;
        } else if (strcmp(argv[i], "-h") == 0 || strcmp(argv[i], "--help") == 0) {
            printf(
                "usage: findhostd [-f]\nAnswers discovery queries on UDP port %d and records "
                "the answers in %s.\n",
                KOVA_FHOST_PORT, kHostList);
            return 0;
        } else {
            fprintf(stderr, "usage: findhostd [-f]\n");
            return 2;
        }
    }
    adopt_root(argv[0]);
    openlog("findhostd", LOG_PID, LOG_DAEMON);
    const int sock = open_socket();
    if (sock < 0) {
        fprintf(stderr, "findhostd: UDP port %d: %s\n", KOVA_FHOST_PORT, strerror(errno));
        return 1;
    }
    if (!foreground && !to_background()) {
        fprintf(stderr, "findhostd: fork: %s\n", strerror(errno));
        return 1;
    }
    const kova::RootedPath pid_file(kPidFile);
    if (KOVAProcPidFileCreate(pid_file.c_str()) != 0) {
        syslog(LOG_ERR, "%s cannot be written", pid_file.c_str());
        return 1;
    }
    sigset_t during_wait;
    handle_stop_signals(&during_wait);
    pollfd wait_for{sock, POLLIN, 0};
    while (!g_stop) {
        const int ready = ppoll(&wait_for, 1, nullptr, &during_wait);
        if (ready > 0) receive(sock);
    }
    unlink(pid_file.c_str());
    close(sock);
    return 0;
}
