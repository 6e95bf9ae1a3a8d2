#include "socket/netlab.h"

#include <fcntl.h>
#include <sched.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "support/target.h"

namespace kova::test {
namespace {

int open_own_ns() {
    return ::open("/proc/self/ns/net", O_RDONLY | O_CLOEXEC);
}

// The ip tool with quiet output; true when it exits with 0.
bool run_ip(const std::string &args) {
    const std::string command = "ip " + args + " >/dev/null 2>&1";
    const int status = system(command.c_str());
    return status != -1 && WIFEXITED(status) && WEXITSTATUS(status) == 0;
}

bool has_carrier(const std::string &device) {
    FILE *out = popen(("ip -o link show dev " + device + " 2>/dev/null").c_str(), "r");
    if (out == nullptr) return false;
    char line[1024] = {};
    const bool read = fgets(line, sizeof line, out) != nullptr;
    pclose(out);
    return read && strstr(line, "LOWER_UP") != nullptr;
}

}  // namespace

NetLab::~NetLab() {
    // Back to the machine's namespace; ours vanish with their last reference, veths and all.
    if (host_ns_ >= 0) {
        if (setns(host_ns_, CLONE_NEWNET) != 0) abort();  // never go on in a foreign namespace
        close(host_ns_);
    }
    if (here_ns_ >= 0) close(here_ns_);
    if (peer_ns_ >= 0) close(peer_ns_);
}

std::string NetLab::open() {
    if (kEmulated) return "under qemu: no network namespaces for an emulated program";
    if (geteuid() != 0) return "needs root to make network namespaces";
    if (system("ip -V >/dev/null 2>&1") != 0) return "the ip tool (iproute2) is not installed";
    host_ns_ = open_own_ns();
    if (host_ns_ < 0) return std::string("cannot open this network namespace: ") + strerror(errno);
    // The peer first, then here: after this the test process never sees the host's links.
    if (unshare(CLONE_NEWNET) != 0) {
        return std::string("cannot make a network namespace: ") + strerror(errno);
    }
    peer_ns_ = open_own_ns();
    if (unshare(CLONE_NEWNET) != 0) {
        return std::string("cannot make a network namespace: ") + strerror(errno);
    }
    here_ns_ = open_own_ns();
    if (peer_ns_ < 0 || here_ns_ < 0) return "cannot hold the namespaces";
    if (!ip("link set lo up") || !ip("link set lo up", true)) return "cannot bring up loopback";
    return "";
}

bool NetLab::enter(int ns_fd) {
    return setns(ns_fd, CLONE_NEWNET) == 0;
}

bool NetLab::ip(const std::string &args, bool peer) {
    if (!peer) return run_ip(args);
    if (!enter(peer_ns_)) return false;
    const bool ok = run_ip(args);
    if (!enter(here_ns_)) abort();
    return ok;
}

bool NetLab::link(const std::string &near, const std::string &near_address, const std::string &far,
                  const std::string &far_address) {
    const std::string peer_path =
        "/proc/" + std::to_string(getpid()) + "/fd/" + std::to_string(peer_ns_);
    if (!ip("link add " + near + " type veth peer name " + far + " netns " + peer_path) ||
        !ip("addr add " + near_address + " dev " + near) || !ip("link set " + near + " up") ||
        !ip("addr add " + far_address + " dev " + far, true) ||
        !ip("link set " + far + " up", true)) {
        return false;
    }
    // The carrier comes a moment after both ends are up.
    for (int i = 0; i < 100; ++i) {
        if (has_carrier(near)) return true;
        usleep(20 * 1000);
    }
    return false;
}

int NetLab::peer_socket(int domain, int type, int protocol) {
    if (!enter(peer_ns_)) return -1;
    const int fd = ::socket(domain, type | SOCK_CLOEXEC, protocol);
    if (!enter(here_ns_)) abort();
    return fd;
}

pid_t NetLab::spawn_in_peer(const std::vector<std::string> &argv,
                            const std::vector<std::string> &env) {
    const pid_t pid = fork();
    if (pid != 0) return pid;
    if (!enter(peer_ns_)) _exit(126);
    for (const std::string &pair : env)
        putenv(const_cast<char *>(pair.c_str()));
    std::vector<char *> args;
    for (const std::string &arg : argv)
        args.push_back(const_cast<char *>(arg.c_str()));
    args.push_back(nullptr);
    execv(args[0], args.data());
    _exit(127);
}

}  // namespace kova::test
