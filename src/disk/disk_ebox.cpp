// Expansion units: none unless "/usr/kova/etc/ebox.conf" names them, one key per unit:
// host5="/dev/sdk,/dev/sdl".
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "core/alloc.h"
#include "core/root.h"
#include "disk/disk_internal.h"
#include "kovasdk/file.h"
#include "kovasdk/hash.h"
#include "kovasdk/kstring.h"

using namespace kova;

namespace {

struct HashFree {
    void operator()(PKLIBSZHASH hash) const { KLIBSzHashFree(hash); }
};
struct ListFree {
    void operator()(PKLIBSZLIST list) const { KLIBSzListFree(list); }
};
using UniqueHash = std::unique_ptr<KLIBSZHASH, HashFree>;
using UniqueList = std::unique_ptr<KLIBSZLIST, ListFree>;

// The configured units: 1 read into *units, 0 none configured, -1 unreadable (raised).
int read_units(UniqueHash *units) {
    const RootedPath conf(KOVA_EBOX_CONF);
    if (access(conf.c_str(), F_OK) != 0 && errno == ENOENT) return 0;
    PKLIBSZHASH hash = nullptr;
    if (KLIBFileGetPair(conf.c_str(), &hash) < 0) {
        KLIBSzHashFree(hash);
        return -1;
    }
    units->reset(hash);
    return hash != nullptr ? 1 : 0;
}

// The unit's disks: the comma-separated paths of its value.
PKLIBSZLIST split_disks(const char *value) {
    PKLIBSZLIST disks = PslKLIBSzListAlloc(0);
    if (disks == nullptr) return nullptr;
    if (KLIBStrTok(value, ",", &disks) < 0) {
        KLIBSzListFree(disks);
        return nullptr;
    }
    return disks;
}

}  // namespace

int KOVAEBoxDevIs(const char *szDevPath) {
    if (szDevPath == nullptr) return fail(ERR_BAD_PARAMETERS);
    UniqueHash units;
    if (read_units(&units) <= 0) return 0;
    PKLIBSZLIST names = nullptr;
    if (KLIBSzHashEnumKey(units.get(), &names) < 0) return 0;
    const UniqueList hosts(names);
    for (int i = 0; i < hosts->nItem; i++) {
        const UniqueList disks(
            split_disks(SzKLIBSzHashGetValue(units.get(), SzKLIBSzListGet(hosts.get(), i))));
        if (disks && KLIBSzListFind(disks.get(), szDevPath) >= 0) return 1;
    }
    return 0;
}

int KOVAEBoxInfoGet(const char *szHost, PKOVAEBOXINFO *ppInfo) {
    if (szHost == nullptr || ppInfo == nullptr || strlen(szHost) >= sizeof(KOVAEBOXINFO::szHost))
        return fail(ERR_BAD_PARAMETERS);
    UniqueHash units;
    const int read = read_units(&units);
    if (read < 0) return -1;
    const char *value = read > 0 ? SzKLIBSzHashGetValue(units.get(), szHost) : nullptr;
    if (value == nullptr) return fail(ERR_NO_DISK_ID);
    UniqueMalloc<KOVAEBOXINFO> info(static_cast<PKOVAEBOXINFO>(xcalloc(1, sizeof(KOVAEBOXINFO))));
    if (!info) return fail(ERR_OUT_OF_MEMORY);
    snprintf(info->szHost, sizeof info->szHost, "%s", szHost);
    info->pDisks = split_disks(value);
    if (info->pDisks == nullptr) return fail(ERR_OUT_OF_MEMORY);
    *ppInfo = info.release();
    return 0;
}

void KOVAEBoxInfoFree(PKOVAEBOXINFO pInfo) {
    if (pInfo == nullptr) return;
    KLIBSzListFree(pInfo->pDisks);
    free(pInfo);
}
