#include <climits>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "args.h"
#include "commands.h"
#include "core/root.h"
#include "kovasdk/file.h"
#include "kovasdk/hash.h"

namespace kovactl {
namespace {

constexpr int kLockSeconds = 5;
constexpr uint32_t kWriteLock = KLIB_LOCK_KOVAINFO | KLIB_LOCK_EX | KLIB_LOCK_NB;

constexpr char kUsage[] =
    "usage: kovactl conf get FILE KEY [--section NAME] [--json]\n"
    "       kovactl conf set FILE KEY VALUE [--section NAME]\n"
    "       kovactl conf rm FILE KEY | rm FILE --section NAME\n"
    "       kovactl conf sections FILE [--json]\n"
    "       kovactl conf section FILE NAME [--json]\n"
    "FILE is an appliance path (resolved under --root) or a relative path.\n";

// An absolute appliance path under the sandbox root by the library's own rule, so that --root
// works on an offline image.
const char *resolve(const char *file, char (&out)[PATH_MAX]) {
    if (file[0] != '/') return file;
    snprintf(out, sizeof out, "%s", kova::RootedPath(file).c_str());
    return out;
}

// The system information files keep their values quoted, the others plain.
const char *format_for(const char *file) {
    const size_t len = strlen(file);
    const char suffix[] = "kovainfo.conf";
    const size_t n = sizeof suffix - 1;
    return len >= n && strcmp(file + len - n, suffix) == 0 ? KLIB_FILE_FORMAT_QUOTED
                                                           : KLIB_FILE_FORMAT_PLAIN;
}

// Strips "--section NAME" from the arguments; the name or null.
const char *take_section(int *argc, char **argv) {
    for (int i = 0; i + 1 < *argc; ++i) {
        if (strcmp(argv[i], "--section") != 0) continue;
        const char *name = argv[i + 1];
        for (int j = i; j + 2 <= *argc; ++j)
            argv[j] = argv[j + 2];
        *argc -= 2;
        return name;
    }
    return nullptr;
}

// The section's pairs in byte order of their keys.
nlohmann::json sorted_pairs(const KLIBSZHASH *hash) {
    nlohmann::json pairs = nlohmann::json::object();
    PKLIBSZLIST keys = PslKLIBSzListAlloc(0);
    if (keys == nullptr || KLIBSzHashEnumKey(hash, &keys) < 0) {
        KLIBSzListFree(keys);
        return pairs;
    }
    for (int i = 0; i < keys->nItem; ++i)
        pairs[keys->pszItem[i]] = SzKLIBSzHashGetValue(hash, keys->pszItem[i]);
    KLIBSzListFree(keys);
    return pairs;
}

// The value of the key, or null when it is not there; false when the file cannot be read.
bool lookup(const char *file, const char *key, const char *section, nlohmann::json *value) {
    *value = nullptr;
    if (section != nullptr) {
        PKLIBSZHASH hash = nullptr;
        if (KLIBFileGetSection(file, section, &hash) < 0) return false;
        if (const char *found = SzKLIBSzHashGetValue(hash, key)) *value = found;
        KLIBSzHashFree(hash);
        return true;
    }
    const int needed = KLIBFileGetKeyValue(file, key, nullptr, 0, 0);
    if (needed < 0) return false;
    if (needed == 0) return true;
    char *text = static_cast<char *>(malloc(static_cast<size_t>(needed)));
    if (text == nullptr) return false;
    const int got = KLIBFileGetKeyValue(file, key, text, needed, 0);
    if (got > 0) *value = text;
    free(text);
    return got >= 0;
}

// Writers take the settings lock around the change, like the appliance's own programs.
int locked_change(const char *what,
                  int (*change)(const char *, const char *, const char *, const char *,
                                const char *),
                  const char *file, const char *a, const char *b, const char *c) {
    if (ErrKLIBFileLock(kWriteLock, kLockSeconds) != 0) return report_failure(what);
    const int rc = change(file, a, b, c, format_for(file));
    ErrKLIBFileUnlock(KLIB_LOCK_KOVAINFO);
    return rc;
}

int set_flat(const char *file, const char *key, const char *value, const char *,
             const char *format) {
    return KLIBFileSetKeyValue(file, key, value, format) == 1 ? 0 : report_failure("conf set");
}

int set_in_section(const char *file, const char *key, const char *value, const char *section,
                   const char *) {
    return ErrSetSecKeyVal(file, section, key, value, nullptr) == 1 ? 0
                                                                    : report_failure("conf set");
}

int remove_key(const char *file, const char *key, const char *, const char *, const char *) {
    const int rc = KLIBFileRemoveKey(file, key);
    if (rc < 0) return report_failure("conf rm");
    printf("%d line%s removed\n", rc, rc == 1 ? "" : "s");
    return rc > 0 ? 0 : 1;
}

int remove_section(const char *file, const char *section, const char *, const char *,
                   const char *) {
    const int rc = ErrKLIBFileRemoveSection(file, section);
    if (rc < 0) return report_failure("conf rm");
    return rc > 0 ? 0 : 1;
}

// The subcommands' arguments: FILE resolved, "--section NAME" and "--json" taken out.
struct ConfArgs {
    int argc = 0;
    char **argv = nullptr;
    const char *file = nullptr;
    const char *section = nullptr;
    bool json = false;
    char resolved[PATH_MAX];
};

bool parse(int argc, char **argv, ConfArgs *args) {
    args->section = take_section(&argc, argv);
    args->json = take_flag(&argc, argv, "--json");
    args->argc = argc;
    args->argv = argv;
    if (argc < 3) return false;
    args->file = resolve(argv[2], args->resolved);
    return true;
}

int conf_get(int argc, char **argv) {
    ConfArgs a;
    if (!parse(argc, argv, &a) || a.argc != 4) return kUsageError;
    nlohmann::json value;
    if (!lookup(a.file, a.argv[3], a.section, &value)) return report_failure("conf get");
    if (a.json) {
        print_json({{"file", a.argv[2]}, {"key", a.argv[3]}, {"value", value}});
    } else if (value.is_string()) {
        printf("%s\n", value.get<std::string>().c_str());
    }
    return value.is_string() ? 0 : 1;
}

int conf_set(int argc, char **argv) {
    ConfArgs a;
    if (!parse(argc, argv, &a) || a.argc != 5) return kUsageError;
    if (a.section != nullptr) {
        return locked_change("conf set", set_in_section, a.file, a.argv[3], a.argv[4], a.section);
    }
    return locked_change("conf set", set_flat, a.file, a.argv[3], a.argv[4], nullptr);
}

int conf_rm(int argc, char **argv) {
    ConfArgs a;
    if (!parse(argc, argv, &a)) return kUsageError;
    if (a.argc == 4 && a.section == nullptr) {
        return locked_change("conf rm", remove_key, a.file, a.argv[3], nullptr, nullptr);
    }
    if (a.argc == 3 && a.section != nullptr) {
        return locked_change("conf rm", remove_section, a.file, a.section, nullptr, nullptr);
    }
    return kUsageError;
}

int conf_sections(int argc, char **argv) {
    ConfArgs a;
    if (!parse(argc, argv, &a) || a.argc != 3) return kUsageError;
    PKLIBSZLIST names = nullptr;
    if (KLIBFileEnumSection(a.file, &names) < 0) return report_failure("conf sections");
    nlohmann::json all = nlohmann::json::array();
    for (int i = 0; i < names->nItem; ++i)
        all.push_back(names->pszItem[i]);
    KLIBSzListFree(names);
    if (a.json) {
        print_json(all);
    } else {
        for (const auto &name : all)
            printf("%s\n", name.get<std::string>().c_str());
    }
    return 0;
}

int conf_section(int argc, char **argv) {
    ConfArgs a;
    if (!parse(argc, argv, &a) || a.argc != 4) return kUsageError;
    PKLIBSZHASH hash = nullptr;
    if (KLIBFileGetSection(a.file, a.argv[3], &hash) < 0) return report_failure("conf section");
    const nlohmann::json pairs = sorted_pairs(hash);
    KLIBSzHashFree(hash);
    if (a.json) {
        print_json(pairs);
    } else {
        for (const auto &[key, value] : pairs.items())
            printf("%s=%s\n", key.c_str(), value.get<std::string>().c_str());
    }
    return pairs.empty() ? 1 : 0;
}

}  // namespace

int cmd_conf(int argc, char **argv) {
    static constexpr Subcommand kSubs[] = {{"get", conf_get},
                                           {"set", conf_set},
                                           {"rm", conf_rm},
                                           {"sections", conf_sections},
                                           {"section", conf_section}};
    return dispatch(argc, argv, "conf", kSubs, kUsage);
}

}  // namespace kovactl
