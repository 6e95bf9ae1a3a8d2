// Filling an open, empty user cache from the four text files.
#include <fcntl.h>

#include <cstdlib>
#include <cstring>
#include <string_view>

#include "core/line_reader.h"
#include "core/owners.h"
#include "core/root.h"
#include "core/sys.h"
#include "kovasdk/proc.h"
#include "user/user_internal.h"

namespace kova::user {
namespace {

UniqueFile open_source(const char *path) {
    int fd = -1;
    struct stat st {};
    if (sys::open_regular(RootedPath(path).c_str(), O_RDONLY, &fd, &st) != sys::Opened::kOk) {
        fail(ERR_OPEN_FAILED);
        return nullptr;
    }
    UniqueFile file(sys::stream(fd, "r"));
    if (!file) fail(ERR_OUT_OF_MEMORY);
    return file;
}

// The line without its line feed, NUL-terminated in the reader's buffer.
std::string_view chomp(LineReader &reader) {
    size_t len = reader.size();
    if (reader.ends_with_newline()) reader.data()[--len] = '\0';
    return {reader.data(), len};
}

bool read_failed(const LineReader &reader) {
    if (!reader.failed()) return false;
    log_at(LOG_ERR, Site(), "%s:%d feof failed. errno=%d/%m", errno);
    fail(reader.failure_code());
    return true;
}

// The text before the first ':' upper-cased into key: its length with NUL, 0 when the line
// has no ':' or the name cannot be keyed (logged), -1 on failure.
int line_key(const char *path, std::string_view line, char (&key)[kKeySize]) {
    const size_t colon = line.find(':');
    char name[kKeySize];
    if (colon == std::string_view::npos || colon >= sizeof name) {
        log_at(LOG_ERR, Site(), "%s:%d %s format error, user name = %.*s", path,
               static_cast<int>(line.size() < 64 ? line.size() : 64), line.data());
        return 0;
    }
    memcpy(name, line.data(), colon);
    name[colon] = '\0';
    const int len = upper_key(name, key);
    if (len < 0) {
        log_at(LOG_ERR, Site(), "%s:%d %s format error, user name = %s", path, name);
        return 0;
    }
    return len;
}

int passwd_build(PKOVAUSERDB db) {
    UniqueFile file = open_source(kPasswd);
    if (!file) return -1;
    LineReader reader(file.get());
    while (reader.next()) {
        const std::string_view line = chomp(reader);
        if (line.empty() || line[0] == '#' || line.find(':') == std::string_view::npos) continue;
        // The user id stands between the second and the third ':'.
        const size_t second = line.find(':', line.find(':') + 1);
        const size_t third = second == std::string_view::npos ? second : line.find(':', second + 1);
        if (third == std::string_view::npos) continue;
        const char *id_text = line.data() + second + 1;
        const long uid = atol(id_text);
        if (uid == 0 && *id_text != '0') return fail(ERR_FORMAT_ERROR);
        char key[kKeySize];
        const int key_len = line_key(kPasswd, line, key);
        if (key_len < 0) return -1;
        if (key_len == 0) continue;
        char id_key[16];
        uid_key(static_cast<uint32_t>(uid), id_key);
        if (KOVABDbSet(db->pPWDName, key, key_len, line.data(),
                       static_cast<int32_t>(line.size() + 1)) != 0 ||
            KOVABDbSet(db->pPWDUid, id_key, kUidKeyLen, key, key_len) != 0) {
            return -1;
        }
    }
    return read_failed(reader) ? -1 : 0;
}

// The number of the marker line "#$_@UID__INDEX@_$<n>$", or -1 when there is none.
long uid_marker() {
    UniqueFile file = open_source(kMisc);
    if (!file) return -1;
    char marker[64];
    const int marker_len = snprintf(marker, sizeof marker, "#$%s$", kUidMarkerName);
    LineReader reader(file.get());
    while (reader.next()) {
        const char *hash = strchr(reader.data(), '#');
        if (hash == nullptr || strncmp(hash, marker, static_cast<size_t>(marker_len)) != 0) {
            continue;
        }
        char *end = nullptr;
        const long n = strtol(hash + marker_len, &end, 10);
        if (end != hash + marker_len && *end == '$') return n;
    }
    return -1;
}

int next_uid_build(PKOVAUSERDB db) {
    long uid = uid_marker();
    if (uid < KOVA_USER_UID_MIN || uid > KOVA_USER_UID_MAX) {
        uid = highest_uid(db);
        if (uid < 0) return -1;
        if (uid == 0) return 0;  // no user yet
    }
    const int32_t current = static_cast<int32_t>(uid);
    if (KOVABDbSet(db->pPWDUid, KOVA_USER_KEY_CURRENT_UID, KOVA_USER_KEY_CURRENT_UID_LEN, &current,
                   sizeof current) != 0) {
        return fail(ERR_BDB_PUT_FAILED);
    }
    return 0;
}

// Domain accounts have no source on this appliance: the domain part stays empty.
int domain_build(PKOVAUSERDB) {
    return 0;
}

int line_file_build(PKOVABDB store, const char *path) {
    UniqueFile file = open_source(path);
    if (!file) return -1;
    LineReader reader(file.get());
    while (reader.next()) {
        const std::string_view line = chomp(reader);
        if (line.empty() || line[0] == '#') continue;
        char key[kKeySize];
        const int key_len = line_key(path, line, key);
        if (key_len < 0) return -1;
        if (key_len == 0) continue;
        if (KOVABDbSet(store, key, key_len, line.data(), static_cast<int32_t>(line.size() + 1)) !=
            0) {
            return -1;
        }
    }
    return read_failed(reader) ? -1 : 0;
}

}  // namespace
}  // namespace kova::user

int KOVAUserDBBuild(PKOVAUSERDB pUserDb) {
    using namespace kova::user;
    if (pUserDb == nullptr) return kova::fail(ERR_BAD_PARAMETERS);
    if (passwd_build(pUserDb) != 0) {
        return kova::fail(KLIBErrGet(), kova::Site(),
                          "%s:%d UserDBPasswdBuild() failed! kovaerr=0x%04X", KLIBErrGet());
    }
    if (next_uid_build(pUserDb) != 0) {
        return kova::fail(KLIBErrGet(), kova::Site(),
                          "%s:%d UserDBNextUidBuild() failed! kovaerr=0x%04X", KLIBErrGet());
    }
    if (domain_build(pUserDb) != 0) {
        kova::log_at(LOG_ERR, kova::Site(), "%s:%d UserDBDomainBuild() failed! kovaerr=0x%04X",
                     KLIBErrGet());
        KLIBExec(kova::RootedPath(kKovalogset1).c_str(), "sys", "err", "0x1180050A", nullptr);
    }
    if (line_file_build(pUserDb->pPWDShadow, kShadow) != 0 ||
        line_file_build(pUserDb->pPWDMisc, kMisc) != 0 ||
        line_file_build(pUserDb->pPWDSmb, kSmbPasswd) != 0) {
        return -1;
    }
    return kova::cache::store_sync_times(family(), pUserDb);
}
