// The four text files written from the cache, through their ".tmp" files, all complete before
// the first is renamed over its file.
#include <sys/stat.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "core/rewrite.h"
#include "core/root.h"
#include "user/user_internal.h"

namespace kova::user {
namespace {

struct Output {
    const char *path;
    const char *tmp;
    mode_t mode;  // of a file that did not exist
    bool secret;  // holds password hashes: never readable by others, whatever it was found with
};
// In the order of KOVAUserRenameTmpFiles: the recovery after a kill relies on it.
constexpr Output kSmb = {kSmbPasswd, kSmbPasswdTmp, 0600, true};
constexpr Output kShadowOut = {kShadow, kShadowTmp, 0600, true};
constexpr Output kPasswdOut = {kPasswd, kPasswdTmp, 0644, false};
constexpr Output kMiscOut = {kMisc, kMiscTmp, 0644, false};

class File {
  public:
    explicit File(const Output &output)
        : output_(output),
          path_(output.path),
          tmp_(output.tmp),
          rewrite_(path_.c_str(), {}, tmp_.c_str()) {
        if (output.secret) rewrite_.limit_mode(0600);
    }
    // Opens the file to replace; a missing one is made empty first, so that every file of the
    // set goes through its temporary name.
    bool start() {
        auto opened = rewrite_.open();
        if (opened == Rewrite::Opened::kMissing) {
            Rewrite empty(path_.c_str(), {});
            if (!empty.create({}, output_.mode, [](FILE *) { return true; })) return false;
            opened = rewrite_.open();
        }
        return opened == Rewrite::Opened::kOk && rewrite_.start();
    }
    Rewrite &rewrite() { return rewrite_; }

  private:
    const Output &output_;
    RootedPath path_;
    RootedPath tmp_;
    Rewrite rewrite_;
};

bool put_line(Rewrite &out, const char *text) {
    return out.put(text) && out.put("\n");
}

// The record of a store as a line, when there is one. False on a failure other than absence.
bool copy_record(PKOVABDB store, const char *what, const char *upper, int32_t len, Text &text,
                 Rewrite &out) {
    if (get_text(store, upper, len, &text.data, &text.cap) != 0) {
        if (KLIBErrGet() == ERR_KEY_NOT_FOUND) return true;
        fail(KLIBErrGet(), Site(), "%s:%d KOVABDbGet(pUserDb->%s) [%s] failed. kovaerr=0x%04X",
             what, upper, KLIBErrGet());
        return false;
    }
    return put_line(out, text.data);
}

// Every local user, in the order of their ids.
bool write_users(PKOVAUSERDB db, File &smb, File &shadow, File &passwd, File &misc) {
    if (KOVABDbCursorSetType(db->pPWDUid, KOVA_BDB_CURSOR_FIRST) != 0) return false;
    void *key = nullptr;
    int32_t key_len = 0;
    Text upper;
    Text text;
    bool ok = true;
    while (ok) {
        if (KOVABDbCursorGet(db->pPWDUid, 1, &key, &key_len, reinterpret_cast<void **>(&upper.data),
                             &upper.cap) != 0) {
            ok = KLIBErrGet() == ERR_BDB_END_OF_RECORDS;
            break;
        }
        if (upper.cap == 0 || upper.data[upper.cap - 1] != '\0') continue;
        if (strchr(upper.data, '\\') != nullptr) continue;  // domain users live elsewhere
        if (get_text(db->pPWDName, upper.data, upper.cap, &text.data, &text.cap) != 0) {
            fail(KLIBErrGet(), Site(),
                 "%s:%d KOVABDbGet(pUserDb->pPWDName) [%s] failed. kovaerr=0x%04X", upper.data,
                 KLIBErrGet());
            ok = false;
            break;
        }
        ok = put_line(passwd.rewrite(), text.data) &&
             copy_record(db->pPWDShadow, "pPWDShadow", upper.data, upper.cap, text,
                         shadow.rewrite()) &&
             copy_record(db->pPWDSmb, "pPWDSmb", upper.data, upper.cap, text, smb.rewrite()) &&
             copy_record(db->pPWDMisc, "pPWDMisc", upper.data, upper.cap, text, misc.rewrite());
    }
    free(key);
    return ok;
}

bool write_misc_head(PKOVAUSERDB db, Rewrite &misc) {
    int32_t current = 0;
    void *value = nullptr;
    int32_t size = 0;
    if (KOVABDbGet(db->pPWDUid, KOVA_USER_KEY_CURRENT_UID, KOVA_USER_KEY_CURRENT_UID_LEN, &value,
                   &size) == 0 &&
        size == sizeof current) {
        memcpy(&current, value, sizeof current);
    }
    free(value);
    if (!misc.put(kMiscComment)) return false;
    return current == 0 || misc.print(__LINE__, "#$%s$%d$\n", kUidMarkerName, current);
}

}  // namespace
}  // namespace kova::user

int KOVAUserDBDump(PKOVAUSERDB pUserDb) {
    using namespace kova::user;
    if (pUserDb == nullptr) return kova::fail(ERR_BAD_PARAMETERS);
    File smb(kSmb);
    File shadow(kShadowOut);
    File passwd(kPasswdOut);
    File misc(kMiscOut);
    if (!smb.start() || !shadow.start() || !passwd.start() || !misc.start() ||
        !write_misc_head(pUserDb, misc.rewrite()) ||
        !write_users(pUserDb, smb, shadow, passwd, misc)) {
        return -1;  // the temporary files go with the rewrites
    }
    if (!kova::Rewrite::commit_all(
            {&smb.rewrite(), &shadow.rewrite(), &passwd.rewrite(), &misc.rewrite()})) {
        // A rename refused after the first: the rest are complete and go in as well.
        recover_text_files();
        return -1;
    }
    return 0;
}
