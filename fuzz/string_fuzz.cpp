// Settings-line splitting and the colon and hex decoders on arbitrary bytes: no crash, no
// overrun, refusals leave the output alone, and the decoded text encodes back losslessly.
#include <cstdint>
#include <cstring>
#include <string>
#include <vector>

#include "kovasdk/kovasdk.h"

namespace {

void check(bool ok) {
    if (!ok) __builtin_trap();
}

void sep_pair(const char *line) {
    PKLIBSZLIST list = PslKLIBSzListAlloc(0);
    const bool has_equals = strchr(line, '=') != nullptr;
    if (KLIBStrSepPair(line, &list) == 0) {
        check(has_equals && list->nItem == 2);
        const char *key = SzKLIBSzListGet(list, 0);
        check(key[0] != '\0' && strchr(key, '=') == nullptr && strlen(key) < strlen(line));
    } else {
        check(list->nItem == 0 && KLIBErrGet() == ERR_BAD_PARAMETERS);
    }
    KLIBSzListFree(list);
}

using Coder = int (*)(const char *, char *, int);

// A size one short of the input length is refused without a byte written.
void refused_when_short(Coder coder, const char *in, size_t len) {
    if (len == 0) return;
    std::vector<char> out(len + 1, '#');
    check(coder(in, out.data(), static_cast<int>(len) - 1) == -1);
    check(KLIBErrGet() == ERR_NOT_ENOUGH_MEMORY);
    for (char c : out)
        check(c == '#');
}

void colon(const char *in, size_t len) {
    std::vector<char> decoded(len + 1);
    const int n = KLIBStrDecodeColon(in, decoded.data(), static_cast<int>(len));
    check(n >= 0 && static_cast<size_t>(n) <= len && decoded[n] == '\0');
    std::vector<char> encoded(2 * static_cast<size_t>(n) + 1), again(static_cast<size_t>(n) + 1);
    const int m = KLIBStrEncodeColon(decoded.data(), encoded.data(), 2 * n);
    check(m >= n && KLIBStrDecodeColon(encoded.data(), again.data(), m) == n);
    check(memcmp(again.data(), decoded.data(), static_cast<size_t>(n) + 1) == 0);
    refused_when_short(KLIBStrDecodeColon, in, len);
}

void hex(const char *in, size_t len) {
    std::vector<char> decoded(len + 1);
    const int n = KLIBStrHexCodeToString(in, decoded.data(), static_cast<int>(len));
    check(n >= 0 && 2 * static_cast<size_t>(n) <= len);
    // The decoded bytes up to any NUL among them encode back to the digits that were read.
    const size_t text = strlen(decoded.data());
    std::vector<char> digits(2 * text + 1);
    check(KLIBStringToHexCode(decoded.data(), digits.data(), static_cast<int>(text)) ==
          2 * static_cast<int>(text));
    std::string stripped;
    for (const char *p = in; stripped.size() < 2 * text; ++p) {
        if (*p != 'x') stripped += *p;
    }
    check(stripped == digits.data());
    refused_when_short(KLIBStrHexCodeToString, in, len);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    const std::string input(reinterpret_cast<const char *>(data), size);
    const char *in = input.c_str();  // up to the first NUL
    const size_t len = strlen(in);
    sep_pair(in);
    colon(in, len);
    hex(in, len);
    return 0;
}
