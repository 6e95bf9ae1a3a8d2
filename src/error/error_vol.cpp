#include "kovasdk/error.h"

uint32_t volerr = ERR_SUCCESS;

void KOVAVolISetErr(uint32_t code) {
    volerr = code;
}

uint32_t KOVAVolGetErr(void) {
    return volerr;
}
