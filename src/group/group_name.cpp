// The group-name rule: the user-name rule with at most 15 characters.
#include "group/group_internal.h"

int BlKLIBIsGroupName(const char *szName) {
    if (BlKLIBIsUserName(szName) != 1) return 0;
    int characters = 0;
    for (const char *p = szName; *p != '\0'; ++p) {
        if ((static_cast<unsigned char>(*p) & 0xC0) != 0x80) ++characters;
    }
    return characters <= KOVA_GROUP_NAME_MAX_CHARS ? 1 : 0;
}
