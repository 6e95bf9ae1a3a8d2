// The current file-service connections: the SMB server's status report and the Apple and FTP
// services' connection lists, gathered into one common line form.
//
// Every source line is split at tabs and line feeds into fields 1, 2, ...; field 1 is the
// connection's time in seconds since the epoch. The common form is
// "time\tfield 3\tfield 2\tfourth text\ttype".
#include <syslog.h>
#include <unistd.h>

#include <climits>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "core/alloc.h"
#include "core/fail.h"
#include "core/line_reader.h"
#include "core/owners.h"
#include "core/root.h"
#include "core/run.h"
#include "core/temp_file.h"
#include "kovasdk/file.h"
#include "kovasdk/list.h"
#include "kovasdk/proc.h"
#include "log/log_internal.h"

namespace {

constexpr int kListSize = 512 * 64;  // room for about 512 connections before it grows
constexpr int kMaxFields = 16;
constexpr int kTypeSmb = 4;
constexpr int kTypeApple = 5;
constexpr int kTypeFtp = 7;

// A line split at tabs and line feeds, empty fields kept.
struct Fields {
    char copy[4096];
    const char *field[kMaxFields];
    int count = 0;

    explicit Fields(const char *line) {
        snprintf(copy, sizeof copy, "%s", line);
        char *at = copy;
        while (count < kMaxFields) {
            field[count++] = at;
            at = strpbrk(at, "\t\n");
            if (at == nullptr) break;
            *at++ = '\0';
            if (*at == '\0') break;  // a line feed at the end opens no field
        }
    }
    const char *operator[](int n) const { return n <= count ? field[n - 1] : ""; }
};

// The time text of field 1.
const char *time_text(const Fields &f, char *out) {
    if (KOVALogICovertTimeFmt(f[1], out) < 0) out[0] = '\0';
    return out;
}

bool push(PKLIBSZLIST *list, const char *line) {
    return KLIBSzListPush(list, line) >= 0;
}

// Reads the source's lines and hands each to add; false when it cannot be read or add failed.
template <class Add>
bool each_line(const char *source, Add add) {
    const kova::UniqueFile in(fopen(source, "re"));
    if (!in) return false;
    kova::LineReader reader(in.get());
    while (reader.next()) {
        if (!add(static_cast<const char *>(reader.data()))) return false;
    }
    return !reader.failed();
}

}  // namespace

int KOVALogIProcSmb(const char *szSource, PKLIBSZLIST *ppList) {
    if (szSource == nullptr || ppList == nullptr) return kova::fail(ERR_BAD_PARAMETERS);
    const bool ok = each_line(szSource, [&](const char *line) {
        if (strstr(line, "Samba") != nullptr || strstr(line, "Service") != nullptr ||
            strstr(line, "-----") != nullptr) {
            return true;
        }
        const Fields f(line);
        if (f.count < 5) return true;
        char when[KOVA_LOG_TIME_MAX];
        char out[4200];
        snprintf(out, sizeof out, "%s\t%s\t%s\t%s\t%d", time_text(f, when), f[3], f[2], f[4],
                 kTypeSmb);
        return push(ppList, out);
    });
    return ok ? 0 : kova::fail(ERR_READ_FAILED);
}

int KOVALogIProcApp(const char *szSource, PKLIBSZLIST *ppList) {
    if (szSource == nullptr || ppList == nullptr) return kova::fail(ERR_BAD_PARAMETERS);
    const bool ok = each_line(szSource, [&](const char *line) {
        const Fields f(line);
        if (f.count < 5) return true;
        char when[KOVA_LOG_TIME_MAX];
        char out[4200];
        // The fields that hold text; with fewer than five of them the connection is shown as a
        // plain login.
        int stored = 0;
        for (int i = 1; i <= f.count; ++i)
            stored += f[i][0] != '\0';
        if (stored < 5) {
            snprintf(out, sizeof out, "%s\t%s\t%s\tApple login\t%d", time_text(f, when), f[3], f[2],
                     kTypeApple);
        } else {
            const size_t length = strlen(f[4]);
            snprintf(out, sizeof out, "%s\t%s\t%s\t%.*s\t%d", time_text(f, when), f[3], f[2],
                     static_cast<int>(length > 0 ? length - 1 : 0), f[4], kTypeApple);
        }
        return push(ppList, out);
    });
    return ok ? 0 : kova::fail(ERR_READ_FAILED);
}

int KOVALogIProcFTP(const char *szSource, PKLIBSZLIST *ppList) {
    if (szSource == nullptr || ppList == nullptr) return kova::fail(ERR_BAD_PARAMETERS);
    const bool ok = each_line(szSource, [&](const char *line) {
        const Fields f(line);
        if (f.count < 4) return true;
        char when[KOVA_LOG_TIME_MAX];
        char out[4200];
        snprintf(out, sizeof out, "%s\t%s\t%s\t%s\t%d", time_text(f, when), f[3], f[2],
                 f.count == 5 ? f[4] : "@FTP Service", kTypeFtp);
        return push(ppList, out);
    });
    return ok ? 0 : kova::fail(ERR_READ_FAILED);
}

