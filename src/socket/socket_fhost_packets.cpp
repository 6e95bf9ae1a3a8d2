#include "kovasdk/socket.h"

// The bytes every discovery packet starts with, and the three ready-made queries. Other
// programs send and compare these very bytes: they never change.
const unsigned char stFHOSTHeader[8] = {0x12, 0x34, 0x56, 0x78, 'K', 'O', 'V', 'A'};
const unsigned int FHOSTHeaderSize = sizeof stFHOSTHeader;

const unsigned char stFHOSTBroadCast[10] = {0x12, 0x34, 0x56, 0x78, 'K', 'O', 'V', 'A', 0x00, 0x00};
const unsigned int FHOSTBroadCastSize = sizeof stFHOSTBroadCast;

const unsigned char stFHOSTBroadCastV11[20] = {0x12, 0x34, 0x56, 0x78, 'K',  'O',  'V',
                                               'A',  0x01, 0x04, 0x01, 0x00, 0x00, 0x00,
                                               0xA4, 0x04, 0x00, 0x00, 0x02, 0x00};
const unsigned int FHOSTBroadCastSizeV11 = sizeof stFHOSTBroadCastV11;

const unsigned char stFHOSTBroadCastV20[20] = {0x12, 0x34, 0x56, 0x78, 'K',  'O',  'V',
                                               'A',  0x01, 0x04, 0x01, 0x00, 0x00, 0x00,
                                               0xA4, 0x04, 0x00, 0x00, 0x02, 0x01};
const unsigned int FHOSTBroadCastSizeV20 = sizeof stFHOSTBroadCastV20;
