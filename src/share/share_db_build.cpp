// Filling an open, empty share cache from smb.conf: every share section as a record, every
// reserved section as a list of its "key=value" lines.
#include <strings.h>

#include <cstring>
#include <string_view>

#include "core/alloc.h"
#include "core/owners.h"
#include "kovasdk/kstring.h"
#include "share/share_internal.h"

namespace kova::share {
namespace {

// The list filtered to existing users and groups, joined again; failures logged and the list
// dropped. index names the list in the log line.
bool filtered(PKOVAUSERDB users, PKOVAGROUPDB groups, const char *list, int index,
              UniqueMalloc<char> &out) {
    out.reset();
    if (list == nullptr || list[0] == '\0') return true;
    PKLIBSZLIST valid = PslKLIBSzListAlloc(0);
    if (valid == nullptr) return false;
    const int n = KOVAUserGetValidUserList2(users, groups, list, &valid);
    if (n < 0) {
        log_at(LOG_NOTICE, Site(), "%s:%d KOVAUserGetValidUserList2 error. sz[%d]=[%s]", index,
               list);
    } else if (valid->nItem > 0) {
        char *joined = nullptr;
        int size = 0;
        if (KOVAStrJoin(valid->pszItem, valid->nItem, ",", &joined, &size) != 0) {
            KLIBSzListFree(valid);
            return false;
        }
        out.reset(joined);
    }
    KLIBSzListFree(valid);
    return true;
}

bool names_users(const char *list) {
    if (list == nullptr) return false;
    for (const char *at = list; *at != '\0';) {
        const char *end = strchr(at, ',');
        const size_t len = end != nullptr ? static_cast<size_t>(end - at) : strlen(at);
        if (len == 6 && strncasecmp(at, "@users", 6) == 0) return true;
        at = end != nullptr ? end + 1 : at + len;
    }
    return false;
}

// The section's comment without the quotes the dump puts around it.
UniqueMalloc<char> unquoted(const char *text) {
    const size_t size = text != nullptr ? strlen(text) + 1 : 1;
    UniqueMalloc<char> out(static_cast<char *>(xmalloc(size)));
    if (out) {
        memcpy(out.get(), text != nullptr ? text : "", size);
        KLIBStrTrimSpace(out.get(), nullptr);
    }
    return out;
}

}  // namespace
}  // namespace kova::share

int ShareAllocFromConf(const char *szSection, const KLIBSZHASH *pKeys, PKOVASHARE *ppShare) {
    using namespace kova::share;
    if (szSection == nullptr || pKeys == nullptr || ppShare == nullptr) {
        return kova::fail(ERR_BAD_PARAMETERS);
    }
    auto value = [&](const char *key) { return SzKLIBSzHashGetValue(pKeys, key); };
    PKOVAUSERDB users = KOVAUserDBOpen();
    PKOVAGROUPDB groups = KOVAGroupDBOpen();
    if (users == nullptr || groups == nullptr) {
        if (users != nullptr) KOVAUserDBClose(users);
        if (groups != nullptr) KOVAGroupDBClose(groups);
        return kova::fail(ERR_OPEN_FAILED);
    }
    kova::UniqueMalloc<char> lists[3];
    const char *keys[3] = {"invalid users", "write list", "read list"};
    bool ok = true;
    for (int i = 0; i < 3 && ok; ++i)
        ok = filtered(users, groups, value(keys[i]), i, lists[i]);
    KOVAGroupDBClose(groups);
    KOVAUserDBClose(users);
    kova::UniqueMalloc<char> comment = unquoted(value("comment"));
    if (!ok || !comment) return kova::fail(ERR_OUT_OF_MEMORY);

    KOVASHARE tmpl{};
    tmpl.szName = const_cast<char *>(szSection);
    tmpl.szComment = comment.get();
    tmpl.szPath = const_cast<char *>(value("path"));
    tmpl.szDenyList = lists[0].get();
    tmpl.szRWList = lists[1].get();
    tmpl.szROList = lists[2].get();
    constexpr int32_t kByList[3] = {KOVA_SHARE_NO_ACCESS, KOVA_SHARE_READ_WRITE,
                                    KOVA_SHARE_READ_ONLY};
    tmpl.fType = 0;
    for (int i = 0; i < 3 && tmpl.fType == 0; ++i)
        if (names_users(lists[i].get())) tmpl.fType = kByList[i];
    if (tmpl.fType == 0) {
        const char *guest_ok = value("guest ok");
        const char *writeable = value("writeable");
        tmpl.fType = ShareFTypeGetFormConf(guest_ok, writeable);
        if (tmpl.fType < 0) {
            kova::log_at(LOG_ERR, kova::Site(),
                         "%s:%d errno=%d unknown error!! guest ok = %s, writeable = %s", errno,
                         guest_ok != nullptr ? guest_ok : "NULL",
                         writeable != nullptr ? writeable : "NULL");
            tmpl.fType = KOVA_SHARE_READ_ONLY;
        }
    }
    const char *browseable = value("browseable");
    const char *ftp = value("ftp write only");
    tmpl.browseable = browseable == nullptr || strcmp(browseable, "no") != 0 ? 1 : 0;
    tmpl.ftpWriteOnly = ftp != nullptr && strcmp(ftp, "yes") == 0 ? 1 : 0;
    return KOVAShareAlloc(ppShare, &tmpl);
}