int KOVALogICheckLog(const char *szList, const char *szTmp, const char *szProcess) {
    if (szList == nullptr || szTmp == nullptr || szProcess == nullptr) {
        return kova::fail(ERR_BAD_PARAMETERS);
    }
    if (access(szList, F_OK) != 0) return 0;  // no list: nothing to clean
    int pids[512];
    // Without a complete list of the running processes nothing can be told apart: the list is
    // left as it is rather than emptied.
    const int known = KLIBPs(szProcess, pids, 512);
    if (known < 0) return -1;
    if (known > 512) return 0;
    kova::TempFile out;
    if (!out.create(szList, szTmp)) return kova::fail(ERR_OPEN_FAILED);
    const bool ok = each_line(szList, [&](const char *line) {
        char *end = nullptr;
        const long pid = strtol(line, &end, 10);
        if (end == line) return true;
        for (int i = 0; i < known; ++i) {
            if (pids[i] != pid) continue;
            const size_t length = strlen(line);
            return fputs(line, out.stream()) >= 0 &&
                   (length > 0 && line[length - 1] == '\n' ? true
                                                           : fputc('\n', out.stream()) != EOF);
        }
        return true;
    });
    struct stat like {};
    if (!ok || stat(szList, &like) != 0 || !out.commit(like)) return kova::fail(ERR_WRITE_FAILED);
    return 0;
}

int KOVALogIWrite2Mem(PKLIBSZLIST pList, PKOVALOGCONN *ppConn) {
    if (pList == nullptr || ppConn == nullptr) return kova::fail(ERR_BAD_PARAMETERS);
    const int count = pList->nItem;
    size_t strings = 0;
    for (int i = 0; i < count; ++i)
        strings += strlen(pList->pszItem[i]) + 1;
    // The records, then every record's four strings, in one block.
    const size_t size = count * sizeof(KOVALOGCONN) + strings + 1;
    auto *block = static_cast<char *>(kova::xcalloc(1, size));
    if (block == nullptr) return kova::fail(ERR_OUT_OF_MEMORY);
    auto *records = reinterpret_cast<KOVALOGCONN *>(block);
    char *text = block + count * sizeof(KOVALOGCONN);
    for (int i = 0; i < count; ++i) {
        const size_t length = strlen(pList->pszItem[i]);
        memcpy(text, pList->pszItem[i], length + 1);
        char *parts[5] = {text, nullptr, nullptr, nullptr, nullptr};
        for (int p = 1; p < 5; ++p) {
            char *tab = parts[p - 1] != nullptr ? strchr(parts[p - 1], '\t') : nullptr;
            if (tab == nullptr) break;
            *tab = '\0';
            parts[p] = tab + 1;
        }
        char *empty = text + length;  // the string's own terminator
        KOVALOGCONN &r = records[i];
        r.szTime = parts[0];
        r.szField3 = parts[1] != nullptr ? parts[1] : empty;
        r.szField2 = parts[2] != nullptr ? parts[2] : empty;
        r.szInfo = parts[3] != nullptr ? parts[3] : empty;
        r.iType = parts[4] != nullptr ? atoi(parts[4]) : 0;
        text += length + 1;
    }
    *ppConn = records;
    return count;
}

int KOVALogGet(int iClass, int iMode, PKOVALOGCONN *ppConn, const char *szOutput) {
    if (iClass != KOVA_LOG_CLASS_MAN || iMode != 1 || (szOutput == nullptr && ppConn == nullptr)) {
        return kova::fail(ERR_BAD_PARAMETERS);
    }
    const kova::RootedPath status("/tmp/smbstatus.tmp");
    const kova::RootedPath apple("/tmp/apple/AT_LOG");
    const kova::RootedPath apple_tmp("/tmp/apple/AT_LOG_TMP");
    const kova::RootedPath ftp("/var/tmp/ftp_cur_con.log");
    const kova::RootedPath ftp_tmp("/var/tmp/ftp_cur_con.log.tmp");
    const kova::ProgramPath smbstatus("/usr/kova/bin/smbstatus");
    char status_word[PATH_MAX * 2];
    if (!kova::shell_word(status.c_str(), status_word, sizeof status_word)) {
        return kova::fail(ERR_BAD_PARAMETERS);
    }
    char command[PATH_MAX * 4];
    snprintf(command, sizeof command, "%s -S > %s 2>&1", smbstatus.shell_word(), status_word);
    kova::run_shell(command);
    const kova::ScopeGuard remove_status([&] { unlink(status.c_str()); });

    PKLIBSZLIST list = PslKLIBSzListAlloc(kListSize);
    if (list == nullptr) return kova::fail(ERR_OUT_OF_MEMORY);
    const kova::ScopeGuard free_list([&] { KLIBSzListFree(list); });
    if (access(status.c_str(), F_OK) == 0 && KOVALogIProcSmb(status.c_str(), &list) < 0) return -1;
    KOVALogICheckLog(apple.c_str(), apple_tmp.c_str(), "afpd");
    if (access(apple.c_str(), F_OK) == 0 && KOVALogIProcApp(apple.c_str(), &list) < 0) return -1;
    KOVALogICheckLog(ftp.c_str(), ftp_tmp.c_str(), "ftpd");
    if (access(ftp.c_str(), F_OK) == 0 && KOVALogIProcFTP(ftp.c_str(), &list) < 0) return -1;

    if (szOutput == nullptr) return KOVALogIWrite2Mem(list, ppConn);
    const kova::UniqueFile out(fopen(szOutput, "we"));
    if (!out) return kova::fail(ERR_OPEN_FAILED);
    for (int i = 0; i < list->nItem; ++i) {
        // Each line without its type number.
        const char *line = list->pszItem[i];
        const char *last_tab = strrchr(line, '\t');
        const int length = static_cast<int>(last_tab != nullptr ? last_tab - line : strlen(line));
        fprintf(out.get(), "%.*s\n", length, line);
    }
    if (fflush(out.get()) != 0) return kova::fail(ERR_WRITE_FAILED);
    return list->nItem;
}
