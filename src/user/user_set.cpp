// Creating, renaming and changing users.
#include <cstdlib>
#include <cstring>

#include "core/alloc.h"
#include "core/owners.h"
#include "user/user_internal.h"

namespace kova::user {
namespace {

struct Entry {
    char upper[kKeySize];
    char old_upper[kKeySize];
    PKOVAUSER old;     // the record before the change; null for a new user
    PKOVAUSER stored;  // as written, defaults filled in
};

void free_entries(Entry *entries, int count) {
    for (int i = 0; i < count; ++i) {
        KOVAUserFree(entries[i].old);
        KOVAUserFree(entries[i].stored);
    }
    free(entries);
}

bool exists(PKOVAUSERDB db, const char *upper) {
    Text text;
    return get_text(db->pPWDName, upper, static_cast<int32_t>(strlen(upper) + 1), &text.data,
                    &text.cap) == 0;
}

// Checks one record against the cache and the records before it; then writes it.
int set_one(PKOVAUSERDB db, Entry *entries, int i, const char *old_name, PKOVAUSER user) {
    Entry &entry = entries[i];
    if (BlKLIBIsUserName(user->szName) != 1 || upper_key(user->szName, entry.upper) < 0) {
        return fail(ERR_INVALID_USERNAME, Site(), "%s:%d pUser->szName[%s] is BAD.", user->szName);
    }
    for (int j = 0; j < i; ++j) {
        if (strcmp(entries[j].upper, entry.upper) == 0) {
            return fail(ERR_USER_EXISTS, Site(), "%s:%d Duplicated key:[%s]", entry.upper);
        }
    }
    if (old_name == nullptr) {
        if (exists(db, entry.upper)) {
            return fail(ERR_USER_EXISTS, Site(), "%s:%d pUser->szName[%s] is EXIST.", user->szName);
        }
        const int uid = KOVAUserDBGetFreeUid(db);
        if (uid < 0) return -1;
        user->uid = static_cast<uint32_t>(uid);
        if (KOVAUserDBSet(db, nullptr, 0, user) != 0 ||
            current_id_set(user_ids(db), user->uid) != 0) {
            return -1;
        }
        return KOVAUserDBGet(db, entry.upper, &entry.stored);
    }
    const int old_len = upper_key(old_name, entry.old_upper);
    if (old_len < 0 || KOVAUserDBGet(db, entry.old_upper, &entry.old) != 0) {
        return fail(ERR_NO_SUCH_USER, Site(), "%s:%d szOldName=[%s] is NOT EXIST.", old_name);
    }
    if (strcmp(entry.old_upper, entry.upper) != 0 && exists(db, entry.upper)) {
        return fail(ERR_USER_EXISTS, Site(), "%s:%d pUser->szName[%s] is EXIST.", user->szName);
    }
    if (KOVAUserDBSet(db, entry.old_upper, old_len, user) != 0) return -1;
    return KOVAUserDBGet(db, entry.upper, &entry.stored);
}

}  // namespace
}  // namespace kova::user

int KOVAUserSet(const char *const *rgszOldName, PKOVAUSER const *rgpUser, int count) {
    using namespace kova::user;
    if (rgpUser == nullptr || count <= 0) return kova::fail(ERR_BAD_PARAMETERS);
    for (int i = 0; i < count; ++i) {
        if (rgpUser[i] == nullptr || rgpUser[i]->szName == nullptr) {
            return kova::fail(ERR_BAD_PARAMETERS);
        }
    }
    auto *entries = static_cast<Entry *>(kova::xcalloc(static_cast<size_t>(count), sizeof(Entry)));
    auto *changed =
        static_cast<Changed *>(kova::xcalloc(static_cast<size_t>(count), sizeof(Changed)));
    if (entries == nullptr || changed == nullptr) {
        free(entries);
        free(changed);
        return kova::fail(ERR_OUT_OF_MEMORY);
    }
    int result = 0;
    {
        Writer writer;
        if (!writer.ok()) {
            free_entries(entries, count);
            free(changed);
            return -1;
        }
        for (int i = 0; i < count && result == 0; ++i) {
            const char *old_name = rgszOldName != nullptr ? rgszOldName[i] : nullptr;
            result = set_one(writer.db(), entries, i, old_name, rgpUser[i]);
        }
        if (result == 0) result = writer.finish();
        // The updates that follow the accounts, still under the lock.
        if (result == 0) {
            for (int i = 0; i < count; ++i)
                changed[i] = {entries[i].old, entries[i].stored};
            after_set({changed, static_cast<size_t>(count)});
        }
    }
    free_entries(entries, count);
    free(changed);
    return result;
}

int KOVAUserSetOne(const char *szOldName, PKOVAUSER pUser) {
    const char *old_names[] = {szOldName};
    PKOVAUSER users[] = {pUser};
    return KOVAUserSet(old_names, users, 1);
}
