// The reserved sections ([global], [home], [printers]) as key-value hashes, and the walks of
// the share cache: by cursor, all names, names by default access, by regular expression and by
// mount path.
#include <regex.h>

#include <cstring>

#include "kovasdk/bdb.h"
#include "kovasdk/hash.h"
#include "kovasdk/kstring.h"
#include "share/share_internal.h"

namespace kova::share {
namespace {

PKOVASHAREDB as_db(void *handle) {
    return static_cast<PKOVASHAREDB>(handle);
}

bool reserved(const char *section) {
    if (section != nullptr && ShareSectionTypeGet(section) == KOVA_SHARE_SECTION_RESERVED) {
        return true;
    }
    log_at(LOG_ERR, Site(), "%s:%d [%s] is not a reserved section",
           section != nullptr ? section : "(null)");
    return false;
}

// "#" and the section's name upper-cased (C locale): the key of its list.
int list_key(const char *section, char (&key)[64]) {
    const int n = snprintf(key, sizeof key, "#%s", section);
    if (n < 0 || static_cast<size_t>(n) >= sizeof key) return fail(ERR_BAD_PARAMETERS);
    for (char *c = key; *c != '\0'; ++c)
        if (*c >= 'a' && *c <= 'z') *c = static_cast<char>(*c - 'a' + 'A');
    return n + 1;
}

// Every share of the cache in key order: visit(share) false stops (-1).
template <class Visit>
int each_share(PKOVASHAREDB db, Visit &&visit) {
    if (KOVABDbCursorSetType(db->pShareDb, KOVA_BDB_CURSOR_FIRST) != 0) return -1;
    PKOVASHARE share = nullptr;
    int result = 0;
    for (;;) {
        if (KOVAShareDBCursorGet(db, KOVA_BDB_CURSOR_NEXT, &share) != 0) {
            if (KLIBErrGet() != ERR_BDB_END_OF_RECORDS) result = -1;
            break;
        }
        if (!visit(*share)) {
            result = -1;
            break;
        }
    }
    KOVAShareFree(share);
    return result;
}

// The names of the shares that match, pushed onto *list: their number, or -1.
template <class Match>
int names_where(PKLIBSZLIST *list, Match &&match) {
    if (list == nullptr || *list == nullptr) return fail(ERR_BAD_PARAMETERS);
    int count = 0;
    const int walked = kept().read([&](void *db) {
        return each_share(as_db(db), [&](const KOVASHARE &share) {
            if (!match(share)) return true;
            if (KLIBSzListPush(list, share.szName) < 0) return false;
            ++count;
            return true;
        });
    });
    return walked != 0 ? -1 : count;
}

}  // namespace
}  // namespace kova::share

using kova::share::as_db;

// Walking on from where the cursor stands: FIRST to begin, NEXT to go on. Lists of reserved
// sections and bookkeeping records are passed over.
int KOVAShareDBCursorGet(PKOVASHAREDB pShareDb, int32_t cursorType, PKOVASHARE *ppShare) {
    if (pShareDb == nullptr || ppShare == nullptr) return kova::fail(ERR_BAD_PARAMETERS);
    if (cursorType == KOVA_BDB_CURSOR_FIRST &&
        KOVABDbCursorSetType(pShareDb->pShareDb, KOVA_BDB_CURSOR_FIRST) != 0) {
        return -1;
    }
    void *key = nullptr, *data = nullptr;
    int32_t key_len = 0, size = 0;
    int result = KOVABDbCursorGet(pShareDb->pShareDb, 1, &key, &key_len, &data, &size);
    if (result == 0) result = KOVAShareDBUnpack(data, size, ppShare);
    free(key);
    free(data);
    return result;
}

int KOVAShareDBEnumI(PKOVASHAREDB pShareDb, PKLIBSZLIST *ppList) {
    return KOVAShareDBEnumTypeMatched(pShareDb, 0, ppList);
}

int KOVAShareDBEnumTypeMatched(PKOVASHAREDB pShareDb, int32_t fType, PKLIBSZLIST *ppList) {
    if (pShareDb == nullptr || ppList == nullptr || *ppList == nullptr) {
        return kova::fail(ERR_BAD_PARAMETERS);
    }
    int count = 0;
    const int walked = kova::share::each_share(pShareDb, [&](const KOVASHARE &share) {
        if (fType != 0 && share.fType != fType) return true;
        if (KLIBSzListPush(ppList, share.szName) < 0) return false;
        ++count;
        return true;
    });
    return walked != 0 ? -1 : count;
}

