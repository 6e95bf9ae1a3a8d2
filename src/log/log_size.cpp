// The log configuration file, the classes' sizes, and shrinking a log to a size.
#include <fcntl.h>
#include <sys/stat.h>
#include <syslog.h>
#include <unistd.h>

#include <climits>
#include <cstdio>
#include <cstring>

#include "core/alloc.h"
#include "core/fail.h"
#include "core/owners.h"
#include "core/sys.h"
#include "core/temp_file.h"
#include "kovasdk/file.h"
#include "log/log_internal.h"

using namespace kova::log_file;

namespace {

// The configuration in its defined order: each class's file, then its size.
constexpr const char *kConfFiles[][2] = {
    {"syslogfile", "/var/log/kovasys.log"},   {"manlogfile", "/var/log/kovaman1.log"},
    {"connlogfile", "/var/log/kovaconn.log"}, {"bkplogfile", "/var/log/kovabackup.log"},
    {"copylogfile", "/var/log/kovacopy.log"}, {"netbkplogfile", "/var/log/kovanetbkp.log"},
    {"surlogfile", "/var/log/kovasur.log"},
};

// Sizes a log may be set to: room for the header and a few records, and no more than a ring
// whose positions stay far from the 32-bit limits.
constexpr int kMinSize = 1024;
constexpr int kMaxSize = 1 << 30;

constexpr char kAtShrinkWrite[] = "sdk/kovalog1.c : line 533";

int shrink_failed(uint32_t code) {
    kova::log(LOG_ERR, "%s", kAtShrinkWrite);
    return kova::fail(code);
}

}  // namespace

int KOVASetLogConf(void) {
    char conf[PATH_MAX];
    conf_path(conf, sizeof conf);
    struct stat like = kova::new_file_owner(0644);
    const bool existed = stat(conf, &like) == 0;
    kova::TempFile out;
    if (!out.create(conf)) return kova::fail(ERR_OPEN_FAILED);
    // Each size key is its file key followed by "size_MAX".
    for (const auto &entry : kConfFiles) {
        fprintf(out.stream(), "%s\t=\t\"%s\"\n%ssize_MAX\t=\t\"%d\"\n", entry[0], entry[1],
                entry[0], kDefaultSize);
    }
    if (!(existed ? out.commit(like) : out.commit_new(like))) return kova::fail(ERR_OPEN_FAILED);
    return 0;
}

int KOVALogSetSize(int iSize, int iClass) {
    switch (iClass) {
        case KOVA_LOG_CLASS_SYS:
        case KOVA_LOG_CLASS_MAN:
        case KOVA_LOG_CLASS_CONN:
        case KOVA_LOG_CLASS_BKP:
        case KOVA_LOG_CLASS_COPY:
            break;
        default:
            return kova::fail(ERR_BAD_PARAMETERS);
    }
    if (iSize < kMinSize || iSize > kMaxSize) return kova::fail(ERR_BAD_PARAMETERS);
    char conf[PATH_MAX];
    conf_path(conf, sizeof conf);
    if (access(conf, F_OK) != 0) {
        if (KOVASetLogConf() < 0) {
            kova::log(LOG_ERR,
                      "logconf file created error while set size coz the logconf not exist!");
            return -1;
        }
        kova::log(LOG_INFO, "logconf file not exist! created one!");
    }
    char size[16];
    snprintf(size, sizeof size, "%d", iSize);
    if (KLIBFileSetKeyValue(conf, class_keys(iClass)->size_key, size, "%s=\t\"%s\"\n") < 0) {
        kova::log(LOG_ERR, "error occured in setkeyvalue in %s.", conf);
        return -1;
    }
    return KOVALogChangeSize(iSize, iClass);
}

int KOVALogChangeSize(int iSize, int iClass) {
    const ClassKeys *keys = class_keys(iClass);
    if (keys == nullptr || iSize < 0) return kova::fail(ERR_BAD_PARAMETERS);
    char path[PATH_MAX];
    if (!class_file(*keys, path, sizeof path)) return kova::fail(ERR_BAD_PARAMETERS);
    struct stat st {};
    if (stat(path, &st) != 0 || st.st_size <= iSize) return 0;
    const long long excess = static_cast<long long>(st.st_size) - iSize;
    return KOVALogChangeSize_a(excess > INT32_MAX ? INT32_MAX : static_cast<int>(excess), path);
}

int KOVALogChangeSize_a(int iExcess, const char *szLogPath) {
    if (szLogPath == nullptr || iExcess < 0) return kova::fail(ERR_BAD_PARAMETERS);
    kova::UniqueFd old(open_retrying(szLogPath, O_RDONLY, 0));
    if (old.get() < 0) return kova::fail(ERR_OPEN_FAILED);
    struct stat st {};
    if (kova::sys::fstat(old.get(), &st) != 0) return kova::fail(ERR_STAT_FAILED);
    uint32_t head = kStart;
    uint32_t tail = kStart;
    if (!read_ends(old.get(), &head, &tail)) head = tail = kStart;

    // The oldest records go until at least the excess is dropped; the rest are copied in order
    // to a new ring that starts at the record area.
    RingWalk walk(old.get(), head, tail, st.st_size);
    long long skipped = 0;
    RingWalk::Step step = RingWalk::Step::kEnd;
    while (skipped < iExcess && (step = walk.next()) == RingWalk::Step::kRecord) {
        skipped += walk.length();
        walk.advance();
    }
    const size_t capacity = st.st_size > KOVA_LOG_HEADER_SIZE ? st.st_size : KOVA_LOG_HEADER_SIZE;
    const kova::UniqueMalloc<char> image(static_cast<char *>(kova::xmalloc(capacity)));
    if (!image) return kova::fail(ERR_OUT_OF_MEMORY);
    uint32_t end = kStart;
    while (skipped >= iExcess && (step = walk.next()) == RingWalk::Step::kRecord) {
        const int n = walk.length();
        if (n >= kShrinkRecordLimit) {
            // Long records are not carried over: left out of a wrapped ring, and the end of
            // the copy in one that has not wrapped.
            if (!walk.wrapped()) break;
            walk.advance();
            continue;
        }
        if (end + n > capacity || !read_at(old.get(), image.get() + end, n, walk.at())) break;
        end += n;
        walk.advance();
    }
    memcpy(image.get(), "KOVA", 4);
    memset(image.get() + 4, 0, 4);
    put32(image.get() + 8, kStart);
    put32(image.get() + 12, end);

    char name[PATH_MAX];
    if (KLIBFileITmpName(szLogPath, name, sizeof name) < 0) return kova::fail(ERR_BAD_PARAMETERS);
    kova::TempFile out;
    if (!out.create(szLogPath, name)) return kova::fail(ERR_OPEN_FAILED);
    if (fwrite(image.get(), 1, end, out.stream()) != end) return shrink_failed(ERR_WRITE_FAILED);
    struct stat like = st;
    like.st_mode = (st.st_mode & ~07777) | 0600;
    if (!out.commit(like)) return shrink_failed(ERR_WRITE_FAILED);
    return 0;
}
