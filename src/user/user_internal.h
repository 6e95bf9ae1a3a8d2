// What the user family's files share: its files, the cache's description, the line forms and
// the helpers behind the exported operations.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <optional>
#include <span>

#include "bdb/bdb_cache.h"
#include "core/fail.h"
#include "kovasdk/user.h"

namespace kova::user {

// The text files the cache is built from, and their temporary names (in the order they are
// renamed: a writer's temporary files are all complete before the first of these renames).
inline constexpr char kPasswd[] = "/etc/passwd";
inline constexpr char kShadow[] = "/etc/shadow";
inline constexpr char kMisc[] = "/etc/kovauser.conf";
inline constexpr char kSmbPasswd[] = "/usr/kova/etc/private/smbpasswd";
inline constexpr char kSmbPasswdTmp[] = "/usr/kova/etc/private/smbpasswd.tmp";
inline constexpr char kShadowTmp[] = "/etc/shadow.tmp";
inline constexpr char kPasswdTmp[] = "/etc/passwd.tmp";
inline constexpr char kMiscTmp[] = "/etc/kovauser.conf.tmp";

inline constexpr char kKovalogset1[] = "/usr/kova/bin/kovalogset1";
inline constexpr char kAfpdConf[] = "/usr/kova/etc/afpd.conf";
inline constexpr char kAfpdConfTmp[] = "/usr/kova/etc/afpd.conf.tmp";
// Users with a mail address ("name:mail" per line), told of the appliance's events.
inline constexpr char kMailGroup[] = "/usr/kova/etc/mailgroup";
// Users the FTP server locks into their home folder (one name per line).
inline constexpr char kFtpChroot[] = "/usr/kova/etc/ftpchroot";
inline constexpr char kHomesRoot[] = "/var/services/homes";
inline constexpr char kDefaultShell[] = "/bin/csh";

inline constexpr char kAdmin[] = "admin";
inline constexpr char kGuest[] = "guest";

// The marker line of /etc/kovauser.conf and its comment line.
inline constexpr char kUidMarkerName[] = "_@UID__INDEX@_";
inline constexpr char kMiscComment[] =
    "# record user misc, format \"user_name:user_privilege:user_mail\"\n";

// Keys are upper-cased into buffers of this size (longer names cannot be keyed).
inline constexpr int kKeySize = 493;
inline constexpr size_t kUidKeyLen = 7;  // "%06d" and its NUL

// Upper-cases name into key (kKeySize bytes): the key length with its NUL, or -1 (raised).
int upper_key(const char *name, char (&key)[kKeySize]);
void uid_key(uint32_t uid, char (&key)[16]);

// The cache's description for the shared protocol, and the handle's typed form of it.
const cache::Family &family();
// The live cache as this process's account operations read it.
cache::Kept &kept();
inline void **as_handle(PKOVAUSERDB *db) {
    return reinterpret_cast<void **>(db);
}

// The text of a record, NUL included: 0, or -1 (raised; ERR_KEY_NOT_FOUND when absent).
// *buf is grown as needed and owned by the caller.
int get_text(PKOVABDB db, const char *key, int32_t key_len, char **buf, int32_t *cap);

// Splits a line at ':' into at most max fields (pointers into line, which is changed; the last
// one keeps the rest of the line): the number of fields the whole line has.
int split_fields(char *line, char **fields, int max);

// Password hashes. crypt_md5: the shadow hash of the clear password with the salt taken from
// the previous hash (or made new); into out (at least 128 bytes). smb_hashes: the LAN Manager
// and NT hashes as 32 upper-case hexadecimal digits each.
bool crypt_md5(const char *clear, const char *previous, char *out, size_t size);
bool smb_hashes(const char *clear, char (&lm)[33], char (&nt)[33]);

// Whole days since the epoch.
long today();

// Completes or removes the text files' temporary files left by a writer that was killed.
void recover_text_files();

// The writers' common frame: the user file lock, the open cache and a private copy of it.
class Writer {
  public:
    Writer();
    Writer(const Writer &) = delete;
    Writer &operator=(const Writer &) = delete;
    ~Writer();

    bool ok() const { return change_.has_value() && change_->ok(); }
    PKOVAUSERDB db() const { return static_cast<PKOVAUSERDB>(change_->handle()); }
    // Dump the text files, then put the changed cache in place. 0 or -1.
    int finish();

  private:
    bool locked_ = false;
    PKOVAUSERDB live_ = nullptr;
    std::optional<cache::Change> change_;
};

// The updates after the text files are written (they do not undo the account; failures are
// logged). old_user is null for a new user.
// A user as a change left it, and as it was before (null for a new user).
struct Changed {
    const KOVAUSER *old;
    const KOVAUSER *user;
};
void after_set(std::span<const Changed> users);
void after_delete(const KOVAUSER &user);
// The call sites of the steps that other families fill in (old or new user null for a
// creation or a deletion).
void modify_smb_conf(const KOVAUSER *old_user, const KOVAUSER *user);
void modify_group(const KOVAUSER *old_user, const KOVAUSER *user);
void modify_network_backup(const KOVAUSER *old_user, const KOVAUSER *user);

}  // namespace kova::user

namespace kova::user {

// A record text read from a store, freed with the holder.
struct Text {
    char *data = nullptr;
    int32_t cap = 0;
    Text() = default;
    Text(const Text &) = delete;
    Text &operator=(const Text &) = delete;
    ~Text() { free(data); }
};

// Removes a user's records from every store (name, its id record, smb, misc, shadow).
// ERR_BDB_USER_NOT_FOUND when its id record was missing (the rest is removed all the same).
int delete_user(PKOVAUSERDB db, const char *upper, int32_t upper_len, uint32_t uid);

// The highest id in the id store: 0 when there is none, -1 (raised) on failure.
long highest_uid(PKOVAUSERDB db);

// "#CURRENT_UID" set to uid (replacing the old value).
int current_uid_set(PKOVAUSERDB db, uint32_t uid);

}  // namespace kova::user
