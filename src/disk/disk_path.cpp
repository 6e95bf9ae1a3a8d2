// Disk paths: parsing /dev/sd names and the container class of a disk.
#include <cctype>
#include <cstring>

#include "core/paths.h"
#include "core/root.h"
#include "disk/disk_internal.h"
#include "kovasdk/file.h"

using namespace kova;
using namespace kova::disk;

int DiskPathParse(const char *szPath, PDISK_INFO pInfo) {
    if (szPath == nullptr || pInfo == nullptr) return fail(ERR_BAD_PARAMETERS);
    // "/dev/sd" and at most two more characters; the letter of a one-letter name is not
    // checked further (so "/dev/sd" alone gives idx -96, as it always has).
    if (strncmp(szPath, "/dev/sd", 7) != 0 || strlen(szPath + 7) >= 3) {
        log_at(LOG_ERR, Site(), kBadPath, szPath);
        return -1;
    }
    const unsigned char first = szPath[7];
    const unsigned char second = first != '\0' ? szPath[8] : '\0';
    if (islower(first) && islower(second)) {
        pInfo->firstIdx = first - 96;
        pInfo->nameLen = 2;
        pInfo->idx = second - 96;
    } else {
        pInfo->firstIdx = 0;
        pInfo->nameLen = 1;
        pInfo->idx = first - 96;
    }
    return 0;
}

int DiskContainerGet(const char *szPath, int *pClass) {
    if (szPath == nullptr || pClass == nullptr || strlen(szPath) <= 2) {
        log_at(LOG_ERR, Site(), kBadParams);
        return -1;
    }
    const char *name;
    const char *letters;
    if (strncmp(szPath, "/dev/sd", 7) == 0) {
        name = szPath + 5;
        letters = szPath + 7;
    } else if (strncmp(szPath, "sd", 2) == 0) {
        name = szPath;
        letters = szPath + 2;
    } else {
        return -1;
    }
    const size_t count = strlen(letters);
    if (count == 1) {
        const unsigned char letter = letters[0];
        if (!isalpha(letter)) return -1;
        if (letter >= 'a' && letter <= 'j') {
            char esata[16] = "";
            const RootedPath factory(paths::kKovaInfoDefaults);
            const bool is_esata =
                KLIBFileGetKeyValue(factory.c_str(), kKeyEsata, esata, sizeof esata, 0) > 1 &&
                strcmp(esata, name) == 0;
            *pClass = is_esata ? DISK_CONTAINER_ESATA : DISK_CONTAINER_INTERNAL;
            return 0;
        }
        if (letter >= 'k' && letter <= 'z') {
            *pClass = DISK_CONTAINER_EXTERNAL;
            return 0;
        }
        return -1;
    }
    if (count == 2 && isalpha(static_cast<unsigned char>(letters[0])) &&
        isalpha(static_cast<unsigned char>(letters[1]))) {
        *pClass = DISK_CONTAINER_TWO_LETTER;
        return 0;
    }
    return -1;
}
