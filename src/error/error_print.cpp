#include <cerrno>
#include <cstdio>

#include "kovasdk/error.h"

// Reads errno, not kovaerrno: callers that stored a code in errno print it this way. The
// asymmetry is deliberate.
void KLIBErrPrint(void) {
    const auto value = static_cast<unsigned>(errno);
    if ((value & 0xFFu) != 0 || (value >> 8) >= static_cast<unsigned>(errNum)) return;
    puts(rgszErrMsg[value >> 8]);
}
