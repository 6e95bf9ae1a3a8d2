// The four text files written from the cache, through their ".tmp" files, all complete before
// the first is renamed over its file.
#include <sys/stat.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "core/alloc.h"
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

// One store's records in key order, read with one cursor walk: the dump finds each user's
// lines here rather than with a lookup per line in the store.
class Table {
  public:
    Table() = default;
    Table(const Table &) = delete;
    Table &operator=(const Table &) = delete;
    ~Table() {
        free(bytes_);
        free(entries_);
    }

    // False on failure (raised).
    bool load(PKOVABDB store) {
        if (KOVABDbCursorSetType(store, KOVA_BDB_CURSOR_FIRST) != 0) return false;
        void *key = nullptr, *value = nullptr;
        int32_t key_len = 0, value_len = 0;
        bool ok = true;
        while (ok) {
            if (KOVABDbCursorGet(store, 1, &key, &key_len, &value, &value_len) != 0) {
                ok = KLIBErrGet() == ERR_BDB_END_OF_RECORDS;
                break;
            }
            ok = add(key, key_len, value, value_len);
        }
        free(key);
        free(value);
        return ok;
    }

    // The record under key as a string, or null when there is none (or it is not a string).
    const char *find(const char *key, int32_t len) const {
        size_t low = 0, high = count_;
        while (low < high) {
            const size_t mid = low + (high - low) / 2;
            const int order = compare(entries_[mid], key, len);
            if (order == 0) return entries_[mid].text ? bytes_ + entries_[mid].value_at : nullptr;
            if (order < 0) {
                low = mid + 1;
            } else {
                high = mid;
            }
        }
        return nullptr;
    }

  private:
    struct Entry {
        size_t key_at;
        size_t value_at;
        int32_t key_len;
        bool text;  // the value ends in its NUL
    };

    // The btree's order: bytewise, a shorter key first.
    int compare(const Entry &entry, const char *key, int32_t len) const {
        const int order =
            memcmp(bytes_ + entry.key_at, key, static_cast<size_t>(std::min(entry.key_len, len)));
        return order != 0 ? order : entry.key_len - len;
    }

    bool add(const void *key, int32_t key_len, const void *value, int32_t value_len) {
        const size_t need = size_ + static_cast<size_t>(key_len) + static_cast<size_t>(value_len);
        if ((need > cap_ && !grow(reinterpret_cast<void **>(&bytes_), &cap_, need, 1)) ||
            (count_ == entries_cap_ && !grow(reinterpret_cast<void **>(&entries_), &entries_cap_,
                                             count_ + 1, sizeof(Entry)))) {
            return false;
        }
        Entry &entry = entries_[count_++];
        entry.key_at = size_;
        entry.key_len = key_len;
        memcpy(bytes_ + size_, key, static_cast<size_t>(key_len));
        size_ += static_cast<size_t>(key_len);
        entry.value_at = size_;
        memcpy(bytes_ + size_, value, static_cast<size_t>(value_len));
        size_ += static_cast<size_t>(value_len);
        entry.text = value_len > 0 && bytes_[size_ - 1] == '\0';
        return true;
    }

    // Doubles *block (of *cap items of size bytes) until it holds need items.
    static bool grow(void **block, size_t *cap, size_t need, size_t size) {
        size_t cap_now = *cap == 0 ? 1024 : *cap;
        while (cap_now < need)
            cap_now *= 2;
        void *grown = xrealloc(*block, cap_now * size);
        if (grown == nullptr) {
            fail(ERR_OUT_OF_MEMORY);
            return false;
        }
        *block = grown;
        *cap = cap_now;
        return true;
    }

    char *bytes_ = nullptr;
    size_t size_ = 0, cap_ = 0;
    Entry *entries_ = nullptr;
    size_t count_ = 0, entries_cap_ = 0;
};

bool put_line(Rewrite &out, const char *text) {
    return out.put(text) && out.put("\n");
}

// Every local user, in the order of their ids; each store read once, in key order.
bool write_users(PKOVAUSERDB db, File &smb, File &shadow, File &passwd, File &misc) {
    Table names, shadows, smbs, miscs;
    if (!names.load(db->pPWDName) || !shadows.load(db->pPWDShadow) || !smbs.load(db->pPWDSmb) ||
        !miscs.load(db->pPWDMisc) ||
        KOVABDbCursorSetType(db->pPWDUid, KOVA_BDB_CURSOR_FIRST) != 0) {
        return false;
    }
    void *key = nullptr;
    int32_t key_len = 0;
    Text upper;
    bool ok = true;
    while (ok) {
        if (KOVABDbCursorGet(db->pPWDUid, 1, &key, &key_len, reinterpret_cast<void **>(&upper.data),
                             &upper.cap) != 0) {
            ok = KLIBErrGet() == ERR_BDB_END_OF_RECORDS;
            break;
        }
        if (upper.cap == 0 || upper.data[upper.cap - 1] != '\0') continue;
        if (strchr(upper.data, '\\') != nullptr) continue;  // domain users live elsewhere
        const char *line = names.find(upper.data, upper.cap);
        if (line == nullptr) {
            fail(ERR_KEY_NOT_FOUND, Site(),
                 "%s:%d KOVABDbGet(pUserDb->pPWDName) [%s] failed. kovaerr=0x%04X", upper.data,
                 ERR_KEY_NOT_FOUND);
            ok = false;
            break;
        }
        ok = put_line(passwd.rewrite(), line);
        // A user without one of the other lines is written without it.
        for (auto [table, file] : {std::pair{&shadows, &shadow}, {&smbs, &smb}, {&miscs, &misc}}) {
            const char *other = table->find(upper.data, upper.cap);
            if (ok && other != nullptr) ok = put_line(file->rewrite(), other);
        }
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
