#include "kovasdk/socket.h"

// The query goes out twice, deliberately: one lost broadcast must not hide a host.
int ErrFHOSTSendQueryPkt(void) {
    const int first = ErrFHOSTSendBroadcastUdp(stFHOSTBroadCastV20, FHOSTBroadCastSizeV20);
    const int second = ErrFHOSTSendBroadcastUdp(stFHOSTBroadCastV20, FHOSTBroadCastSizeV20);
    return first | second;
}
