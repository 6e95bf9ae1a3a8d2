// Reading a log as text, oldest record first, with the self-repair of a damaged ring.
#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <syslog.h>
#include <unistd.h>

#include <cerrno>
#include <climits>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "core/fail.h"
#include "core/owners.h"
#include "core/sys.h"
#include "log/log_internal.h"

using namespace kova::log_file;

namespace {

constexpr char kDefaultOutput[] = "./output";
constexpr char kDefaultLang[] = "enu";

// One string of a record: its bytes and length, checked against the record's end.
struct Field {
    const char *at;
    int length;
};

// Writes every live record of the open log as a text line; the position where reading stopped
// when it met a damaged record, else 0.
uint32_t spread_all(int fd, FILE *out, const char *lang) {
    // A file without the magic is no log (the next append starts it afresh): nothing to show.
    char magic[4];
    if (!read_at(fd, magic, sizeof magic, 0) || memcmp(magic, "KOVA", sizeof magic) != 0) return 0;
    uint32_t head = kStart;
    uint32_t tail = kStart;
    struct stat st {};
    if (!read_ends(fd, &head, &tail) || kova::sys::fstat(fd, &st) != 0) return 0;
    RingWalk walk(fd, head, tail, st.st_size);
    char record[UINT16_MAX];
    for (int line = 1;; ++line) {
        const RingWalk::Step step = walk.next();
        if (step == RingWalk::Step::kEnd) return 0;
        if (step == RingWalk::Step::kDamaged ||
            !read_at(fd, record, walk.length() - 2, walk.at() + 2)) {
            kova::log(LOG_ERR, "Log format error line%d", line);
            return walk.at();
        }
        KOVALogEventSpread(out, record, lang, walk.length() - 2);
        walk.advance();
    }
}

}  // namespace

int KOVALogEventSpread(FILE *pf, const char *pRecord, const char *szLang, int cbRecord) {
    if (pf == nullptr || pRecord == nullptr || cbRecord < 0) return kova::fail(ERR_BAD_PARAMETERS);
    // The record without its length field: type, time, two lengths, key, four lengths, then the
    // six strings.
    constexpr int kFixed = kRecordFixed - 2;
    if (cbRecord < kFixed) return 0;
    const auto *r = reinterpret_cast<const unsigned char *>(pRecord);
    const int type = get16(r);
    const time_t when = static_cast<time_t>(get32(r + 2));
    const uint32_t key = get32(r + 10);
    const int lengths[6] = {get16(r + 6),  get16(r + 8),  get16(r + 14),
                            get16(r + 16), get16(r + 18), get16(r + 20)};
    Field fields[6];
    int at = kFixed;
    for (int i = 0; i < 6; ++i) {
        if (lengths[i] > cbRecord - at) return 0;
        fields[i] = {pRecord + at, lengths[i]};
        at += lengths[i];
    }
    char *strings[6];
    char storage[UINT16_MAX + 6];
    char *next = storage;
    for (int i = 0; i < 6; ++i) {
        memcpy(next, fields[i].at, fields[i].length);
        next[fields[i].length] = '\0';
        strings[i] = next;
        next += fields[i].length + 1;
    }
    const char *lang = szLang != nullptr ? szLang : kDefaultLang;
    char *text = KOVALogConvertEventKey(key, lang, strings[2], strings[3], strings[4], strings[5]);
    if (text == nullptr) {
        char id[16];
        snprintf(id, sizeof id, "%lX", static_cast<unsigned long>(key));
        kova::log(LOG_ERR,
                  "Can not get the log szEvent id = %s, szLang = %s, szArg1 = [%s], szArg2 = "
                  "[%s], szArg3 = [%s], szArg4 = [%s], szSource = %s",
                  id, lang, strings[2], strings[3], strings[4], strings[5], strings[0]);
        return -1;
    }
    const kova::UniqueMalloc<char> owned(text);
    fprintf(pf, "%d\t%s\t%s\t%s\t%s\t%s\n", type, KOVALogConvertType(type & 0xFF, lang),
            KOVALogConvertTime1(when), strings[0], strings[1], text);
    return 0;
}

int KOVALogGet1a(const char *szLogPath, const char *szOutput, const char *szLang) {
    if (szLogPath == nullptr) return kova::fail(ERR_BAD_PARAMETERS);
    struct stat st {};
    if (stat(szLogPath, &st) != 0) {
        kova::log(LOG_ERR, "Kovalith log file %s not exist", szLogPath);
        return kova::fail(ERR_FILE_NOT_FOUND);
    }
    const char *output = szOutput != nullptr ? szOutput : kDefaultOutput;
    const kova::UniqueFile out(fopen(output, "w+e"));
    if (!out) {
        kova::log(LOG_ERR, "output log file open failed [%d].\n", errno);
        return kova::fail(ERR_OPEN_FAILED);
    }
    {
        kova::UniqueFd fd(open_retrying(szLogPath, O_RDONLY, 0));
        if (fd.get() < 0) return kova::fail(ERR_OPEN_FAILED);
        if (!lock_retrying(fd.get())) {
            kova::log(LOG_ERR, "log file lock failed");
            return kova::fail(ERR_LOCK_FAILED);
        }
        const uint32_t stopped = spread_all(fd.get(), out.get(), szLang);
        KLIBSzHashFree(gpshEvent);
        gpshEvent = nullptr;
        if (stopped != 0) {
            // A damaged record: the tail moves back to it, so the damaged rest is dropped.
            // Done under the reader's lock, so no append comes between.
            kova::UniqueFd repair(open_retrying(szLogPath, O_RDWR, 0));
            if (repair.get() < 0 || KOVALogSetTail(repair.get(), stopped) < 0) {
                return kova::fail(ERR_WRITE_FAILED);
            }
        }
    }
    if (fflush(out.get()) != 0) return kova::fail(ERR_WRITE_FAILED);
    return 0;
}

int KOVALogGet1(int iClass, const char *szOutput, const char *szLang) {
    const ClassKeys *keys = class_keys(iClass);
    if (keys == nullptr) {
        // Class 4 and classes outside 1..8 have no file to read.
        kova::log(LOG_ERR, "Kovalith log file %s not exist", "");
        return kova::fail(ERR_FILE_NOT_FOUND);
    }
    char path[PATH_MAX];
    if (!class_file(*keys, path, sizeof path)) return kova::fail(ERR_BAD_PARAMETERS);
    return KOVALogGet1a(path, szOutput, szLang);
}
