#include <fcntl.h>
#include <unistd.h>

#include <cstdio>

#include "core/fail.h"
#include "core/line_reader.h"
#include "core/owners.h"
#include "core/root.h"
#include "core/sys.h"
#include "kovasdk/kstring.h"
#include "kovasdk/list.h"
#include "kovasdk/socket.h"
#include "socket/socket_internal.h"

using namespace kova::socket;

namespace {

enum class Line { kKept, kSkipped, kFailed };

// One host line: model,level,name,address,... becomes "name(address)" -> address.
Line take_line(char *text, PKLIBSZLIST *fields, PKLIBSZHASH *hash) {
    if (KLIBStrTrimSpace(text, nullptr) < 0) {
        kova::log_at(LOG_ERR, kova::Site(), kLogTrimFailed);
        return Line::kSkipped;
    }
    KLIBSzListRemoveAll(*fields);
    if (KLIBStrSep(text, ",", fields) < 0) return Line::kFailed;
    if ((*fields)->nItem < kListFields) {
        kova::log_at(LOG_ERR, kova::Site(), kLogFewFields);
        return Line::kSkipped;
    }
    if (atoi(SzKLIBSzListGet(*fields, 0)) == 0) {
        kova::log_at(LOG_ERR, kova::Site(), kLogModelZero);
        return Line::kSkipped;
    }
    if (atoi(SzKLIBSzListGet(*fields, 1)) < kMinBuildLevel) return Line::kSkipped;
    const char *name = SzKLIBSzListGet(*fields, 2);
    const char *address = SzKLIBSzListGet(*fields, 3);
    char key[kKeySize];
    // Longer keys are cut at 1,023 characters, deliberately.
    if (snprintf(key, sizeof key, "%s(%s)", name, address) < 0) return Line::kSkipped;
    return KLIBSzHashSetValue(hash, key, address) < 0 ? Line::kFailed : Line::kKept;
}

}  // namespace

int KOVAFHOSTGet2Hash(PKLIBSZHASH *ppHash) {
    if (ppHash == nullptr || *ppHash == nullptr) return kova::fail(ERR_BAD_PARAMETERS);
    const kova::RootedPath path(kHostListTaken);
    int fd = -1;
    struct stat st {};
    // The list lies in /tmp: never followed through a link, never a FIFO.
    if (kova::sys::open_regular(path.c_str(), O_RDONLY | O_NOFOLLOW, &fd, &st) !=
        kova::sys::Opened::kOk) {
        kova::raise(ERR_OPEN_FAILED);
        return 0;
    }
    // Each collected list is read once, whatever happens below.
    kova::ScopeGuard remove([&] { kova::sys::unlink(path.c_str()); });
    kova::UniqueFile in(fdopen(fd, "r"));
    if (!in) {
        close(fd);
        return kova::fail(ERR_OUT_OF_MEMORY);
    }
    PKLIBSZLIST fields = PslKLIBSzListAlloc(kListCapacity);
    if (fields == nullptr) return kova::fail(ERR_OUT_OF_MEMORY);
    kova::ScopeGuard free_fields([&] { KLIBSzListFree(fields); });

    kova::LineReader reader(in.get());
    while (reader.next()) {
        if (take_line(reader.data(), &fields, ppHash) == Line::kFailed) return -1;
    }
    if (reader.failed()) return kova::fail(reader.failure_code());
    return KLIBSzHashPairNum(*ppHash);
}
