#include <fcntl.h>
#include <sys/stat.h>

#include <cctype>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <string>

#include "args.h"
#include "commands.h"
#include "kovasdk/bdb.h"
#include "kovasdk/error.h"

namespace kovactl {
namespace {

constexpr char kUsage[] =
    "usage: kovactl bdb dump FILE [--json]       every record, reserved ones included\n"
    "       kovactl bdb info FILE [--json]       the bookkeeping records and what they mean\n"
    "       kovactl bdb get FILE KEY [--json]\n"
    "       kovactl bdb set FILE KEY VALUE [--dup]   (creates the file if missing)\n"
    "       kovactl bdb del FILE KEY\n"
    "       kovactl bdb list-set FILE NAME a,b,c     a string list as one record\n"
    "       kovactl bdb sync FILE SOURCE       record SOURCE's modification time\n"
    "       kovactl bdb deprecate FILE         mark the cache out of date\n";

// Bytes as text, with NUL and unprintable bytes escaped.
std::string escaped(const void *data, int32_t size) {
    const auto *p = static_cast<const unsigned char *>(data);
    std::string text;
    for (int32_t i = 0; i < size; ++i) {
        if (p[i] == '\0') {
            text += "\\0";
        } else if (isprint(p[i]) && p[i] != '\\') {
            text += static_cast<char>(p[i]);
        } else {
            char hex[8];
            snprintf(hex, sizeof hex, "\\x%02X", p[i]);
            text += hex;
        }
    }
    return text;
}

std::string time_text(int32_t when) {
    const time_t t = when;
    char text[64];
    struct tm utc {};
    gmtime_r(&t, &utc);
    strftime(text, sizeof text, "%Y-%m-%d %H:%M:%S UTC", &utc);
    return std::to_string(when) + " (" + text + ")";
}

bool is_key(const void *key, int32_t size, const char *text, int32_t len) {
    return size == len && memcmp(key, text, static_cast<size_t>(len)) == 0;
}

// A reserved record's value as its meaning, in JSON: a time or marker as a number, a string
// list as an array; any other value as escaped text.
nlohmann::json value_json(const void *key, int32_t cb_key, const void *value, int32_t cb_value) {
    int32_t number = 0;
    if (cb_value == sizeof number) memcpy(&number, value, sizeof number);
    if (cb_value == sizeof number &&
        (is_key(key, cb_key, KOVA_BDB_KEY_SYNC_TIME, KOVA_BDB_KEY_SYNC_TIME_LEN) ||
         is_key(key, cb_key, KOVA_BDB_KEY_EXPIRE_TIME, KOVA_BDB_KEY_EXPIRE_TIME_LEN) ||
         is_key(key, cb_key, KOVA_BDB_KEY_DEPRECATED, KOVA_BDB_KEY_DEPRECATED_LEN))) {
        return number;
    }
    if (cb_key > 0 && *static_cast<const char *>(key) == KOVA_BDB_RESERVED_PREFIX) {
        if (PKLIBSZLIST list = KOVAListDBUnpack(value, cb_value)) {
            nlohmann::json items = nlohmann::json::array();
            for (int i = 0; i < list->nItem; ++i)
                items.push_back(list->pszItem[i]);
            KLIBSzListFree(list);
            return items;
        }
    }
    return escaped(value, cb_value);
}

// The same value as text: times with their date, lists as "list[N]: a,b".
std::string value_text(const void *key, int32_t cb_key, const nlohmann::json &value) {
    if (value.is_string()) return value.get<std::string>();
    if (value.is_array()) {
        std::string text = "list[" + std::to_string(value.size()) + "]:";
        for (size_t i = 0; i < value.size(); ++i)
            text += (i ? "," : " ") + value[i].get<std::string>();
        return text;
    }
    const auto number = value.get<int32_t>();
    return is_key(key, cb_key, KOVA_BDB_KEY_DEPRECATED, KOVA_BDB_KEY_DEPRECATED_LEN)
               ? std::to_string(number)
               : time_text(number);
}

int dump(PKOVABDB db, bool json) {
    void *key = nullptr, *value = nullptr;
    int32_t cb_key = 0, cb_value = 0;
    KOVABDbCursorSetType(db, KOVA_BDB_CURSOR_NEXT);  // unpositioned: from the first record
    nlohmann::json records = nlohmann::json::array();
    int count = 0;
    while (KOVABDbCursorGet(db, 0, &key, &cb_key, &value, &cb_value) == 0) {
        const nlohmann::json v = value_json(key, cb_key, value, cb_value);
        if (json) {
            records.push_back({{"key", escaped(key, cb_key)}, {"value", v}});
        } else {
            printf("%s  =  %s\n", escaped(key, cb_key).c_str(), value_text(key, cb_key, v).c_str());
        }
        ++count;
    }
    const bool at_end = KLIBErrGet() == ERR_BDB_END_OF_RECORDS;
    KOVABDbFree(key);
    KOVABDbFree(value);
    if (!at_end) return report_failure("bdb dump");
    if (json) {
        print_json(records);
    } else {
        printf("(%d records)\n", count);
    }
    return 0;
}

// A bookkeeping time, or null when the record is missing.
nlohmann::json stored_time(PKOVABDB db, int (*get)(PKOVABDB, int32_t **)) {
    int32_t *when = nullptr;
    if (get(db, &when) != 0) return nullptr;
    const int32_t value = *when;
    KOVABDbFree(when);
    return value;
}

int info(PKOVABDB db, bool json) {
    const nlohmann::json sync = stored_time(db, KOVABDbConfSyncTimeGet);
    const bool sync_missing = sync.is_null() && KLIBErrGet() == ERR_KEY_NOT_FOUND;
    const int deprecated = KOVABDbDeprecatedGet(db);
    const nlohmann::json fill = stored_time(db, KOVABDbDomainExpireTimeGet);
    const bool refill = KOVABDbIsNeedToDomainRebuild(db) == 1;
    if (json) {
        print_json(
            {{"sync_time", sync},
             {"deprecated", deprecated < 0 ? nlohmann::json(nullptr) : nlohmann::json(deprecated)},
             {"domain_fill_time", fill},
             {"domain_refill_due", refill}});
        return 0;
    }
    printf("sync time:   %s\n", !sync.is_null() ? time_text(sync.get<int32_t>()).c_str()
                                : sync_missing  ? "none (the next open rebuilds the cache)"
                                                : "unreadable");
    printf("deprecated:  %s\n", deprecated < 0    ? "no marker"
                                : deprecated == 1 ? "1 (out of date: rebuilt before use)"
                                                  : "0");
    printf("domain fill: %s\n", !fill.is_null() ? time_text(fill.get<int32_t>()).c_str() : "none");
    printf("domain part: %s\n", refill ? "refill due" : "fresh (under five minutes)");
    return 0;
}

int get(PKOVABDB db, const char *key, bool json) {
    void *value = nullptr;
    int32_t cb = 0;
    const auto cb_key = static_cast<int32_t>(strlen(key));
    if (KOVABDbGet(db, key, cb_key, &value, &cb) != 0) return report_failure("bdb get");
    const nlohmann::json v = value_json(key, cb_key, value, cb);
    KOVABDbFree(value);
    if (json) {
        print_json({{"key", key}, {"value", v}});
    } else {
        printf("%s\n", value_text(key, cb_key, v).c_str());
    }
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

// Opens FILE (argv[2]) for one subcommand with "--json" taken out, runs it and closes the file.
// Readers open it read-only; writers create it when missing.
using DbCommand = int (*)(PKOVABDB db, int argc, char **argv, bool json);
int with_db(int argc, char **argv, int wanted_argc, bool writes, DbCommand run) {
    const bool json = take_flag(&argc, argv, "--json");
    const bool dup = take_flag(&argc, argv, "--dup");
    if (argc != wanted_argc) return kUsageError;
    PKOVABDB db =
        KOVABDbOpen(argv[2], writes ? O_RDWR | O_CREAT : O_RDONLY, dup ? KOVA_BDB_DUP : 0);
    if (db == nullptr) return report_failure("bdb open");
    const int rc = run(db, argc, argv, json);
    KOVABDbClose(db);
    return rc;
}

int bdb_dump(int argc, char **argv) {
    return with_db(argc, argv, 3, false,
                   [](PKOVABDB db, int, char **, bool json) { return dump(db, json); });
}
int bdb_info(int argc, char **argv) {
    return with_db(argc, argv, 3, false,
                   [](PKOVABDB db, int, char **, bool json) { return info(db, json); });
}
int bdb_get(int argc, char **argv) {
    return with_db(argc, argv, 4, false,
                   [](PKOVABDB db, int, char **argv, bool json) { return get(db, argv[3], json); });
}
int bdb_set(int argc, char **argv) {
    return with_db(argc, argv, 5, true, [](PKOVABDB db, int, char **argv, bool) {
        return KOVABDbSet(db, argv[3], static_cast<int32_t>(strlen(argv[3])), argv[4],
                          static_cast<int32_t>(strlen(argv[4]))) == 0
                   ? 0
                   : report_failure("bdb set");
    });
}
int bdb_del(int argc, char **argv) {
    return with_db(argc, argv, 4, true, [](PKOVABDB db, int, char **argv, bool) {
        return KOVABDbDelete(db, argv[3], static_cast<int32_t>(strlen(argv[3]))) == 0
                   ? 0
                   : report_failure("bdb del");
    });
}
int bdb_list_set(int argc, char **argv) {
    return with_db(argc, argv, 5, true, [](PKOVABDB db, int, char **argv, bool) {
        return list_set(db, argv[3], argv[4]);
    });
}
int bdb_sync(int argc, char **argv) {
    return with_db(argc, argv, 4, true,
                   [](PKOVABDB db, int, char **argv, bool) { return sync_time(db, argv[3]); });
}
int bdb_deprecate(int argc, char **argv) {
    return with_db(argc, argv, 3, true, [](PKOVABDB db, int, char **, bool) {
        return KOVABDbDeprecatedSet(db, 1) == 0 ? 0 : report_failure("bdb deprecate");
    });
}

}  // namespace

int cmd_bdb(int argc, char **argv) {
    static constexpr Subcommand kSubs[] = {{"dump", bdb_dump}, {"info", bdb_info},
                                           {"get", bdb_get},   {"set", bdb_set},
                                           {"del", bdb_del},   {"list-set", bdb_list_set},
                                           {"sync", bdb_sync}, {"deprecate", bdb_deprecate}};
    return dispatch(argc, argv, "bdb", kSubs, kUsage);
}

}  // namespace kovactl
