// Appending one event: the record, the ring's freeing rules, and the class's file and size.
#include <errno.h>
#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <syslog.h>
#include <unistd.h>

#include <climits>
#include <cstdlib>
#include <cstring>

#include "core/alloc.h"
#include "core/fail.h"
#include "core/owners.h"
#include "core/sys.h"
#include "kovasdk/user.h"
#include "log/log_internal.h"

using namespace kova::log_file;

int glogsizeMax = kDefaultSize;

namespace {

// The defined location texts of the append's failures (the doubled letter is the system's).
constexpr char kAtInit[] = "sdk/kovalog1.c : line 335";
constexpr char kAtRecord[] = "sdk/kovalog1.c : lline 349";
constexpr char kAtWrite[] = "sdk/kovalog1.c : line 371";
constexpr char kAtFreeUnwrapped[] = "sdk/kovalog1.c : lline 410";
constexpr char kAtFreeWrapped[] = "sdk/kovalog1.c : lline 432";

int fail_at(const char *where, uint32_t code) {
    kova::log(LOG_ERR, "%s", where);
    return kova::fail(code);
}

const char *or_empty(const char *text) {
    return text != nullptr ? text : "";
}

// Writes the record at offset and makes it live by moving the tail past it.
bool put_record(int fd, const char *record, int length, uint32_t at) {
    return write_at(fd, record, length, at) && KOVALogSetTail(fd, at + length) == 0;
}

bool put_marker(int fd, uint32_t at) {
    const unsigned char marker[kMarkerSize] = {};
    return write_at(fd, marker, sizeof marker, at);
}

// Places a record of length bytes into the ring whose ends are head and tail.
int append_record(int fd, const char *record, int length, uint32_t head, uint32_t tail) {
    const int64_t max = glogsizeMax;
    if (tail >= head) {
        if (max - static_cast<int64_t>(tail) - kMarkerSize >= length) {
            return put_record(fd, record, length, tail) ? 0 : fail_at(kAtWrite, ERR_WRITE_FAILED);
        }
        // No room before the end: close this run with the marker, then free more than the
        // record's length from the oldest end and start again at the record area.
        if (!put_marker(fd, tail)) return fail_at(kAtWrite, ERR_WRITE_FAILED);
        int64_t dropped = 0;
        while (dropped <= length) {
            const int n = length_at(fd, head);
            if (n <= 0) return fail_at(kAtFreeUnwrapped, ERR_READ_FAILED);
            head += n;
            dropped += n;
            if (KOVALogSetHead(fd, head) < 0) return fail_at(kAtFreeUnwrapped, ERR_WRITE_FAILED);
        }
        return put_record(fd, record, length, kStart) ? 0 : fail_at(kAtWrite, ERR_WRITE_FAILED);
    }
    // Wrapped: the free space is between tail and head; it must end up strictly larger than
    // the record so that head and tail never meet.
    bool turned = false;
    while (static_cast<int64_t>(head) - static_cast<int64_t>(tail) <= length) {
        const int n = length_at(fd, head);
        if (n > 0) {
            head += n;
            if (KOVALogSetHead(fd, head) < 0) return fail_at(kAtFreeWrapped, ERR_WRITE_FAILED);
            continue;
        }
        // The end marker: the oldest records continue at the record area, once.
        if (turned) return fail_at(kAtFreeWrapped, ERR_READ_FAILED);
        turned = true;
        head = kStart;
        if (KOVALogSetHead(fd, head) < 0) return fail_at(kAtFreeWrapped, ERR_WRITE_FAILED);
        if (max - static_cast<int64_t>(tail) - kMarkerSize >= length) break;
        if (!put_marker(fd, tail)) return fail_at(kAtFreeWrapped, ERR_WRITE_FAILED);
        tail = kStart;
    }
    return put_record(fd, record, length, tail) ? 0 : fail_at(kAtWrite, ERR_WRITE_FAILED);
}

}  // namespace

int KOVALogInitEventBuffer(char **ppBuffer, int iType, uint32_t dwEventKey, const char *szArg1,
                           const char *szArg2, const char *szArg3, const char *szArg4) {
    if (ppBuffer == nullptr) return 0;
    const char *strings[6] = {program_invocation_short_name,
                              KOVALogObtainUser(),
                              or_empty(szArg1),
                              or_empty(szArg2),
                              or_empty(szArg3),
                              or_empty(szArg4)};
    size_t lengths[6];
    size_t total = kRecordFixed;
    for (int i = 0; i < 6; ++i) {
        lengths[i] = strlen(strings[i]);
        total += lengths[i];
    }
    // The record's length field is 16 bits wide: a record that cannot say its length is not
    // built (the caller sees the out-of-memory answer, 0).
    if (total > UINT16_MAX) {
        kova::fail(ERR_BAD_PARAMETERS);
        return 0;
    }
    auto *record = static_cast<char *>(kova::xmalloc(total));
    if (record == nullptr) {
        kova::fail(ERR_OUT_OF_MEMORY);
        return 0;
    }
    put16(record, static_cast<uint16_t>(total));
    put16(record + 2, static_cast<uint16_t>(iType));
    put32(record + 4, static_cast<uint32_t>(time(nullptr)));
    put16(record + 8, static_cast<uint16_t>(lengths[0]));
    put16(record + 10, static_cast<uint16_t>(lengths[1]));
    put32(record + 12, dwEventKey);
    for (int i = 0; i < 4; ++i)
        put16(record + 16 + 2 * i, static_cast<uint16_t>(lengths[2 + i]));
    char *at = record + kRecordFixed;
    for (int i = 0; i < 6; ++i) {
        memcpy(at, strings[i], lengths[i]);
        at += lengths[i];
    }
    *ppBuffer = record;
    return static_cast<int>(total);
}