namespace kova::share {
namespace {

// The section being read: its name, kind and lines.
class Section {
  public:
    ~Section() { clear(); }
    bool open(const char *name) {
        clear();
        snprintf(name_, sizeof name_, "%s", name);
        kind_ = ShareSectionTypeGet(name);
        keys_ = PshKLIBSzHashAlloc(0);
        lines_ = PslKLIBSzListAlloc(0);
        return keys_ != nullptr && lines_ != nullptr;
    }
    bool add(const char *key, const char *value, const char *line) {
        if (keys_ == nullptr) return true;  // lines before the first section
        return KLIBSzHashSetValue(&keys_, key, value) >= 0 && KLIBSzListPush(&lines_, line) >= 0;
    }
    // Stores the section read so far (an empty one is skipped). 0 or -1.
    int store(PKOVASHAREDB db) {
        if (keys_ == nullptr || lines_->nItem == 0) return 0;
        if (kind_ == KOVA_SHARE_SECTION_RESERVED) return KOVAListDBSet(db->pShareDb, name_, lines_);
        if (kind_ != KOVA_SHARE_SECTION_SHARE) {
            return fail(ERR_SECTION_NOT_FOUND, Site(),
                        "%s:%d section type is unexpected! iSecType=%d", kind_);
        }
        PKOVASHARE share = nullptr;
        int result = ShareAllocFromConf(name_, keys_, &share);
        // A section given twice: the later one stands.
        if (result == 0) {
            const bool there = KOVAShareDBCheckExists(db, upper()) == 0;
            result = KOVAShareDBSet(db, there ? name_ : nullptr, share);
        }
        KOVAShareFree(share);
        return result;
    }

  private:
    const char *upper() {
        if (share_key(name_, upper_) < 0) upper_[0] = '\0';
        return upper_;
    }
    void clear() {
        KLIBSzHashFree(keys_);
        KLIBSzListFree(lines_);
        keys_ = nullptr;
        lines_ = nullptr;
    }
    char name_[kKeySize] = "";
    char upper_[kKeySize] = "";
    int kind_ = KOVA_SHARE_SECTION_SHARE;
    PKLIBSZHASH keys_ = nullptr;
    PKLIBSZLIST lines_ = nullptr;
};

int build(PKOVASHAREDB db) {
    UniqueFile file = user::open_source(kSmbConf);
    if (!file) return -1;
    LineReader reader(file.get());
    Section section;
    bool skipping = false;  // a section whose name could not be read
    char key[kKeySize], value[4096], line[kKeySize + sizeof value + 2];
    while (reader.next()) {
        const std::string_view text = user::chomp(reader);
        const size_t start = text.find_first_not_of(" \t");
        if (start == std::string_view::npos || text[start] == '#' || text[start] == ';') continue;
        if (text[start] == '[') {
            if (!skipping && section.store(db) != 0) {
                return fail(KLIBErrGet(), Site(), "%s:%d ShareDBSetOne() failed! kovaerr=0x%04X",
                            KLIBErrGet());
            }
            char name[kKeySize];
            skipping = ShareParseSectionName(text.data(), name, sizeof name) < 0;
            if (skipping) {
                log_at(LOG_ERR, Site(), "%s:%d Failed to parse section name[%s], kovaerr=0x%04X",
                       text.data(), KLIBErrGet());
            } else if (!section.open(name)) {
                return -1;
            }
            continue;
        }
        const size_t equals = text.find('=');
        if (skipping || equals == std::string_view::npos || equals - start >= sizeof key ||
            text.size() - equals > sizeof value) {
            continue;
        }
        memcpy(key, text.data() + start, equals - start);
        key[equals - start] = '\0';
        memcpy(value, text.data() + equals + 1, text.size() - equals);  // with the NUL
        KLIBStrTrimSpace(key, nullptr);
        if (key[0] == '\0') continue;
        SzKLIBStrCaseLower(key, 0, nullptr, sizeof key);
        KLIBStrTrimSpace(value, nullptr);
        snprintf(line, sizeof line, "%s=%s", key, value);
        if (!section.add(key, value, line)) return -1;
    }
    if (user::read_failed(reader)) return -1;
    if (!skipping && section.store(db) != 0) {
        return fail(KLIBErrGet(), Site(), "%s:%d ShareDBSetOne() failed! kovaerr=0x%04X",
                    KLIBErrGet());
    }
    return 0;
}

}  // namespace
}  // namespace kova::share

int KOVAShareDBBuild(PKOVASHAREDB pShareDb) {
    if (pShareDb == nullptr) return kova::fail(ERR_BAD_PARAMETERS);
    if (kova::share::build(pShareDb) != 0) return -1;
    return kova::cache::store_sync_times(kova::share::family(), pShareDb);
}
