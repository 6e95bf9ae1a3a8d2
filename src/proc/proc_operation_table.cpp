#include "proc/proc_internal.h"

namespace kova::proc {

const OperationInfo grgIDMap[kOperationCount + 1] = {
    {0, "none", 0},         {1, "hostname", 1},      {2, "network", 1},  {3, "datetime", 2},
    {4, "language", 2},     {5, "notify", 2},        {6, "codepage", 2}, {7, "account", 2},
    {8, "group", 2},        {9, "quota", 2},         {10, "home", 2},    {11, "share", 2},
    {12, "right", 2},       {13, "nfs", 2},          {14, "defopt", 2},  {15, "windows", 4},
    {16, "syncpdc", 5},     {17, "unix", 6},         {18, "apple", 7},   {19, "novell", 8},
    {20, "http", 9},        {21, "ftp", 9},          {22, "telnet", 9},  {23, "volume", 10},
    {24, "snmp", 11},       {25, "s2s", 12},         {26, "ups", 2},     {27, "led", 2},
    {28, "diskcache", 2},   {29, "snapshot", 13},    {30, "backup", 14}, {31, "restore", 15},
    {32, "tapebackup", 14}, {33, "taperestore", 15}, {34, "init", 16},   {35, "default", 17},
    {36, "patch", 17},      {37, "update", 17},      {38, "iron", 17},   {39, "", 0},
};

const ClassMasks grgBOPack[kClassCount] = {
    {0x0, 0x0, 0x0},                // 0
    {0x2, 0xDBF2, 0x10000},         // 1
    {0x4, 0xC004, 0x10000},         // 2
    {0x8, 0xE478, 0x10000},         // 3
    {0x10, 0xE03A, 0x10000},        // 4
    {0x20, 0xE47A, 0x10000},        // 5
    {0x40, 0xC06A, 0x10000},        // 6
    {0x80, 0xC082, 0x10000},        // 7
    {0x100, 0xC102, 0x10000},       // 8
    {0x200, 0xC202, 0x10000},       // 9
    {0x400, 0xE428, 0x10000},       // 10
    {0x800, 0xC802, 0x10000},       // 11
    {0x1000, 0x1F002, 0x0},         // 12
    {0x2000, 0x1F438, 0x0},         // 13
    {0x4000, 0xE000, 0x7FFF1FFF},   // 14
    {0x8000, 0x7FFEFFFF, 0x10000},  // 15
    {0x10000, 0x7FFFFFFF, 0x0},     // 16
    {0x7FFFFFFF, 0x7FFFFFFF, 0x0},  // 17
};

const ClassMasks &class_of(uint32_t op) {
    return op < kOperationCount ? grgBOPack[grgIDMap[op].op_class] : grgBOPack[0];
}

}  // namespace kova::proc
