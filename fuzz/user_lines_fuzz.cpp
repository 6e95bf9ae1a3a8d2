// Passwd and shadow lines as the cache reads them: any line into a record buffer of any size
// is refused or unpacked inside the buffer, and a passwd record unpacked, packed and unpacked
// again is the same record. The first byte picks the buffer's size; the rest is the line.
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <string>

#include "kovasdk/kstring.h"
#include "kovasdk/user.h"

namespace {

// Every string of the record lies inside the buffer and ends there.
void check_inside(const KOVAUSER *user, size_t size) {
    const char *begin = reinterpret_cast<const char *>(user);
    for (const char *text : {user->szName, user->szPassword, user->szDescription, user->szHomeDir,
                             user->szShell, user->szMail}) {
        if (text < begin || text >= begin + size) abort();
        if (memchr(text, '\0', static_cast<size_t>(begin + size - text)) == nullptr) abort();
    }
}

PKOVAUSER unpack(int (*fn)(const char *, PKOVAUSER, int32_t), const std::string &line,
                 size_t size) {
    auto *user = static_cast<PKOVAUSER>(malloc(size));
    if (fn(line.c_str(), user, static_cast<int32_t>(size)) != 0) {
        free(user);
        return nullptr;
    }
    check_inside(user, size);
    return user;
}

void round_trip(const KOVAUSER *user) {
    const size_t room = 2 * strlen(user->szDescription) + 1;
    std::string encoded(room, '\0');
    if (KLIBStrEncodeColon(user->szDescription, encoded.data(), static_cast<int>(room)) < 0)
        abort();
    KOVAUSER packable = *user;
    packable.szDescription = encoded.data();
    const size_t cb =
        strlen(user->szName) + room + strlen(user->szHomeDir) + strlen(user->szShell) + 64;
    std::string line(cb, '\0');
    if (KOVAUserDBPack(&packable, line.data(), static_cast<int32_t>(cb)) < 0) abort();
    line.resize(strlen(line.c_str()));
    const size_t size = sizeof(KOVAUSER) + 2 * line.size() + 3;
    PKOVAUSER again = unpack(KOVAUserDBPasswdUnpack, line, size);
    if (again == nullptr || strcmp(again->szName, user->szName) != 0 || again->uid != user->uid ||
        again->gid != user->gid || strcmp(again->szDescription, user->szDescription) != 0 ||
        strcmp(again->szHomeDir, user->szHomeDir) != 0 ||
        strcmp(again->szShell, user->szShell) != 0 || again->type != user->type) {
        abort();
    }
    free(again);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    if (size == 0 || size > 4096) return 0;
    const std::string line(reinterpret_cast<const char *>(data + 1),
                           strnlen(reinterpret_cast<const char *>(data + 1), size - 1));
    // From far too small to ample, around the size the line needs.
    const size_t need = sizeof(KOVAUSER) + 2 * line.size() + 3;
    const size_t cb = data[0] < 128 ? need * data[0] / 128 + 1 : need + data[0] - 128;
    if (PKOVAUSER user = unpack(KOVAUserDBPasswdUnpack, line, cb)) {
        round_trip(user);
        free(user);
    }
    free(unpack(KOVAUserDBShadowUnpack, line, cb));
    return 0;
}
