#include <climits>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "commands.h"
#include "core/root.h"
#include "kovasdk/file.h"
#include "kovasdk/hash.h"

namespace kovactl {
namespace {

constexpr int kLockSeconds = 5;
constexpr uint32_t kWriteLock = KLIB_LOCK_KOVAINFO | KLIB_LOCK_EX | KLIB_LOCK_NB;

int usage() {
    fprintf(stderr,
            "usage: kovactl conf get FILE KEY [--section NAME]\n"
            "       kovactl conf set FILE KEY VALUE [--section NAME]\n"
            "       kovactl conf rm FILE KEY | rm FILE --section NAME\n"
            "       kovactl conf sections FILE\n"
            "       kovactl conf section FILE NAME\n"
            "FILE is an appliance path (resolved under --root) or a relative path.\n");
    return 2;
}

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

void print_pairs(const KLIBSZHASH *hash) {
    PKLIBSZLIST keys = PslKLIBSzListAlloc(0);
    if (keys == nullptr || KLIBSzHashEnumKey(hash, &keys) < 0) {
        KLIBSzListFree(keys);
        return;
    }
    KLIBSzListSortItems(keys, KLIB_SZLIST_SORT_BYTES);
    for (int i = 0; i < keys->nItem; ++i) {
        printf("%s=%s\n", keys->pszItem[i], SzKLIBSzHashGetValue(hash, keys->pszItem[i]));
    }
    KLIBSzListFree(keys);
}

int get(const char *file, const char *key, const char *section) {
    if (section != nullptr) {
        PKLIBSZHASH hash = nullptr;
        if (KLIBFileGetSection(file, section, &hash) < 0) return report_failure("conf get");
        const char *value = SzKLIBSzHashGetValue(hash, key);
        if (value != nullptr) printf("%s\n", value);
        KLIBSzHashFree(hash);
        return value != nullptr ? 0 : 1;
    }
    const int needed = KLIBFileGetKeyValue(file, key, nullptr, 0, 0);
    if (needed < 0) return report_failure("conf get");
    if (needed == 0) return 1;
    char *value = static_cast<char *>(malloc(static_cast<size_t>(needed)));
    if (value == nullptr) return 1;
    const int got = KLIBFileGetKeyValue(file, key, value, needed, 0);
    if (got > 0) printf("%s\n", value);
    free(value);
    return got > 0 ? 0 : report_failure("conf get");
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

}  // namespace

int cmd_conf(int argc, char **argv) {
    const char *section = take_section(&argc, argv);
    if (argc < 3) return usage();
    const char *op = argv[1];
    char resolved[PATH_MAX];
    const char *file = resolve(argv[2], resolved);
    if (strcmp(op, "get") == 0 && argc == 4) return get(file, argv[3], section);
    if (strcmp(op, "set") == 0 && argc == 5) {
        return section != nullptr
                   ? locked_change("conf set", set_in_section, file, argv[3], argv[4], section)
                   : locked_change("conf set", set_flat, file, argv[3], argv[4], nullptr);
    }
    if (strcmp(op, "rm") == 0 && argc == 4 && section == nullptr) {
        return locked_change("conf rm", remove_key, file, argv[3], nullptr, nullptr);
    }
    if (strcmp(op, "rm") == 0 && argc == 3 && section != nullptr) {
        return locked_change("conf rm", remove_section, file, section, nullptr, nullptr);
    }
    if (strcmp(op, "sections") == 0 && argc == 3) {
        PKLIBSZLIST names = nullptr;
        if (KLIBFileEnumSection(file, &names) < 0) return report_failure("conf sections");
        for (int i = 0; i < names->nItem; ++i)
            printf("%s\n", names->pszItem[i]);
        KLIBSzListFree(names);
        return 0;
    }
    if (strcmp(op, "section") == 0 && argc == 4) {
        PKLIBSZHASH hash = nullptr;
        if (KLIBFileGetSection(file, argv[3], &hash) < 0) return report_failure("conf section");
        print_pairs(hash);
        const int pairs = KLIBSzHashPairNum(hash);
        KLIBSzHashFree(hash);
        return pairs > 0 ? 0 : 1;
    }
    return usage();
}

}  // namespace kovactl
