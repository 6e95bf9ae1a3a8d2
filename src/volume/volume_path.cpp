// Volume paths: their location and number, the conversions between volumes, groups and
// arrays, and the number of a path inside a volume.
#include <cerrno>
#include <climits>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "volume/volume_internal.h"

using namespace kova;
using namespace kova::volume;

namespace {

constexpr size_t kIdPathMin = 8;
constexpr size_t kIdPathMax = 485;

struct Prefix {
    const char *text;
    int location;
    bool digits_only;  // the rest must be digits; otherwise atoi of the rest, unchecked
};
// Tested in this order: the longer prefixes before "/volume".
constexpr Prefix kPrefixes[] = {{"/volumeX", VOLUME_LOCATION_EBOX, true},
                                {"/volumeUSB", VOLUME_LOCATION_USB, false},
                                {"/volumeSATA", VOLUME_LOCATION_SATA, false},
                                {"/volume", VOLUME_LOCATION_INTERNAL, true}};

// A whole decimal number that fits an int.
bool all_digits(const char *text, int *number) {
    if (*text == '\0') return false;
    long long value = 0;  // wide enough on 32-bit targets to see INT_MAX passed
    for (const char *p = text; *p != '\0'; p++) {
        if (*p < '0' || *p > '9') return false;
        value = value * 10 + (*p - '0');
        if (value > INT_MAX) return false;
    }
    *number = static_cast<int>(value);
    return true;
}

bool starts_with(const char *text, const char *prefix) {
    return strncmp(text, prefix, strlen(prefix)) == 0;
}

// printf into the caller's buffer: 0, or -1 (ERR_NOT_ENOUGH_MEMORY) when it does not fit.
template <class... Args>
int put(char *buf, int size, const char *format, Args... args) {
    const int n = snprintf(buf, static_cast<size_t>(size), format, args...);
    if (n < 0 || n >= size) return fail(ERR_NOT_ENOUGH_MEMORY);
    return 0;
}

int parsed(const char *path, VOLUME_INFO *info) {
    if (VolumePathParse(path, info) == 1) return 0;
    return fail(ERR_BAD_PARAMETERS, Site(), "%s:%d Failed to parse volume path %s, errno=%d", path,
                errno);
}

int volume_to_vg(const char *path, char *buf, int size) {
    VOLUME_INFO info{};
    if (parsed(path, &info) != 0) return -1;
    if (info.location != VOLUME_LOCATION_INTERNAL)
        return fail(ERR_BAD_PARAMETERS, Site(), "%s:%d Not supported path: %s", path);
    return put(buf, size, "/dev/vg%d", info.num);
}

int volume_to_md(const char *path, char *buf, int size) {
    VOLUME_INFO info{};
    if (parsed(path, &info) != 0) return -1;
    if (info.location == VOLUME_LOCATION_INTERNAL) return put(buf, size, "/dev/md%d", info.num + 1);
    if (info.location == VOLUME_LOCATION_EBOX)
        return put(buf, size, "/dev/md%d", info.num + kEboxBase);
    return fail(ERR_BAD_PARAMETERS, Site(), "%s:%d Not supported path: %s", path);
}

// The group listing the array as a physical volume: 1 with its path, 0 none, -1.
int group_of(const char *md_path, char (&vg_path)[128]) {
    int found = 0;
    const int rc = each_pv([&](const PvLine &line) {
        if (strcmp(line.path, md_path) != 0) return true;
        found = snprintf(vg_path, sizeof vg_path, "/dev/%s", line.group) < 128 ? 1 : 0;
        return found == 0;
    });
    return rc != 0 ? -1 : found;
}

int md_to_volume(const char *path, char *buf, int size) {
    int md = 0;
    if (!parse_md(path, &md) || md < 2)
        return fail(ERR_BAD_PARAMETERS, Site(), kParseRaidFailed, path);
    if (md > kEboxBase) return put(buf, size, "/volumeX%d", md - kEboxBase);
    char vg[128];
    const int grouped = group_of(path, vg);
    if (grouped < 0) {
        log_at(LOG_ERR, Site(), "%s:%d Failed to search path [%s] in VG list ", path);
        return -1;
    }
    if (grouped == 1) return VolumePathSwitch(vg, VOLUME_SWITCH_VG_TO_VOL, buf, size);
    return put(buf, size, "/volume%d", md - 1);
}

int vg_to_volume(const char *path, char *buf, int size) {
    int n = 0;
    if (!starts_with(path, kVgPrefix) || !all_digits(path + strlen(kVgPrefix), &n))
        return fail(ERR_BAD_PARAMETERS, Site(), "%s:%d Failed to parse lvm vg path %s, errno=%m",
                    path);
    return put(buf, size, "/volume%d", n);
}

// The volume part of a longer path: its first component, and for a USB volume the share
// directory below it (/volumeUSB1/usbshare).
int volume_of(const char *path, char *buf, int size) {
    const char *end = starts_with(path, kVolumePrefix) ? strchr(path + 1, '/') : nullptr;
    if (end != nullptr && starts_with(path, "/volumeUSB") && end[1] != '\0') {
        const char *share_end = strchr(end + 1, '/');
        end = share_end;
    }
    const size_t length = end != nullptr ? static_cast<size_t>(end - path) : strlen(path);
    char part[PATH_MAX];
    VOLUME_INFO info{};
    if (length >= sizeof part ||
        snprintf(part, sizeof part, "%.*s", static_cast<int>(length), path) < 0 ||
        VolumePathParse(part, &info) != 1)
        return fail(ERR_BAD_PARAMETERS, Site(), "%s:%d Illegal volume path %s", path);
    return put(buf, size, "%s", part);
}

}  // namespace

