// What the user family's files share: its files, the cache's description, the line forms and
// the helpers behind the exported operations.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <optional>
#include <span>

#include <string_view>

#include "bdb/bdb_cache.h"
#include "core/fail.h"
#include "core/line_reader.h"
#include "core/owners.h"
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

// A source text file opened for reading: the stream, or null (ERR_OPEN_FAILED raised).
UniqueFile open_source(const char *path);
// The reader's line without its line feed, NUL-terminated in the reader's buffer.
std::string_view chomp(LineReader &reader);
// Whether reading stopped before the end (logged and raised).
bool read_failed(const LineReader &reader);

// Fills the name store (upper name -> line) and the id store ("%06d" -> upper name) from a
// file of "name:x:id:..." lines (passwd, group); an id that is not a number stops it
// (ERR_FORMAT_ERROR). what ("user", "group") names the lines in the log. 0 or -1.
int build_id_file(const char *path, const char *what, PKOVABDB names, PKOVABDB ids);
// Fills a store with every line of a file that is not a comment, under its upper-cased first
// field. 0 or -1.
int build_line_file(const char *path, const char *what, PKOVABDB store);

// A comma-separated list with every entry equal to old_name (without regard to case) replaced
// by name, or dropped when name is null, into out (size bytes; empty entries dropped too).
// False when the list does not name old_name.
bool replace_in_list(const char *list, const char *old_name, const char *name, char *out,
                     size_t size);

// Names pushed onto a list, kept to those that begin with a prefix compared without regard to
// case (a null prefix keeps all): the enumerations of users, groups and shares.
class NamePusher {
  public:
    NamePusher(PKLIBSZLIST *list, const char *prefix);
    // False when the prefix cannot be keyed (raised).
    bool ok() const { return prefix_len_ >= 0; }
    // Pushes name when it matches: false when the push failed.
    bool operator()(const char *name);
    int count() const { return count_; }

  private:
    PKLIBSZLIST *list_;
    char prefix_[kKeySize] = "";
    int prefix_len_ = 0;
    int count_ = 0;
};

// Whole days since the epoch.
long today();

// Completes or removes the text files' temporary files left by a writer that was killed.
void recover_text_files();

// The writers' frame (cache::Writer) with this family's lock and files.
class Writer : public cache::Writer {
  public:
    Writer();
    PKOVAUSERDB db() const { return static_cast<PKOVAUSERDB>(handle()); }
};

// The updates after the text files are written (they do not undo the account; failures are
// logged). A user as a change left it, and as it was before (null for a new user).
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

// The id store of an account family ("%06d" id -> upper name): its reserved record of the
// last id handed out, the range of new ids and the code of a range used up.
struct IdStore {
    PKOVABDB store;
    const char *current_key;
    int32_t current_len;
    long min;
    long max;
    uint32_t exhausted;
};
// The highest id in an id store: 0 when there is none, -1 (raised) on failure.
long highest_id(PKOVABDB ids);
// The reserved record set to id (the old value deleted first).
int current_id_set(const IdStore &ids, uint32_t id);
// The free-id search: from the reserved record + 1 (or the highest id + 1), a start outside
// min + 1 to max taken as min, upward, wrapping from max to min; the id, or -1 (exhausted when
// every id is taken).
long free_id(const IdStore &ids);
// The number of the marker line "#$<name>$<n>$" of a file, or -1 when there is none.
long marker_in(const char *path, const char *marker_name);
// Deletes a record; its absence is no failure.
int delete_if_there(PKOVABDB store, const char *key, int32_t key_len);

inline IdStore user_ids(PKOVAUSERDB db) {
    return {db->pPWDUid,       KOVA_USER_KEY_CURRENT_UID, KOVA_USER_KEY_CURRENT_UID_LEN,
            KOVA_USER_UID_MIN, KOVA_USER_UID_MAX,         ERR_TOO_MANY_USERS};
}

}  // namespace kova::user
