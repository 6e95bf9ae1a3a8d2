#include "kovasdk/proc.h"
#include "proc/proc_internal.h"

const char *KOVAOperationGetName(int op) {
    if (op < 0 || op >= kova::proc::kOperationIdLimit) return "";
    return kova::proc::grgIDMap[op].name;
}
