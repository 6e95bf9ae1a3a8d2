// The share-name rule, section kinds and names, and the default access in the file's keys.
#include <strings.h>

#include <cstring>
#include <initializer_list>

#include "share/share_internal.h"

// The user-name rule with at most 32 characters.
int BlKLIBIsShareName(const char *szName) {
    if (BlKLIBIsUserName(szName) != 1) return 0;
    int characters = 0;
    for (const char *p = szName; *p != '\0'; ++p) {
        if ((static_cast<unsigned char>(*p) & 0xC0) != 0x80) ++characters;
    }
    return characters <= KOVA_SHARE_NAME_MAX_CHARS ? 1 : 0;
}

int ShareSectionTypeGet(const char *szSection) {
    if (szSection == nullptr) return kova::fail(ERR_BAD_PARAMETERS);
    for (const char *reserved : {"global", "home", "printers"}) {
        if (strcasecmp(szSection, reserved) == 0) return KOVA_SHARE_SECTION_RESERVED;
    }
    return KOVA_SHARE_SECTION_SHARE;
}

int ShareParseSectionName(const char *szLine, char *szName, int cbName) {
    if (szLine == nullptr || szName == nullptr || cbName <= 0) {
        return kova::fail(ERR_BAD_PARAMETERS);
    }
    const char *open = strchr(szLine, '[');
    const char *close = strrchr(szLine, ']');
    if (open == nullptr || close == nullptr || close < open) return kova::fail(ERR_FORMAT_ERROR);
    const auto len = static_cast<size_t>(close - open - 1);
    if (len + 1 > static_cast<size_t>(cbName)) return kova::fail(ERR_NOT_ENOUGH_MEMORY);
    memcpy(szName, open + 1, len);
    szName[len] = '\0';
    return static_cast<int>(len + 1);
}

namespace {

struct Access {
    const char *guest_ok;
    const char *writeable;
    int32_t type;
};
constexpr Access kAccess[] = {
    {"yes", "yes", KOVA_SHARE_READ_WRITE},
    {"yes", "no", KOVA_SHARE_READ_ONLY},
    {"no", "no", KOVA_SHARE_NO_ACCESS},
};

}  // namespace

int ShareFTypeGetFormConf(const char *szGuestOk, const char *szWriteable) {
    if (szGuestOk != nullptr && szWriteable != nullptr) {
        for (const Access &access : kAccess) {
            if (strcmp(szGuestOk, access.guest_ok) == 0 &&
                strcmp(szWriteable, access.writeable) == 0) {
                return access.type;
            }
        }
    }
    return kova::fail(ERR_UNKNOWN);
}

int ShareFTypeSetToConf(int32_t fType, const char **pszGuestOk, const char **pszWriteable) {
    if (pszGuestOk == nullptr || pszWriteable == nullptr) return kova::fail(ERR_BAD_PARAMETERS);
    for (const Access &access : kAccess) {
        if (access.type == fType) {
            *pszGuestOk = access.guest_ok;
            *pszWriteable = access.writeable;
            return 0;
        }
    }
    return kova::fail(ERR_BAD_PARAMETERS);
}