int KOVAShareEnumByRegex(PKLIBSZLIST *ppList, const char *szRegex) {
    if (szRegex == nullptr) return kova::fail(ERR_BAD_PARAMETERS);
    regex_t regex;
    if (regcomp(&regex, szRegex, REG_EXTENDED | REG_NOSUB) != 0) {
        return kova::fail(ERR_BAD_PARAMETERS);
    }
    const int count = kova::share::names_where(ppList, [&](const KOVASHARE &share) {
        return regexec(&regex, share.szName, 0, nullptr, 0) == 0;
    });
    regfree(&regex);
    return count;
}

int KOVAShareEnumByMntPath(PKLIBSZLIST *ppList, const char *szMntPath) {
    if (szMntPath == nullptr || szMntPath[0] != '/') return kova::fail(ERR_BAD_PARAMETERS);
    size_t len = strlen(szMntPath);
    while (len > 1 && szMntPath[len - 1] == '/')
        --len;
    return kova::share::names_where(ppList, [&](const KOVASHARE &share) {
        return strncmp(share.szPath, szMntPath, len) == 0 &&
               (share.szPath[len] == '/' || share.szPath[len] == '\0' || len == 1);
    });
}

int KOVAShareRSectionGet(const char *szSection, PKLIBSZHASH *ppHash) {
    using namespace kova::share;
    if (ppHash == nullptr || *ppHash == nullptr) return kova::fail(ERR_BAD_PARAMETERS);
    if (!reserved(szSection)) return kova::fail(ERR_BAD_PARAMETERS);
    char key[64];
    const int len = list_key(szSection, key);
    if (len < 0) return -1;
    return kept().read([&](void *handle) {
        void *data = nullptr;
        int32_t size = 0;
        if (KOVABDbGet(as_db(handle)->pShareDb, key, len, &data, &size) != 0) {
            return KLIBErrGet() == ERR_KEY_NOT_FOUND ? kova::fail(ERR_SECTION_NOT_FOUND) : -1;
        }
        PKLIBSZLIST lines = KOVAListDBUnpack(data, size);
        free(data);
        if (lines == nullptr) return -1;
        int result = 0;
        PKLIBSZLIST pair = PslKLIBSzListAlloc(0);
        for (int i = 0; pair != nullptr && result == 0 && i < lines->nItem; ++i) {
            KLIBSzListRemoveAll(pair);
            if (KLIBStrSepPair(SzKLIBSzListGet(lines, i), &pair) != 0) continue;
            char name[256];
            snprintf(name, sizeof name, "%s", SzKLIBSzListGet(pair, 0));
            SzKLIBStrCaseLower(name, 0, nullptr, sizeof name);
            if (KLIBSzHashSetValue(ppHash, name, SzKLIBSzListGet(pair, 1)) < 0) result = -1;
        }
        if (pair == nullptr) result = -1;
        KLIBSzListFree(pair);
        KLIBSzListFree(lines);
        return result;
    });
}

int KOVAShareRSectionSet(const char *szSection, PKLIBSZHASH pHash) {
    using namespace kova::share;
    if (pHash == nullptr) return kova::fail(ERR_BAD_PARAMETERS);
    if (!reserved(szSection)) return kova::fail(ERR_BAD_PARAMETERS);
    PKLIBSZLIST keys = PslKLIBSzListAlloc(0);
    PKLIBSZLIST lines = PslKLIBSzListAlloc(0);
    int result =
        keys != nullptr && lines != nullptr && KLIBSzHashEnumKey(pHash, &keys) >= 0 ? 0 : -1;
    for (int i = 0; result == 0 && i < keys->nItem; ++i) {
        const char *name = SzKLIBSzListGet(keys, i);
        const char *value = SzKLIBSzHashGetValue(pHash, name);
        char line[4096];
        snprintf(line, sizeof line, "%s=%s", name, value != nullptr ? value : "");
        if (KLIBSzListPush(&lines, line) < 0) result = -1;
    }
    if (result == 0) {
        Writer writer;
        if (!writer.ok()) {
            result = -1;
        } else if (KOVAListDBSet(writer.db()->pShareDb, szSection, lines) != 0) {
            result = kova::fail(KLIBErrGet(), kova::Site(),
                                "%s:%d KOVAListDBSet [%s] failed. kovaerr=0x%04X", szSection,
                                KLIBErrGet());
        } else {
            result = writer.finish();
        }
    }
    KLIBSzListFree(keys);
    KLIBSzListFree(lines);
    return result;
}

int KOVAShareRSectionRemove(const char *szSection) {
    using namespace kova::share;
    if (!reserved(szSection)) return kova::fail(ERR_BAD_PARAMETERS);
    char key[64];
    const int len = list_key(szSection, key);
    if (len < 0) return -1;
    Writer writer;
    if (!writer.ok()) return -1;
    if (KOVABDbDelete(writer.db()->pShareDb, key, len) != 0) {
        return KLIBErrGet() == ERR_KEY_NOT_FOUND ? kova::fail(ERR_SECTION_NOT_FOUND) : -1;
    }
    return writer.finish();
}
