// Helpers the user family's operations share: keys, record texts, fields, recovery of the text
// files after a writer was killed.
#include <sys/stat.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>

#include "core/root.h"
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

long highest_uid(PKOVAUSERDB db) {
    if (KOVABDbCursorSetType(db->pPWDUid, KOVA_BDB_CURSOR_LAST) != 0) return fail(ERR_UNKNOWN);
    void *key = nullptr;
    void *value = nullptr;
    int32_t key_len = 0;
    int32_t value_len = 0;
    const int rc = KOVABDbCursorGet(db->pPWDUid, 1, &key, &key_len, &value, &value_len);
    const long uid = rc == 0 ? atol(static_cast<const char *>(key)) : 0;
    free(key);
    free(value);
    if (rc != 0 && KLIBErrGet() != ERR_BDB_END_OF_RECORDS) return fail(ERR_BDB_GET_FAILED);
    return uid;
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

}  // namespace kova::user
