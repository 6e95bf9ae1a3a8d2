// Writing one user into the five stores, and the free user id.
#include <strings.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>

#include "core/alloc.h"
#include "core/owners.h"
#include "kovasdk/kstring.h"
#include "user/user_internal.h"

namespace kova::user {
namespace {

constexpr int kSmbFields = 7;
constexpr char kNoHash[] = "XXXXXXXXXXXXXXXXXXXXXXXXXXXXXXXX";  // no usable password yet

const char *or_empty(const char *text) {
    return text != nullptr ? text : "";
}

int set_text(PKOVABDB store, const char *key, int32_t key_len, const char *text) {
    return KOVABDbSet(store, key, key_len, text, static_cast<int32_t>(strlen(text) + 1));
}

// The names stored under an id, but for one.
int other_names_of(PKOVABDB uids, const char (&id)[16], const char *upper, PKLIBSZLIST *others,
                   bool *found) {
    void *key = nullptr;
    void *value = nullptr;
    int32_t key_len = 0;
    int32_t value_len = 0;
    if (KOVABDbCursorSetType(uids, KOVA_BDB_CURSOR_SET) != 0) return -1;
    key = xmalloc(kUidKeyLen);
    if (key == nullptr) return fail(ERR_OUT_OF_MEMORY);
    memcpy(key, id, kUidKeyLen);
    key_len = kUidKeyLen;
    int result = 0;
    for (;;) {
        if (KOVABDbCursorGet(uids, 0, &key, &key_len, &value, &value_len) != 0) {
            if (KLIBErrGet() != ERR_BDB_END_OF_RECORDS) result = -1;
            break;
        }
        if (key_len != static_cast<int32_t>(kUidKeyLen) || memcmp(key, id, kUidKeyLen) != 0) break;
        if (strcmp(static_cast<const char *>(value), upper) == 0) {
            *found = true;
        } else if (KLIBSzListPush(others, static_cast<const char *>(value)) < 0) {
            result = -1;
            break;
        }
        KOVABDbCursorSetType(uids, KOVA_BDB_CURSOR_NEXT);
    }
    free(key);
    free(value);
    return result;
}

// Removes the one (id, name) record of a store with duplicate keys: every record under the id
// goes, the others come back.
int delete_uid_record(PKOVABDB uids, uint32_t uid, const char *upper) {
    char id[16];
    uid_key(uid, id);
    PKLIBSZLIST others = PslKLIBSzListAlloc(0);
    if (others == nullptr) return -1;
    bool found = false;
    int result = other_names_of(uids, id, upper, &others, &found);
    if (result == 0 && found) {
        result = KOVABDbDelete(uids, id, kUidKeyLen);
        for (int i = 0; result == 0 && i < others->nItem; ++i) {
            const char *name = SzKLIBSzListGet(others, i);
            result = set_text(uids, id, kUidKeyLen, name);
        }
    }
    KLIBSzListFree(others);
    if (result == 0 && !found) return fail(ERR_BDB_USER_NOT_FOUND);
    return result;
}

bool has_smb_fields(char *line, char *(&field)[kSmbFields]) {
    return line != nullptr && split_fields(line, field, kSmbFields) == kSmbFields;
}

}  // namespace

int delete_user(PKOVAUSERDB db, const char *upper, int32_t upper_len, uint32_t uid) {
    if (delete_if_there(db->pPWDName, upper, upper_len) != 0 ||
        delete_if_there(db->pPWDSmb, upper, upper_len) != 0 ||
        delete_if_there(db->pPWDMisc, upper, upper_len) != 0 ||
        delete_if_there(db->pPWDShadow, upper, upper_len) != 0) {
        return -1;
    }
    return delete_uid_record(db->pPWDUid, uid, upper);
}

// Steps 3 to 6 of writing a user: defaults, the passwd, id and misc records, the shadow line
// with the password hashed when it changed, the smbpasswd line. old and smb (the old smbpasswd
// line's fields) are null for a new user.
int write_user(PKOVAUSERDB db, const char *upper, int upper_len, const KOVAUSER *old,
               char *const *smb, bool keep_uid_record, const KOVAUSER &user) {
    char home[4096];
    snprintf(home, sizeof home, "%s/%s", kHomesRoot, user.szName);
    const char *password = or_empty(user.szPassword);
    const char *description = or_empty(user.szDescription);
    const size_t encoded_size = 2 * strlen(description) + 1;
    UniqueMalloc<char> encoded(static_cast<char *>(xmalloc(encoded_size)));
    if (!encoded) return fail(ERR_OUT_OF_MEMORY);
    if (KLIBStrEncodeColon(description, encoded.get(), static_cast<int>(encoded_size - 1)) < 0) {
        return -1;
    }
    KOVAUSER line_user = user;
    line_user.szDescription = encoded.get();
    if (user.szHomeDir == nullptr || user.szHomeDir[0] == '\0') line_user.szHomeDir = home;
    if (user.szShell == nullptr || user.szShell[0] == '\0') {
        line_user.szShell = const_cast<char *>(kDefaultShell);
    }
    const size_t line_size = strlen(user.szName) + encoded_size + strlen(line_user.szHomeDir) +
                             strlen(line_user.szShell) + strlen(password) +
                             strlen(or_empty(user.szMail)) + 256;
    UniqueMalloc<char> line(static_cast<char *>(xmalloc(line_size)));
    if (!line) return fail(ERR_OUT_OF_MEMORY);
    const auto size = static_cast<int32_t>(line_size);

    if (KOVAUserDBPack(&line_user, line.get(), size) < 0 ||
        set_text(db->pPWDName, upper, upper_len, line.get()) != 0) {
        return -1;
    }
    if (!keep_uid_record) {
        char id[16];
        uid_key(user.uid, id);
        if (set_text(db->pPWDUid, id, kUidKeyLen, upper) != 0) return -1;
    }
    snprintf(line.get(), line_size, "%s:%d:%s", user.szName, user.privilege, or_empty(user.szMail));
    if (set_text(db->pPWDMisc, upper, upper_len, line.get()) != 0) return -1;

    const bool changed = old == nullptr || strcmp(password, or_empty(old->szPassword)) != 0;
    char hash[256];
    if (changed) {
        if (!crypt_md5(password, old != nullptr ? old->szPassword : nullptr, hash, sizeof hash)) {
            return -1;
        }
    } else {
        snprintf(hash, sizeof hash, "%s", or_empty(old->szPassword));
    }
    if (user.expireDay > 0) {
        snprintf(line.get(), line_size, "%s:%s:%ld:0:99999:7::%d:", user.szName, hash, today(),
                 user.expireDay);
    } else {
        snprintf(line.get(), line_size, "%s:%s:%ld:0:99999:7:::", user.szName, hash, today());
    }
    if (set_text(db->pPWDShadow, upper, upper_len, line.get()) != 0) return -1;

    char lm[33] = {};
    char nt[33] = {};
    if (changed) {
        if (!smb_hashes(password, lm, nt)) return -1;
    } else {
        snprintf(lm, sizeof lm, "%s", smb != nullptr ? smb[2] : kNoHash);
        snprintf(nt, sizeof nt, "%s", smb != nullptr ? smb[3] : kNoHash);
    }
    snprintf(line.get(), line_size, "%s:%d:%s:%s:[U          ]:LCT-%08X:", user.szName,
             static_cast<int>(user.uid), lm, nt, static_cast<unsigned>(time(nullptr)));
    return set_text(db->pPWDSmb, upper, upper_len, line.get());
}

}  // namespace kova::user

