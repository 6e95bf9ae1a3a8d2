#include <execinfo.h>

#include <cstdlib>

#include "error/error_internal.h"
#include "kovasdk/error.h"

uint32_t kovaerrno = ERR_SUCCESS;

namespace kova::error {
namespace {
State g_state{};

void capture_backtrace() {
    free(g_state.symbols);
    g_state.symbols = nullptr;
    g_state.depth = backtrace(g_state.frames, kMaxFrames);
    g_state.symbols = backtrace_symbols(g_state.frames, g_state.depth);
}

// Frees the held symbol array when the library is unloaded or the process exits.
__attribute__((destructor)) void fini_error_bt() {
    free(g_state.symbols);
    g_state.symbols = nullptr;
}
}  // namespace

State &state() {
    return g_state;
}

}  // namespace kova::error

using kova::error::state;

void KLIBErrSet(uint32_t code) {
    kovaerrno = code;
    state().file = nullptr;
    state().line = 0;
    kova::error::capture_backtrace();
}

void KLIBErrSetEx(uint32_t code, const char *file, int32_t line) {
    kovaerrno = code;
    state().file = file;
    state().line = line;
    kova::error::capture_backtrace();
}

uint32_t KLIBErrGet(void) {
    return kovaerrno;
}

const char *KOVAErrorGetFile(void) {
    return state().file;
}

int32_t KOVAErrorGetLine(void) {
    return state().line;
}
