// kovactl log: the appliance's event logs and current connections.
#include <sys/mman.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "args.h"
#include "commands.h"
#include "kovasdk/log.h"
#include "log/log_names.h"

namespace kovactl {
namespace {

constexpr char kUsage[] =
    "usage: kovactl log show CLASS [--lang LANG] [--json]   the log as text, oldest first\n"
    "       kovactl log add CLASS TYPE KEY [ARG1..ARG4]      record an event\n"
    "       kovactl log size CLASS BYTES                     set a log's maximum size\n"
    "       kovactl log conn [--json]                        current file-service connections\n"
    "CLASS: sys, man, conn, bkp, copy, netbkp, sur (or 1..8); TYPE: info, warn, err (or a\n"
    "number); KEY: the event key in hexadecimal.\n";

int usage(bool asked) {
    return print_usage(kUsage, asked);
}

using kova::log_names::kClasses;
using kova::log_names::kTypes;

// A word of the table or a decimal number; -1 when it is neither.
template <size_t N>
int parse_name(const kova::log_names::Name (&names)[N], const char *word) {
    const int value = kova::log_names::lookup(names, word);
    if (value >= 0) return value;
    char *end = nullptr;
    const long number = strtol(word, &end, 10);
    return end != word && *end == '\0' && number >= 0 && number <= 0xFFFF ? static_cast<int>(number)
                                                                          : -1;
}

int bad_word(const char *what, const char *word) {
    fprintf(stderr, "kovactl: log: %s '%s'\n", what, word);
    return 1;
}

// The lines the library wrote into a memory file, read back.
std::string read_all(int fd) {
    std::string text;
    char buffer[8192];
    if (lseek(fd, 0, SEEK_SET) != 0) return text;
    ssize_t n;
    while ((n = read(fd, buffer, sizeof buffer)) > 0)
        text.append(buffer, static_cast<size_t>(n));
    return text;
}

std::vector<std::string> split_tabs(const std::string &line, size_t fields) {
    std::vector<std::string> out;
    size_t start = 0;
    while (out.size() + 1 < fields) {
        const size_t tab = line.find('\t', start);
        if (tab == std::string::npos) break;
        out.push_back(line.substr(start, tab - start));
        start = tab + 1;
    }
    out.push_back(line.substr(start));
    return out;
}

int log_show(int argc, char **argv) {
    if (argc < 3) return usage(false);
    const int log_class = parse_name(kClasses, argv[2]);
    if (log_class < 0) return bad_word("unknown log class", argv[2]);
    // The library writes into a file by name: a memory file keeps the text off any disk.
    const int fd = memfd_create("kovactl-log", MFD_CLOEXEC);
    if (fd < 0) {
        fprintf(stderr, "kovactl: log: cannot make a memory file: %s\n", strerror(errno));
        return 1;
    }
    char path[64];
    snprintf(path, sizeof path, "/proc/self/fd/%d", fd);
    const int rc = KOVALogGet1(log_class, path, option(argc, argv, "--lang"));
    const std::string text = read_all(fd);
    close(fd);
    if (rc != 0) return report_failure(argv[2]);
    if (!has_flag(argc, argv, "--json")) {
        fputs(text.c_str(), stdout);
        return 0;
    }
    nlohmann::json events = nlohmann::json::array();
    size_t start = 0;
    while (start < text.size()) {
        size_t end = text.find('\n', start);
        if (end == std::string::npos) end = text.size();
        const auto f = split_tabs(text.substr(start, end - start), 6);
        start = end + 1;
        if (f.size() < 6) continue;
        events.push_back({{"type", atoi(f[0].c_str())},
                          {"level", f[1]},
                          {"time", f[2]},
                          {"program", f[3]},
                          {"user", f[4]},
                          {"text", f[5]}});
    }
    print_json(events);
    return 0;
}

int log_add(int argc, char **argv) {
    if (argc < 5 || argc > 9) return usage(false);
    const int log_class = parse_name(kClasses, argv[2]);
    if (log_class < 0) return bad_word("unknown log class", argv[2]);
    const int type = parse_name(kTypes, argv[3]);
    if (type < 0) return bad_word("unknown event type", argv[3]);
    uint32_t key = 0;
    if (!kova::log_names::parse_key(argv[4], &key)) return bad_word("bad event key", argv[4]);
    const char *args[4] = {};
    for (int i = 5; i < argc; ++i)
        args[i - 5] = argv[i];
    if (KOVALogSet1(log_class, type, key, args[0], args[1], args[2], args[3]) != 0) {
        return report_failure(argv[2]);
    }
    return 0;
}

int log_size(int argc, char **argv) {
    if (argc != 4) return usage(false);
    const int log_class = parse_name(kClasses, argv[2]);
    if (log_class < 0) return bad_word("unknown log class", argv[2]);
    char *end = nullptr;
    const long bytes = strtol(argv[3], &end, 10);
    if (end == argv[3] || *end != '\0' || bytes <= 0 || bytes > INT32_MAX) {
        return bad_word("bad size", argv[3]);
    }
    if (KOVALogSetSize(static_cast<int>(bytes), log_class) != 0) return report_failure(argv[2]);
    return 0;
}

int log_conn(int argc, char **argv) {
    PKOVALOGCONN conns = nullptr;
    const int count = KOVALogGet(KOVA_LOG_CLASS_MAN, 1, &conns, nullptr);
    if (count < 0) return report_failure("connections");
    const bool json = has_flag(argc, argv, "--json");
    nlohmann::json list = nlohmann::json::array();
    static constexpr const char *kTypeNames[] = {"", "", "", "", "smb", "apple", "", "ftp"};
    for (int i = 0; i < count; ++i) {
        const KOVALOGCONN &c = conns[i];
        const char *type = c.iType >= 0 && c.iType < 8 ? kTypeNames[c.iType] : "";
        if (json) {
            list.push_back({{"time", c.szTime},
                            {"field3", c.szField3},
                            {"field2", c.szField2},
                            {"info", c.szInfo},
                            {"type", c.iType},
                            {"service", type}});
        } else {
            printf("%s\t%s\t%s\t%s\t%s\n", c.szTime, c.szField3, c.szField2, c.szInfo, type);
        }
    }
    free(conns);
    if (json) print_json(list);
    return 0;
}

}  // namespace

int cmd_log(int argc, char **argv) {
    static constexpr Subcommand kSubs[] = {
        {"show", log_show}, {"add", log_add}, {"size", log_size}, {"conn", log_conn}};
    return dispatch(argc, argv, "log", kSubs, kUsage);
}

}  // namespace kovactl
