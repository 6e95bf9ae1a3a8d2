#include <arpa/inet.h>
#include <sys/socket.h>

#include <cerrno>
#include <cstring>

#include "core/log.h"
#include "core/owners.h"
#include "kovasdk/socket.h"
#include "socket/socket_internal.h"

using namespace kova::socket;

// Failures are logged only: the caller's interface loop reports them as its mask.
int BroadcastUdpByInterface(const void *pBuf, unsigned int cbBuf, const struct in_addr *pAddr) {
    if (pBuf == nullptr || pAddr == nullptr) return -1;
    kova::UniqueFd sock(::socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0));
    if (!sock) {
        kova::log(LOG_ERR, "%s", kLogSocket);
        return -1;
    }
    sockaddr_in from{};
    from.sin_family = AF_INET;
    from.sin_addr = *pAddr;
    from.sin_port = 0;
    if (bind(sock.get(), reinterpret_cast<const sockaddr *>(&from), sizeof from) != 0) {
        const int err = errno;
        kova::log(LOG_ERR, kLogBind, sock.get(), static_cast<unsigned long>(pAddr->s_addr), err,
                  strerror(err));
        return -1;
    }
    const int on = 1;
    if (setsockopt(sock.get(), SOL_SOCKET, SO_BROADCAST, &on, sizeof on) != 0) {
        kova::log(LOG_ERR, "%s", kLogSockOpt);
        return -1;
    }
    sockaddr_in to{};
    to.sin_family = AF_INET;
    to.sin_addr.s_addr = htonl(INADDR_BROADCAST);
    to.sin_port = htons(KOVA_FHOST_PORT);
    const ssize_t sent =
        sendto(sock.get(), pBuf, cbBuf, 0, reinterpret_cast<const sockaddr *>(&to), sizeof to);
    if (sent < 0 || static_cast<size_t>(sent) != cbBuf) {
        kova::log(LOG_ERR, "%s", kLogSendTo);
        return -1;
    }
    return 0;
}
