// Helpers the user family's operations share: keys, record texts, fields, recovery of the text
// files after a writer was killed.
#include <fcntl.h>
#include <strings.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>

#include "core/root.h"
#include "core/sys.h"
#include "kovasdk/file.h"
#include "kovasdk/unicode.h"
#include "user/user_internal.h"

namespace kova::user {

int upper_key(const char *name, char (&key)[kKeySize]) {
    const int len = KLIBUnicodeUTF8StrUpper(name, key, kKeySize);
    return len < 0 ? -1 : len + 1;
}

void uid_key(uint32_t uid, char (&key)[16]) {
    snprintf(key, sizeof key, "%06d", static_cast<int>(uid));
}

int get_text(PKOVABDB db, const char *key, int32_t key_len, char **buf, int32_t *cap) {
    void *data = *buf;
    int32_t size = *cap;
    const int rc = KOVABDbGet(db, key, key_len, &data, &size);
    *buf = static_cast<char *>(data);
    *cap = size;
    if (rc != 0) return -1;
    if (size == 0 || (*buf)[size - 1] != '\0') return fail(ERR_FORMAT_ERROR);
    return 0;
}

int split_fields(char *line, char **fields, int max) {
    int count = 0;
    for (char *p = line;; ++p) {
        if (count < max) fields[count] = p;
        ++count;
        p = strchr(p, ':');
        if (p == nullptr) break;
        if (count < max) *p = '\0';  // the last field keeps the rest
    }
    return count;
}

long highest_id(PKOVABDB ids) {
    if (KOVABDbCursorSetType(ids, KOVA_BDB_CURSOR_LAST) != 0) return fail(ERR_UNKNOWN);
    void *key = nullptr;
    void *value = nullptr;
    int32_t key_len = 0;
    int32_t value_len = 0;
    const int rc = KOVABDbCursorGet(ids, 1, &key, &key_len, &value, &value_len);
    const long id = rc == 0 ? atol(static_cast<const char *>(key)) : 0;
    free(key);
    free(value);
    if (rc != 0 && KLIBErrGet() != ERR_BDB_END_OF_RECORDS) return fail(ERR_BDB_GET_FAILED);
    return id;
}

int delete_if_there(PKOVABDB store, const char *key, int32_t key_len) {
    if (KOVABDbDelete(store, key, key_len) == 0 || KLIBErrGet() == ERR_KEY_NOT_FOUND) return 0;
    return -1;
}

int current_id_set(const IdStore &ids, uint32_t id) {
    const auto value = static_cast<int32_t>(id);
    if (delete_if_there(ids.store, ids.current_key, ids.current_len) != 0) return -1;
    return KOVABDbSet(ids.store, ids.current_key, ids.current_len, &value, sizeof value);
}

long free_id(const IdStore &ids) {
    void *current = nullptr;
    int32_t size = 0;
    long start = 0;
    if (KOVABDbGet(ids.store, ids.current_key, ids.current_len, &current, &size) == 0) {
        int32_t value = 0;
        if (size == sizeof value) memcpy(&value, current, sizeof value);
        free(current);
        start = static_cast<long>(value) + 1;
    } else if (KLIBErrGet() == ERR_KEY_NOT_FOUND) {
        const long highest = highest_id(ids.store);
        if (highest < 0) return -1;
        start = highest + 1;
    } else {
        return fail(ERR_BDB_GET_FAILED);
    }
    if (start < ids.min + 1 || start > ids.max) start = ids.min;
    long id = start;
    do {
        char key[16];
        uid_key(static_cast<uint32_t>(id), key);
        Text name;
        if (get_text(ids.store, key, kUidKeyLen, &name.data, &name.cap) != 0) return id;
        id = id >= ids.max ? ids.min : id + 1;
    } while (id != start);
    return fail(ids.exhausted);
}

long marker_in(const char *path, const char *marker_name) {
    UniqueFile file = open_source(path);
    if (!file) return -1;
    char marker[64];
    const int marker_len = snprintf(marker, sizeof marker, "#$%s$", marker_name);
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

long today() {
    return static_cast<long>(time(nullptr) / 86400);
}

namespace {

bool exists(const char *path) {
    struct stat st {};
    return lstat(RootedPath(path).c_str(), &st) == 0;
}

}  // namespace

// A writer names its four temporary files in the order of KOVAUserRenameTmpFiles and renames
// them in that order once all are complete. So while the first ("smbpasswd.tmp") is there no
// target was replaced yet and the set is dropped; once it is gone, the rest are complete and
// are renamed over their targets.
void recover_text_files() {
    if (!exists(kSmbPasswdTmp) && !exists(kMiscTmp)) return;
    // Left alone while a writer is at work: its temporary files are its own.
    const uint32_t saved = KLIBErrGet();
    if (ErrKLIBFileLock(KLIB_LOCK_PW | KLIB_LOCK_EX | KLIB_LOCK_NB, 0) != 0) {
        KLIBErrSet(saved);
        return;
    }
    if (exists(kSmbPasswdTmp)) {
        KOVAUserRemoveTmpFiles();
    } else {
        KOVAUserRenameTmpFiles();
    }
    ErrKLIBFileUnlock(KLIB_LOCK_PW);
    KLIBErrSet(saved);
}

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

namespace {

// The text before the first ':' upper-cased into key: its length with NUL, 0 when the line
// has no name that can be keyed (logged).
int line_key(const char *path, const char *what, std::string_view line, char (&key)[kKeySize]) {
    const size_t colon = line.find(':');
    char name[kKeySize];
    if (colon == std::string_view::npos || colon >= sizeof name) {
        log_at(LOG_ERR, Site(), "%s:%d %s format error, %s name = %.*s", path, what,
               static_cast<int>(line.size() < 64 ? line.size() : 64), line.data());
        return 0;
    }
    memcpy(name, line.data(), colon);
    name[colon] = '\0';
    const int len = upper_key(name, key);
    if (len < 0) {
        log_at(LOG_ERR, Site(), "%s:%d %s format error, %s name = %s", path, what, name);
        return 0;
    }
    return len;
}

}  // namespace

int build_id_file(const char *path, const char *what, PKOVABDB names, PKOVABDB ids) {
    UniqueFile file = open_source(path);
    if (!file) return -1;
    LineReader reader(file.get());
    while (reader.next()) {
        const std::string_view line = chomp(reader);
        if (line.empty() || line[0] == '#' || line.find(':') == std::string_view::npos) continue;
        // The id stands between the second and the third ':'.
        const size_t second = line.find(':', line.find(':') + 1);
        const size_t third = second == std::string_view::npos ? second : line.find(':', second + 1);
        if (third == std::string_view::npos) continue;
        const char *id_text = line.data() + second + 1;
        const long id = atol(id_text);
        if (id == 0 && *id_text != '0') return fail(ERR_FORMAT_ERROR);
        char key[kKeySize];
        const int key_len = line_key(path, what, line, key);
        if (key_len == 0) continue;
        char id_key[16];
        uid_key(static_cast<uint32_t>(id), id_key);
        if (KOVABDbSet(names, key, key_len, line.data(), static_cast<int32_t>(line.size() + 1)) !=
                0 ||
            KOVABDbSet(ids, id_key, kUidKeyLen, key, key_len) != 0) {
            return -1;
        }
    }
    return read_failed(reader) ? -1 : 0;
}

int build_line_file(const char *path, const char *what, PKOVABDB store) {
    UniqueFile file = open_source(path);
    if (!file) return -1;
    LineReader reader(file.get());
    while (reader.next()) {
        const std::string_view line = chomp(reader);
        if (line.empty() || line[0] == '#') continue;
        char key[kKeySize];
        const int key_len = line_key(path, what, line, key);
        if (key_len == 0) continue;
        if (KOVABDbSet(store, key, key_len, line.data(), static_cast<int32_t>(line.size() + 1)) !=
            0) {
            return -1;
        }
    }
    return read_failed(reader) ? -1 : 0;
}

bool replace_in_list(const char *members, const char *old_name, const char *name, char *out,
                     size_t size) {
    bool found = false;
    size_t used = 0;
    out[0] = '\0';
    const char *at = members;
    while (*at != '\0') {
        const char *end = strchr(at, ',');
        const size_t len = end != nullptr ? static_cast<size_t>(end - at) : strlen(at);
        const bool is_old = len == strlen(old_name) && strncasecmp(at, old_name, len) == 0;
        found = found || is_old;
        const char *put = is_old ? name : at;
        const size_t put_len = is_old ? (name != nullptr ? strlen(name) : 0) : len;
        if (put != nullptr && put_len > 0 && used + put_len + 2 < size) {
            if (used > 0) out[used++] = ',';
            memcpy(out + used, put, put_len);
            used += put_len;
            out[used] = '\0';
        }
        at = end != nullptr ? end + 1 : at + len;
    }
    return found;
}

NamePusher::NamePusher(PKLIBSZLIST *list, const char *prefix) : list_(list) {
    if (prefix != nullptr) prefix_len_ = upper_key(prefix, prefix_) - 1;
}

bool NamePusher::operator()(const char *name) {
    if (prefix_len_ > 0) {
        char upper[kKeySize];
        if (upper_key(name, upper) < 0 ||
            strncmp(upper, prefix_, static_cast<size_t>(prefix_len_)) != 0) {
            return true;
        }
    }
    if (KLIBSzListPush(list_, name) < 0) return false;
    ++count_;
    return true;
}

}  // namespace kova::user
