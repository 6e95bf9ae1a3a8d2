// The share's access lists: repeats removed, existing users and groups kept, the consistency of
// the three lists, and the lists as one list of rights.
#include <strings.h>

#include <cstring>

#include "core/alloc.h"
#include "core/owners.h"
#include "kovasdk/hash.h"
#include "kovasdk/kstring.h"
#include "share/share_internal.h"
#include "user/user_internal.h"

namespace {

// The list of a comma-separated string (empty names left out), or null (raised).
PKLIBSZLIST split(const char *names) {
    PKLIBSZLIST list = PslKLIBSzListAlloc(0);
    if (list == nullptr) return nullptr;
    if (names != nullptr && names[0] != '\0' && KLIBStrTok(names, ",", &list) < 0) {
        KLIBSzListFree(list);
        return nullptr;
    }
    return list;
}

struct ListOwner {
    PKLIBSZLIST p;
    ~ListOwner() { KLIBSzListFree(p); }
};

}  // namespace

int RemoveSameUsers(char *szList) {
    if (szList == nullptr) return kova::fail(ERR_BAD_PARAMETERS);
    ListOwner names{split(szList)};
    if (names.p == nullptr) return -1;
    char *out = szList;
    int kept = 0;
    for (int i = 0; i < names.p->nItem; ++i) {
        const char *name = SzKLIBSzListGet(names.p, i);
        bool seen = false;
        for (int j = 0; j < i && !seen; ++j)
            seen = strcasecmp(SzKLIBSzListGet(names.p, j), name) == 0;
        if (seen) continue;
        if (kept++ > 0) *out++ = ',';
        out = stpcpy(out, name);
    }
    *out = '\0';
    return kept;
}

int KOVAStrFilterOutNobody(const char *szNames, PKLIBSZLIST *ppList) {
    return KOVAStrNobodyFilter(szNames, ppList);
}

int KOVAUserGetValidUserList2(PKOVAUSERDB pUserDb, PKOVAGROUPDB pGroupDb, const char *szList,
                              PKLIBSZLIST *ppList) {
    if (pUserDb == nullptr || pGroupDb == nullptr || szList == nullptr || ppList == nullptr ||
        *ppList == nullptr) {
        return kova::fail(ERR_BAD_PARAMETERS);
    }
    ListOwner given{split(szList)};
    if (given.p == nullptr) return -1;
    int count = 0;
    for (int i = 0; i < given.p->nItem; ++i) {
        const char *item = SzKLIBSzListGet(given.p, i);
        if (item[0] != '@') {
            const int n = KOVAUserGetValidUserList(pUserDb, item, ppList);
            if (n < 0) return -1;
            count += n;
            continue;
        }
        char upper[kova::user::kKeySize];
        const int len = kova::user::upper_key(item + 1, upper);
        if (len <= 1) continue;
        kova::user::Text line;
        if (kova::user::get_text(pGroupDb->pGRPName, upper, len, &line.data, &line.cap) != 0) {
            if (KLIBErrGet() == ERR_KEY_NOT_FOUND) continue;
            return -1;
        }
        char *colon = strchr(line.data, ':');
        if (colon != nullptr) *colon = '\0';
        char entry[kova::user::kKeySize + 1];
        snprintf(entry, sizeof entry, "@%s", line.data);
        if (KLIBSzListCaseFind(*ppList, entry) >= 0) continue;
        if (KLIBSzListPush(ppList, entry) < 0) return -1;
        ++count;
    }
    return count;
}

namespace {

// Tags every user of one list: its "@" entries first (through the group's members), then its
// users. The result rises to 1 for a repeat within the list, to 2 for a user of another list.
int tag_list(PKLIBSZLIST list, const char *tag, PKLIBSZHASH *tags, int *result) {
    if (list == nullptr) return 0;
    auto tag_user = [&](const char *user) {
        char key[kova::user::kKeySize];
        if (kova::user::upper_key(user, key) < 0) return true;  // no user can have that name
        const char *had = SzKLIBSzHashGetValue(*tags, key);
        if (had != nullptr) {
            const int found = strcmp(had, tag) == 0 ? 1 : 2;
            if (found > *result) *result = found;
            return true;
        }
        return KLIBSzHashSetValue(tags, key, tag) >= 0;
    };
    for (int pass = 0; pass < 2; ++pass) {
        for (int i = 0; i < list->nItem; ++i) {
            const char *item = SzKLIBSzListGet(list, i);
            const bool group = item[0] == '@';
            if (group != (pass == 0)) continue;
            if (!group) {
                if (!tag_user(item)) return -1;
                continue;
            }
            ListOwner members{PslKLIBSzListAlloc(0)};
            if (members.p == nullptr) return -1;
            if (KOVAGroupListMember(item + 1, &members.p) < 0) {
                if (KLIBErrGet() == ERR_NO_SUCH_GROUP) continue;
                return -1;
            }
            for (int j = 0; j < members.p->nItem; ++j)
                if (!tag_user(SzKLIBSzListGet(members.p, j))) return -1;
        }
    }
    return 0;
}

}  // namespace

int UserCheckRights(PKLIBSZLIST pDeny, PKLIBSZLIST pRW, PKLIBSZLIST pRO) {
    PKLIBSZHASH tags = PshKLIBSzHashAlloc(0);
    if (tags == nullptr) return -1;
    int result = 0;
    const bool ok = tag_list(pDeny, "na", &tags, &result) == 0 &&
                    tag_list(pRW, "rw", &tags, &result) == 0 &&
                    tag_list(pRO, "ro", &tags, &result) == 0;
    KLIBSzHashFree(tags);
    return ok ? result : -1;
}

int ParseRights(const char *szDeny, const char *szRW, const char *szRO, PKLIBSZLIST *ppList) {
    if (ppList == nullptr || *ppList == nullptr) return kova::fail(ERR_BAD_PARAMETERS);
    ListOwner entries{PslKLIBSzListAlloc(0)};
    if (entries.p == nullptr) return -1;
    const struct {
        const char *list;
        const char *right;
    } lists[] = {{szDeny, "NA"}, {szRW, "RW"}, {szRO, "RO"}};
    for (const auto &list : lists) {
        ListOwner names{split(list.list)};
        if (names.p == nullptr) return -1;
        for (int i = 0; i < names.p->nItem; ++i) {
            const char *name = SzKLIBSzListGet(names.p, i);
            if (strcmp(name, "nobody") == 0) continue;
            // A name already given a right by an earlier list keeps it.
            bool seen = false;
            const size_t len = strlen(name);
            for (int j = 0; j < entries.p->nItem && !seen; ++j) {
                const char *entry = SzKLIBSzListGet(entries.p, j);
                seen = strncasecmp(entry, name, len) == 0 && strncmp(entry + len, " - ", 3) == 0;
            }
            if (seen) continue;
            char entry[kova::user::kKeySize + 8];
            snprintf(entry, sizeof entry, "%s - %s", name, list.right);
            if (KLIBSzListPush(&entries.p, entry) < 0) return -1;
        }
    }
    if (KLIBSzListSortItems(entries.p, KLIB_SZLIST_SORT_CASE) < 0) return -1;
    int pushed = 0;
    for (int i = 0; i < entries.p->nItem; ++i, ++pushed)
        if (KLIBSzListPush(ppList, SzKLIBSzListGet(entries.p, i)) < 0) return -1;
    return pushed;
}