namespace kova::volume {

bool parse_md(const char *path, int *number) {
    return path != nullptr && starts_with(path, kMdPrefix) &&
           all_digits(path + strlen(kMdPrefix), number);
}

}  // namespace kova::volume

int VolumePathParse(const char *szPath, PVOLUME_INFO pInfo) {
    if (szPath == nullptr || pInfo == nullptr) return fail(ERR_BAD_PARAMETERS);
    for (const Prefix &prefix : kPrefixes) {
        if (!starts_with(szPath, prefix.text)) continue;
        const char *rest = szPath + strlen(prefix.text);
        int number = 0;
        if (prefix.digits_only && !all_digits(rest, &number)) break;
        if (!prefix.digits_only) number = atoi(rest);
        pInfo->num = number;
        pInfo->location = prefix.location;
        return 1;
    }
    log_at(LOG_DEBUG, Site(), "%s:%d NOT supported volume path: %s", szPath);
    return 0;
}

int VolumePathSwitch(const char *szPath, int option, char *szBuf, int cbBuf) {
    if (szPath == nullptr || szBuf == nullptr || cbBuf <= 0) return fail(ERR_BAD_PARAMETERS);
    switch (option) {
        case VOLUME_SWITCH_VOL_TO_VG:
            return volume_to_vg(szPath, szBuf, cbBuf);
        case VOLUME_SWITCH_VOL_TO_MD:
            return volume_to_md(szPath, szBuf, cbBuf);
        case VOLUME_SWITCH_MD_TO_VOL:
            return md_to_volume(szPath, szBuf, cbBuf);
        case VOLUME_SWITCH_VG_TO_VOL:
            return vg_to_volume(szPath, szBuf, cbBuf);
        case VOLUME_SWITCH_VOL_OF_PATH:
            return volume_of(szPath, szBuf, cbBuf);
    }
    return fail(ERR_BAD_PARAMETERS, Site(), "%s:%d bad parameter, option=%d", option);
}

int KOVAVolIDParse(const char *szPath) {
    if (szPath == nullptr) return fail(ERR_BAD_PARAMETERS);
    const size_t length = strlen(szPath);
    if (length < kIdPathMin || length > kIdPathMax || !starts_with(szPath, kVolumePrefix))
        return fail(ERR_BAD_PARAMETERS);
    // scanf's reading, kept: "%d" takes a sign, and "%s" wants one word after the slash.
    int number = 0;
    int snapshot = 0;
    char word[2];
    if (sscanf(szPath, "/volume%d/%1s", &number, word) == 2) return number;
    if (sscanf(szPath, "/volume%d.snap_%d/%1s", &number, &snapshot, word) == 3) return number;
    return fail(kErrNoVolumeId);
}
