#include <arpa/inet.h>

#include "kovasdk/socket.h"

int ErrFHOSTSendBroadcastUdp(const void *pBuf, unsigned int cbBuf) {
    int failed = 0;
    for (int slot = 0; slot < KOVA_NET_MAX_CARDS; ++slot) {
        KOVANETCARD card{};
        const int found = KOVANetGetCard1(slot, nullptr, &card);
        if (found == 0) break;
        if (found < 0) {
            failed |= 1 << slot;
            continue;
        }
        // An address that does not parse sends from 0.0.0.0: deliberately lenient.
        in_addr from{};
        inet_aton(card.szIPAddr, &from);
        if (BroadcastUdpByInterface(pBuf, cbBuf, &from) < 0) failed |= 1 << slot;
    }
    return failed;
}
