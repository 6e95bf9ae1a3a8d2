// Event and type texts from the message catalogue, and the time format of the text lines.
#include <syslog.h>
#include <unistd.h>

#include <cerrno>
#include <climits>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>

#include "core/alloc.h"
#include "core/fail.h"
#include "core/root.h"
#include "kovasdk/file.h"
#include "log/log_internal.h"

PKLIBSZHASH gpshEvent = nullptr;

namespace {

constexpr int kEventHashData = 2048 * 64;  // room for about 2,048 texts before it grows
constexpr char kTypeSection[] = "11000000";

void catalogue_path(const char *lang, char *path, size_t size) {
    char file[PATH_MAX];
    snprintf(file, sizeof file, "/usr/kova/kovasdk/texts/%s/events", lang);
    const kova::RootedPath rooted(file);
    snprintf(path, size, "%s", rooted.c_str());
}

bool section_exists(const char *catalogue, const char *section) {
    PKLIBSZLIST sections = nullptr;
    bool found = false;
    if (KLIBFileEnumSection(catalogue, &sections) >= 0 && sections != nullptr) {
        for (int i = 0; i < sections->nItem && !found; ++i)
            found = strcmp(sections->pszItem[i], section) == 0;
    }
    KLIBSzListFree(sections);
    return found;
}

// The catalogue's text for the entry, loading its whole section on a miss; null when the
// catalogue has none (remembered as an empty text, so the file is not read again for it).
const char *lookup(const char *section, const char *entry, const char *lang) {
    if (gpshEvent == nullptr) {
        gpshEvent = PshKLIBSzHashAlloc(kEventHashData);
        if (gpshEvent == nullptr) {
            kova::log(LOG_ERR, "malloc event hash failed");
            return nullptr;
        }
    }
    if (const char *text = SzKLIBSzHashGetValue(gpshEvent, entry); text != nullptr) return text;
    char catalogue[PATH_MAX];
    catalogue_path(lang, catalogue, sizeof catalogue);
    const int before = KLIBSzHashPairNum(gpshEvent);
    if (KLIBFileGetSection(catalogue, section, &gpshEvent) < 0) return nullptr;
    if (KLIBSzHashPairNum(gpshEvent) == before && !section_exists(catalogue, section)) {
        kova::log(LOG_ERR, "section %s not found in %s", section, catalogue);
        return nullptr;
    }
    if (const char *text = SzKLIBSzHashGetValue(gpshEvent, entry); text != nullptr) return text;
    KLIBSzHashSetValue(&gpshEvent, entry, "");
    kova::log(LOG_ERR, "event %s not found in %s", entry, section);
    return nullptr;
}

}  // namespace

char *KOVALogConvertEventKey(uint32_t dwEventKey, const char *szLang, const char *szArg1,
                             const char *szArg2, const char *szArg3, const char *szArg4) {
    const char *lang = szLang != nullptr ? szLang : "enu";
    char section[16];
    char entry[16];
    snprintf(section, sizeof section, "%lX", static_cast<unsigned long>(dwEventKey & ~0xFFFFFu));
    snprintf(entry, sizeof entry, "%lX", static_cast<unsigned long>(dwEventKey));
    const char *text = lookup(section, entry, lang);
    if (text == nullptr || text[0] == '\0') return nullptr;
    // One pass from left to right: an argument's own "@n" is never filled in again.
    const char *args[4] = {szArg1, szArg2, szArg3, szArg4};
    size_t size = 1;
    for (const char *p = text; *p != '\0'; ++p) {
        const int n = p[0] == '@' && p[1] >= '1' && p[1] <= '4' ? p[1] - '1' : -1;
        if (n >= 0 && args[n] != nullptr && args[n][0] != '\0') {
            size += strlen(args[n]);
            ++p;
        } else {
            ++size;
        }
    }
    auto *out = static_cast<char *>(kova::xmalloc(size));
    if (out == nullptr) {
        kova::fail(ERR_OUT_OF_MEMORY);
        return nullptr;
    }
    char *to = out;
    for (const char *p = text; *p != '\0'; ++p) {
        const int n = p[0] == '@' && p[1] >= '1' && p[1] <= '4' ? p[1] - '1' : -1;
        if (n >= 0 && args[n] != nullptr && args[n][0] != '\0') {
            const size_t length = strlen(args[n]);
            memcpy(to, args[n], length);
            to += length;
            ++p;
        } else {
            *to++ = *p;
        }
    }
    *to = '\0';
    return out;
}

char *KOVALogConvertType(int iType, const char *szLang) {
    static char type[12];
    char entry[16];
    snprintf(entry, sizeof entry, "%s", kTypeSection);
    if (iType >= 1 && iType <= 3) entry[7] = static_cast<char>('0' + iType);
    const char *text = lookup(kTypeSection, entry, szLang != nullptr ? szLang : "enu");
    snprintf(type, sizeof type, "%s", text != nullptr && text[0] != '\0' ? text : "Unknown");
    return type;
}

char *KOVALogConvertTime1(time_t tTime) {
    static char text[KOVA_LOG_TIME_MAX];
    struct tm tm {};
    if (localtime_r(&tTime, &tm) == nullptr ||
        strftime(text, sizeof text, "%Y/%m/%d %H:%M:%S", &tm) == 0) {
        text[0] = '\0';
    }
    return text;
}

int KOVALogICovertTimeFmt(const char *szTime, char *szOut) {
    if (szTime == nullptr || szOut == nullptr) return kova::fail(ERR_BAD_PARAMETERS);
    char *end = nullptr;
    errno = 0;
    const long long seconds = strtoll(szTime, &end, 10);
    if (end == szTime || errno != 0) return kova::fail(ERR_BAD_PARAMETERS);
    snprintf(szOut, KOVA_LOG_TIME_MAX, "%s", KOVALogConvertTime1(static_cast<time_t>(seconds)));
    return 0;
}

int KOVALogIDump(void) {
    return 0;
}
