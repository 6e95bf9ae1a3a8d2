#include <sys/stat.h>

#include <cerrno>
#include <cstdio>
#include <cstring>

#include "core/owners.h"
#include "core/raise.h"
#include "core/root.h"
#include "kovasdk/file.h"
#include "kovasdk/socket.h"
#include "socket/socket_internal.h"

using namespace kova::socket;

namespace {

enum class Found { kYes, kNo, kFailed };

// One key of an interface file into a record field: an absent key leaves the field empty (an
// interface may be configured without an address); a value too long for the field fails.
bool read_key(const char *path, const char *key, char *field, int size) {
    field[0] = '\0';
    const int rc = KLIBFileGetKeyValue(path, key, field, size, 0);
    if (rc > 0) return true;
    if (rc == 0 && KLIBErrGet() == ERR_KEY_NOT_FOUND) return true;
    field[0] = '\0';
    return false;
}

// The file of a slot: kNo when it does not exist, which ends the list of slots.
Found card_file(int slot, char *path, size_t size) {
    char name[64];
    snprintf(name, sizeof name, kCardFile, slot);
    const kova::RootedPath rooted(name);
    if (!rooted.ok() || strlen(rooted.c_str()) >= size) {
        kova::raise(ERR_BAD_PARAMETERS);
        return Found::kFailed;
    }
    memcpy(path, rooted.c_str(), strlen(rooted.c_str()) + 1);
    struct stat st {};
    if (stat(path, &st) == 0) return Found::kYes;
    if (errno == ENOENT) return Found::kNo;
    kova::raise(ERR_STAT_FAILED);
    return Found::kFailed;
}

// The address part of a record: from the interface file, or from the DHCP client's info file
// when the interface takes its address from DHCP.
bool read_addresses(const char *card_path, KOVANETCARD *card) {
    const char *source = card_path;
    char info[PATH_MAX];
    if (card->blDhcp) {
        char name[64];
        const int n = snprintf(name, sizeof name, kDhcpInfoFile, card->szDevice);
        const kova::RootedPath rooted(name);
        if (n < 0 || static_cast<size_t>(n) >= sizeof name || !rooted.ok()) {
            kova::raise(ERR_BAD_PARAMETERS);
            return false;
        }
        memcpy(info, rooted.c_str(), strlen(rooted.c_str()) + 1);
        source = info;
    }
    return read_key(source, kKeyIPAddr, card->szIPAddr, sizeof card->szIPAddr) &&
           read_key(source, kKeyNetmask, card->szNetmask, sizeof card->szNetmask);
}

Found read_card(int slot, KOVANETCARD *card) {
    char path[PATH_MAX];
    const Found found = card_file(slot, path, sizeof path);
    if (found != Found::kYes) return found;
    *card = KOVANETCARD{};
    char proto[16];
    if (!read_key(path, kKeyDevice, card->szDevice, sizeof card->szDevice) ||
        !read_key(path, kKeyBootProto, proto, sizeof proto)) {
        return Found::kFailed;
    }
    if (card->szDevice[0] == '\0') snprintf(card->szDevice, sizeof card->szDevice, "eth%d", slot);
    // The device name is part of a path below: a name with a slash is no interface.
    if (strchr(card->szDevice, '/') != nullptr) {
        kova::raise(ERR_FORMAT_ERROR);
        return Found::kFailed;
    }
    card->blDhcp = strcasecmp(proto, "dhcp") == 0 ? 1 : 0;
    return read_addresses(path, card) ? Found::kYes : Found::kFailed;
}

}  // namespace

int KOVANetGetCard1(int nSlot, const char *szIPAddr, KOVANETCARD *pCard) {
    if (nSlot < 0 || nSlot >= KOVA_NET_MAX_CARDS || pCard == nullptr) {
        kova::raise(ERR_BAD_PARAMETERS);
        return -1;
    }
    if (ErrKLIBFileLock(KLIB_LOCK_NW | KLIB_LOCK_SH, kNetLockSeconds) != 0) {
        kova::raise(ERR_LOCK_FAILED);
        return -1;
    }
    kova::ScopeGuard unlock([] { ErrKLIBFileUnlock(KLIB_LOCK_NW); });

    const int last = szIPAddr == nullptr ? nSlot : KOVA_NET_MAX_CARDS - 1;
    for (int slot = nSlot; slot <= last; ++slot) {
        KOVANETCARD card{};
        const Found found = read_card(slot, &card);
        if (found == Found::kFailed) return -1;
        if (found == Found::kNo) return 0;
        if (szIPAddr == nullptr || strcmp(card.szIPAddr, szIPAddr) == 0) {
            *pCard = card;
            return 1;
        }
    }
    return 0;
}
