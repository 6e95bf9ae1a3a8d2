#include <sys/socket.h>

#include "kovasdk/socket.h"

int isconnected(int sockfd, fd_set *pReadSet, fd_set *pWriteSet) {
    if (sockfd < 0 || sockfd >= FD_SETSIZE) return 0;
    const bool readable = pReadSet != nullptr && FD_ISSET(sockfd, pReadSet);
    const bool writable = pWriteSet != nullptr && FD_ISSET(sockfd, pWriteSet);
    if (!readable && !writable) return 0;
    int pending = 0;
    socklen_t size = sizeof pending;
    if (getsockopt(sockfd, SOL_SOCKET, SO_ERROR, &pending, &size) != 0) return 0;
    return pending == 0 ? 1 : 0;
}
