#include <fcntl.h>
#include <sys/stat.h>

#include <cctype>
#include <cstdio>
#include <cstring>
#include <ctime>

#include "commands.h"
#include "kovasdk/bdb.h"
#include "kovasdk/error.h"

namespace kovactl {
namespace {

int usage() {
    fprintf(stderr,
            "usage: kovactl bdb dump FILE              every record, reserved ones included\n"
            "       kovactl bdb info FILE              the bookkeeping records and what they mean\n"
            "       kovactl bdb get FILE KEY\n"
            "       kovactl bdb set FILE KEY VALUE [--dup]   (creates the file if missing)\n"
            "       kovactl bdb del FILE KEY\n"
            "       kovactl bdb list-set FILE NAME a,b,c     a string list as one record\n"
            "       kovactl bdb sync FILE SOURCE       record SOURCE's modification time\n"
            "       kovactl bdb deprecate FILE         mark the cache out of date\n");
    return 2;
}

// Bytes as text, with NUL and unprintable bytes escaped.
void print_bytes(const void *data, int32_t size) {
    const auto *p = static_cast<const unsigned char *>(data);
    for (int32_t i = 0; i < size; ++i) {
        if (p[i] == '\0') {
            printf("\\0");
        } else if (isprint(p[i]) && p[i] != '\\') {
            putchar(p[i]);
        } else {
            printf("\\x%02X", p[i]);
        }
    }
}

void print_time(int32_t when) {
    const time_t t = when;
    char text[64];
    struct tm utc {};
    gmtime_r(&t, &utc);
    strftime(text, sizeof text, "%Y-%m-%d %H:%M:%S UTC", &utc);
    printf("%d (%s)", when, text);
}

bool is_key(const void *key, int32_t size, const char *text, int32_t len) {
    return size == len && memcmp(key, text, static_cast<size_t>(len)) == 0;
}

// A reserved record's value as its meaning; other "#" records may be string lists.
void print_value(const void *key, int32_t cb_key, const void *value, int32_t cb_value) {
    int32_t number = 0;
    if (cb_value == sizeof number) memcpy(&number, value, sizeof number);
    if (cb_value == sizeof number &&
        (is_key(key, cb_key, KOVA_BDB_KEY_SYNC_TIME, KOVA_BDB_KEY_SYNC_TIME_LEN) ||
         is_key(key, cb_key, KOVA_BDB_KEY_EXPIRE_TIME, KOVA_BDB_KEY_EXPIRE_TIME_LEN))) {
        print_time(number);
        return;
    }
    if (cb_value == sizeof number &&
        is_key(key, cb_key, KOVA_BDB_KEY_DEPRECATED, KOVA_BDB_KEY_DEPRECATED_LEN)) {
        printf("%d", number);
        return;
    }
    if (cb_key > 0 && *static_cast<const char *>(key) == KOVA_BDB_RESERVED_PREFIX) {
        PKLIBSZLIST list = KOVAListDBUnpack(value, cb_value);
        if (list != nullptr) {
            printf("list[%d]:", list->nItem);
            for (int i = 0; i < list->nItem; ++i)
                printf("%s%s", i ? "," : " ", list->pszItem[i]);
            KLIBSzListFree(list);
            return;
        }
    }
    print_bytes(value, cb_value);
}

int dump(PKOVABDB db) {
    void *key = nullptr, *value = nullptr;
    int32_t cb_key = 0, cb_value = 0;
    KOVABDbCursorSetType(db, KOVA_BDB_CURSOR_NEXT);  // unpositioned: from the first record
    int count = 0;
    while (KOVABDbCursorGet(db, 0, &key, &cb_key, &value, &cb_value) == 0) {
        print_bytes(key, cb_key);
        printf("  =  ");
        print_value(key, cb_key, value, cb_value);
        printf("\n");
        ++count;
    }
    const bool at_end = KLIBErrGet() == ERR_BDB_END_OF_RECORDS;
    KOVABDbFree(key);
    KOVABDbFree(value);
    if (!at_end) return report_failure("bdb dump");
    printf("(%d records)\n", count);
    return 0;
}

int info(PKOVABDB db) {
    int32_t *when = nullptr;
    printf("sync time:   ");
    if (KOVABDbConfSyncTimeGet(db, &when) == 0) {
        print_time(*when);
        KOVABDbFree(when);
        when = nullptr;
    } else {
        printf(KLIBErrGet() == ERR_KEY_NOT_FOUND ? "none (the next open rebuilds the cache)"
                                                 : "unreadable");
    }
    const int deprecated = KOVABDbDeprecatedGet(db);
    printf("\ndeprecated:  %s\n", deprecated < 0    ? "no marker"
                                  : deprecated == 1 ? "1 (out of date: rebuilt before use)"
                                                    : "0");
    printf("domain fill: ");
    if (KOVABDbDomainExpireTimeGet(db, &when) == 0) {
        print_time(*when);
        KOVABDbFree(when);
    } else {
        printf("none");
    }
    printf("\ndomain part: %s\n",
           KOVABDbIsNeedToDomainRebuild(db) == 1 ? "refill due" : "fresh (under five minutes)");
    return 0;
}

int get(PKOVABDB db, const char *key) {
    void *value = nullptr;
    int32_t cb = 0;
    const auto cb_key = static_cast<int32_t>(strlen(key));
    if (KOVABDbGet(db, key, cb_key, &value, &cb) != 0) return report_failure("bdb get");
    print_value(key, cb_key, value, cb);
    printf("\n");
    KOVABDbFree(value);
    return 0;
}

int list_set(PKOVABDB db, const char *name, const char *items) {
    PKLIBSZLIST list = PslKLIBSzListAlloc(0);
    if (list == nullptr) return report_failure("bdb list-set");
    for (const char *start = items; list != nullptr;) {
        const char *comma = strchr(start, ',');
        const size_t len = comma != nullptr ? static_cast<size_t>(comma - start) : strlen(start);
        char item[1024];
        snprintf(item, sizeof item, "%.*s", static_cast<int>(len), start);
        if (KLIBSzListPush(&list, item) < 0) break;
        if (comma == nullptr) break;
        start = comma + 1;
    }
    const int rc = KOVAListDBSet(db, name, list) == 0 ? 0 : report_failure("bdb list-set");
    KLIBSzListFree(list);
    return rc;
}

int sync_time(PKOVABDB db, const char *source) {
    struct stat st {};
    if (stat(source, &st) != 0) {
        perror(source);
        return 1;
    }
    if (KOVABDbConfSyncTimeSet(db, static_cast<int32_t>(st.st_mtime)) != 0) {
        return report_failure("bdb sync");
    }
    return KOVABDbDeprecatedSet(db, 0) == 0 ? 0 : report_failure("bdb sync");
}

}  // namespace

int cmd_bdb(int argc, char **argv) {
    if (argc < 3) return usage();
    const char *op = argv[1];
    const char *file = argv[2];
    const bool writes =
        strcmp(op, "dump") != 0 && strcmp(op, "info") != 0 && strcmp(op, "get") != 0;
    const bool dup = argc == 6 && strcmp(argv[5], "--dup") == 0;
    PKOVABDB db = KOVABDbOpen(file, writes ? O_RDWR | O_CREAT : O_RDONLY, dup ? KOVA_BDB_DUP : 0);
    if (db == nullptr) return report_failure("bdb open");

    int rc = 2;
    if (argc == 3 && strcmp(op, "dump") == 0) {
        rc = dump(db);
    } else if (argc == 3 && strcmp(op, "info") == 0) {
        rc = info(db);
    } else if (argc == 4 && strcmp(op, "get") == 0) {
        rc = get(db, argv[3]);
    } else if ((argc == 5 || dup) && strcmp(op, "set") == 0) {
        rc = KOVABDbSet(db, argv[3], static_cast<int32_t>(strlen(argv[3])), argv[4],
                        static_cast<int32_t>(strlen(argv[4]))) == 0
                 ? 0
                 : report_failure("bdb set");
    } else if (argc == 4 && strcmp(op, "del") == 0) {
        rc = KOVABDbDelete(db, argv[3], static_cast<int32_t>(strlen(argv[3]))) == 0
                 ? 0
                 : report_failure("bdb del");
    } else if (argc == 5 && strcmp(op, "list-set") == 0) {
        rc = list_set(db, argv[3], argv[4]);
    } else if (argc == 4 && strcmp(op, "sync") == 0) {
        rc = sync_time(db, argv[3]);
    } else if (argc == 3 && strcmp(op, "deprecate") == 0) {
        rc = KOVABDbDeprecatedSet(db, 1) == 0 ? 0 : report_failure("bdb deprecate");
    } else {
        usage();
    }
    KOVABDbClose(db);
    return rc;
}

}  // namespace kovactl