int KOVAUserDBSet(PKOVAUSERDB pUserDb, const char *szOldUpperName, int32_t cbOldName,
                  PKOVAUSER pUser) {
    using namespace kova::user;
    if (pUserDb == nullptr || pUser == nullptr || pUser->szName == nullptr ||
        (szOldUpperName != nullptr && cbOldName <= 0)) {
        return kova::fail(ERR_BAD_PARAMETERS);
    }
    if (BlKLIBIsUserName(pUser->szName) != 1 || strchr(pUser->szName, '\\') != nullptr) {
        return kova::fail(ERR_INVALID_USERNAME);
    }
    char upper[kKeySize];
    const int upper_len = upper_key(pUser->szName, upper);
    if (upper_len < 0) return kova::fail(ERR_INVALID_USERNAME);

    Text text;
    if (szOldUpperName == nullptr) {
        if (get_text(pUserDb->pPWDName, upper, upper_len, &text.data, &text.cap) == 0) {
            return kova::fail(ERR_USER_EXISTS);
        }
        if (KLIBErrGet() != ERR_KEY_NOT_FOUND) return -1;
        return write_user(pUserDb, upper, upper_len, nullptr, nullptr, false, *pUser);
    }

    PKOVAUSER old = nullptr;
    if (KOVAUserDBGet(pUserDb, szOldUpperName, &old) != 0) return -1;
    const kova::UniqueMalloc<KOVAUSER> old_owner(old);
    char *smb[7] = {};
    const bool has_smb =
        get_text(pUserDb->pPWDSmb, szOldUpperName, cbOldName, &text.data, &text.cap) == 0;
    if (!has_smb && KLIBErrGet() != ERR_KEY_NOT_FOUND) return -1;
    if (has_smb && !has_smb_fields(text.data, smb)) return kova::fail(ERR_FORMAT_ERROR);
    bool keep_uid_record = false;
    if (delete_user(pUserDb, szOldUpperName, cbOldName, old->uid) != 0) {
        if (KLIBErrGet() != ERR_BDB_USER_NOT_FOUND || strcmp(szOldUpperName, upper) != 0) return -1;
        keep_uid_record = true;  // deliberate: the id record is not added back
    }
    return write_user(pUserDb, upper, upper_len, old, has_smb ? smb : nullptr, keep_uid_record,
                      *pUser);
}

int KOVAUserDBGetFreeUid(PKOVAUSERDB pUserDb) {
    if (pUserDb == nullptr) return kova::fail(ERR_BAD_PARAMETERS);
    return static_cast<int>(kova::user::free_id(kova::user::user_ids(pUserDb)));
}
