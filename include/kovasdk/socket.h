/*
 * Host discovery and the network helpers it needs: the discovery packets, the broadcast of the
 * query out of every configured interface, the pass that collects the answers through the
 * discovery daemon, the reader of the collected host list, a raw Ethernet/IPv4/UDP frame sender
 * for links without an address yet, the interface records, and a non-blocking connect check.
 *
 * Discovery packets. Every packet starts with the 8 bytes of stFHOSTHeader (12 34 56 78 "KOVA"),
 * followed by fields written as id (1 byte), length (1 byte), value (that many bytes). The query
 * is stFHOSTBroadCastV20, sent to 255.255.255.255, UDP port 9999. Field meanings:
 *   0x00  empty: the oldest probe (stFHOSTBroadCast), answered as a query
 *   0x01  packet kind, 4 bytes: first byte 1 for a query, 2 for an answer, then three zeros
 *   0xA4  protocol revision, 4 bytes: 0, 0, major, minor (2.0 older, 2.1 current)
 * The daemon "/usr/kova/bin/findhostd" answers a query with kind 2, revision 2.1 and
 *   0x10  model number, 4 bytes, big-endian
 *   0x11  build level, 4 bytes, big-endian
 *   0x12  host name, 1 to 63 bytes of printable ASCII without space or comma
 *   0x13  IPv4 address of the interface the query came in on, 4 bytes, network order
 *   0x14  hardware address of that interface, 6 bytes (optional)
 *   0x15  firmware version, 0 to 31 bytes, same characters as the host name (optional)
 * sent to the querying address (or broadcast when that is 0.0.0.0), port 9999. Every valid
 * answer a daemon receives becomes one line of "/tmp/kovanas.list":
 *   model,build,name,address,mac,version     (e.g. "407,642,nas1,192.0.2.5,02:00:00:00:00:01,2.1")
 * Fields of unknown id are skipped; a packet whose fields overrun it is ignored whole.
 *
 * Interfaces. Slot N is described by "/etc/sysconfig/network-scripts/ifcfg-ethN" (key="value"
 * lines: DEVICE, the interface name, "ethN" when absent; BOOTPROTO, "dhcp" or "static"; IPADDR;
 * NETMASK). Slots are numbered without gaps: the first missing file ends the list. An interface
 * with BOOTPROTO="dhcp" takes IPADDR and NETMASK from the DHCP client's info file
 * "/etc/dhcpc/<DEVICE>.info" instead. The files are read under the network lock
 * (KLIB_LOCK_NW, shared).
 */
#ifndef KOVASDK_SOCKET_H
#define KOVASDK_SOCKET_H

#include <netinet/in.h>
#include <stdint.h>
#include <sys/select.h>

#include "export.h"
#include "hash.h"

KOVA_BEGIN_DECLS

/* The discovery packets, byte-exact, and their lengths (8, 10, 20, 20). */
extern KOVA_API const unsigned char stFHOSTHeader[8];
extern KOVA_API const unsigned int FHOSTHeaderSize;
extern KOVA_API const unsigned char stFHOSTBroadCast[10];
extern KOVA_API const unsigned int FHOSTBroadCastSize;
extern KOVA_API const unsigned char stFHOSTBroadCastV11[20];
extern KOVA_API const unsigned int FHOSTBroadCastSizeV11;
extern KOVA_API const unsigned char stFHOSTBroadCastV20[20];
extern KOVA_API const unsigned int FHOSTBroadCastSizeV20;

#define KOVA_FHOST_PORT 9999
#define KOVA_NET_MAX_CARDS 8

/* One configured interface. Texts are as configured (an address may be empty or malformed). */
typedef struct _tag_KOVANETCARD {
    char szDevice[16];  /* "eth0" */
    char szIPAddr[16];  /* dotted quad */
    char szNetmask[16]; /* dotted quad */
    int blDhcp;         /* 1 when the address comes from the DHCP client */
} KOVANETCARD;

/* The 24-byte description of a raw frame: zero MACs mean the interface's own source address
 * and the broadcast destination. Addresses and ports in network byte order. */
typedef struct _tag_KOVANETFRAME {
    uint8_t rgbSrcMac[6];
    uint8_t rgbDstMac[6];
    uint32_t ulSrcIP;
    uint32_t ulDstIP;
    uint16_t usSrcPort;
    uint16_t usDstPort;
} KOVANETFRAME;

/* The only frame kind: Ethernet II, IPv4, UDP. */
#define KOVA_NET_FRAME_UDP 1

/* The query, sent from every configured interface. */
/* Sends cbBuf bytes once from the address *pAddr to 255.255.255.255:9999: 0; -1, logged but
 * without an error code. */
KOVA_API int BroadcastUdpByInterface(const void *pBuf, unsigned int cbBuf,
                                     const struct in_addr *pAddr);
/* Sends the buffer from interface slots 0 to 7 until the first slot that does not exist: a
 * mask with bit i set for each slot whose record could not be read or whose send failed; 0
 * when all sent. An unparsable address sends from 0.0.0.0 (deliberately lenient). */
KOVA_API int ErrFHOSTSendBroadcastUdp(const void *pBuf, unsigned int cbBuf);
/* stFHOSTBroadCastV20 sent twice (deliberately): the OR of the two masks. */
KOVA_API int ErrFHOSTSendQueryPkt(void);

/* A discovery pass: starts the daemon when it is not running (3 s), sends the query, waits
 * 10 s for the answers and hands the list to KOVAFHOSTGet2Hash: 0; -1. */
KOVA_API int KOVAFHOSTDumpHost(void);
/* Reads the last pass's list into *ppHash (made by the caller), "name(address)" -> address,
 * and deletes it: the number of pairs in the hash; 0 with ERR_OPEN_FAILED when there was no
 * list; -1. Lines with a model number of 0, a build level below 240 or fewer than five fields
 * are skipped. */
KOVA_API int KOVAFHOSTGet2Hash(PKLIBSZHASH *ppHash);

/* Writes one Ethernet/IPv4/UDP frame (42 + cbPayload bytes; IP identification 242, TTL 64) on
 * the named link. nKind must be KOVA_NET_FRAME_UDP. 0; -1 with ERR_BAD_PARAMETERS before
 * touching the link, or ERR_UNKNOWN. */
KOVA_API int KOVANetSendUDPBroadCast(int nKind, const KOVANETFRAME *pFrame, const void *pPayload,
                                     int cbPayload, const char *szDevice);

/* The interface of slot nSlot (0-7) into *pCard: 1; 0 when there is no such slot; -1. With
 * szIPAddr, the first interface from nSlot on whose address is szIPAddr: 1, or 0 when none. */
KOVA_API int KOVANetGetCard1(int nSlot, const char *szIPAddr, KOVANETCARD *pCard);

/* After select() on a non-blocking connect: 1 when sockfd is in one of the sets and has no
 * pending error, else 0. */
KOVA_API int isconnected(int sockfd, fd_set *pReadSet, fd_set *pWriteSet);

KOVA_END_DECLS

#endif /* KOVASDK_SOCKET_H */
