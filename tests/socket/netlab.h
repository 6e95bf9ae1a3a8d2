// Private networks for the discovery tests. A NetLab moves the test process into a new network
// namespace ("here") and makes a second one ("peer"), joined by veth pairs; nothing the test
// sends can reach the machine's own interfaces. Without root, CAP_NET_ADMIN or the ip tool
// (or under an emulator) it cannot be made, and the test skips saying why.
#pragma once

#include <sys/types.h>

#include <string>
#include <vector>

namespace kova::test {

class NetLab {
  public:
    NetLab() = default;
    ~NetLab();
    NetLab(const NetLab &) = delete;
    NetLab &operator=(const NetLab &) = delete;

    // Enters "here" and makes "peer": "" when ready, else why not (the test skips with it).
    std::string open();
    // A veth pair: `near` in here with near_address, `far` in peer with far_address (both
    // "a.b.c.d/prefix"), both up. False on failure.
    bool link(const std::string &near, const std::string &near_address, const std::string &far,
              const std::string &far_address);
    // Runs an ip command line in here (peer=false) or in peer: true when it exits with 0.
    bool ip(const std::string &args, bool peer = false);
    // A socket made inside the peer's namespace (the test stays in its own).
    int peer_socket(int domain, int type, int protocol);
    // Starts program (argv, environment additions) in the peer's namespace: its pid.
    pid_t spawn_in_peer(const std::vector<std::string> &argv, const std::vector<std::string> &env);

  private:
    bool enter(int ns_fd);

    int host_ns_ = -1;
    int here_ns_ = -1;
    int peer_ns_ = -1;
};

}  // namespace kova::test