int KOVALogSet1a(const char *szLogPath, int iType, uint32_t dwEventKey, const char *szArg1,
                 const char *szArg2, const char *szArg3, const char *szArg4) {
    if (szLogPath == nullptr) return kova::fail(ERR_BAD_PARAMETERS);
    kova::UniqueFd fd(open_retrying(szLogPath, O_RDWR | O_CREAT, 0600));
    if (fd.get() < 0) {
        kova::log(LOG_ERR, "logfile %s open error while writing!", szLogPath);
        return kova::fail(ERR_OPEN_FAILED);
    }
    if (!lock_retrying(fd.get())) return kova::fail(ERR_LOCK_FAILED);
    // The lock goes with the descriptor: closing it unlocks.
    if (KOVALogInit(fd.get()) < 0) return fail_at(kAtInit, ERR_WRITE_FAILED);
    uint32_t head = kStart;
    uint32_t tail = kStart;
    if (!read_ends(fd.get(), &head, &tail)) {
        head = tail = kStart;
        if (KOVALogSetHead(fd.get(), head) < 0) return fail_at(kAtInit, ERR_WRITE_FAILED);
    }
    char *record = nullptr;
    const int length =
        KOVALogInitEventBuffer(&record, iType, dwEventKey, szArg1, szArg2, szArg3, szArg4);
    if (length == 0) return fail_at(kAtRecord, KLIBErrGet());
    const kova::UniqueMalloc<char> owned(record);
    // A record larger than the whole ring could only be stored by dropping every event and
    // then failing: it is refused before anything changes.
    if (length > static_cast<int64_t>(glogsizeMax) - static_cast<int64_t>(kStart) - kMarkerSize) {
        return fail_at(kAtRecord, ERR_BAD_PARAMETERS);
    }
    if (append_record(fd.get(), record, length, head, tail) < 0) return -1;
    kova::sys::flock(fd.get(), LOCK_UN);
    if (kova::sys::fchmod(fd.get(), 0600) != 0) return kova::fail(ERR_WRITE_FAILED);
    return 0;
}

int KOVALogSet1(int iClass, int iType, uint32_t dwEventKey, const char *szArg1, const char *szArg2,
                const char *szArg3, const char *szArg4) {
    if (iClass == KOVA_LOG_CLASS_NONE) return kova::fail(ERR_BAD_PARAMETERS);
    const ClassKeys *keys = write_class_keys(iClass);
    if (keys == nullptr) {
        kova::log(LOG_ERR, "logclass error!");
        return kova::fail(ERR_BAD_PARAMETERS);
    }
    // Classes 1 and 2 write into the system log with its size.
    const int write_class = iClass == KOVA_LOG_CLASS_MAN ? KOVA_LOG_CLASS_SYS : iClass;
    const int builtin = write_class == KOVA_LOG_CLASS_SYS ? kSysCreateSize : kDefaultSize;
    char conf[PATH_MAX];
    conf_path(conf, sizeof conf);
    if (access(conf, F_OK) != 0) {
        if (KOVASetLogConf() < 0) return -1;
        glogsizeMax = builtin;
        KOVALogChangeSize(glogsizeMax, write_class);
    } else {
        if (iClass >= KOVA_LOG_CLASS_CONN) kova::log(LOG_INFO, "KOVA : log file %s opened", conf);
        int size = 0;
        if (class_size(*keys, &size)) {
            glogsizeMax = size;
            KOVALogChangeSize(glogsizeMax, write_class);
        } else {
            glogsizeMax = builtin;
        }
    }
    char path[PATH_MAX];
    if (!class_file(*keys, path, sizeof path)) return kova::fail(ERR_BAD_PARAMETERS);
    // A null argument is stored empty, an empty one as a single blank: the reader leaves the
    // placeholder of the first standing and fills in the second.
    const char *args[4] = {szArg1, szArg2, szArg3, szArg4};
    for (const char *&arg : args) {
        if (arg == nullptr) {
            arg = "";
        } else if (arg[0] == '\0') {
            arg = " ";
        }
    }
    return KOVALogSet1a(path, iType, dwEventKey, args[0], args[1], args[2], args[3]);
}

char *KOVALogObtainUser(void) {
    static char user[256];
    user[0] = '\0';
    if (const char *name = getenv("USERNAME"); name != nullptr) {
        snprintf(user, sizeof user, "%s", name);
    } else {
        PKOVAUSER record = nullptr;
        if (KOVAUserGetByUID(geteuid(), &record) == 0 && record != nullptr &&
            record->szName != nullptr) {
            snprintf(user, sizeof user, "%s", record->szName);
        }
        KOVAUserFree(record);
    }
    if (strcmp(user, "root") == 0) snprintf(user, sizeof user, "admin");
    return user;
}
