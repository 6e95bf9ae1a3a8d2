// kovactl share: the appliance's shared folders.
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

#include "args.h"
#include "commands.h"
#include "kovasdk/list.h"
#include "kovasdk/share.h"

namespace kovactl {
namespace {

constexpr char kUsage[] =
    "usage: kovactl share list [--json] [--prefix TEXT]\n"
    "       kovactl share get NAME [--json]\n"
    "       kovactl share add NAME --path DIR [OPTIONS]\n"
    "       kovactl share set NAME [--name NEW] [OPTIONS]\n"
    "       kovactl share del NAME\n"
    "       kovactl share rights NAME [--json]   (each user or @group with NA, RW or RO)\n"
    "OPTIONS: --path DIR --comment TEXT --deny A,@G --rw A,@G --ro A,@G\n"
    "         --access ro|rw|none   (everybody else) --hidden --visible --ftp-write-only yes|no\n"
    "Names match without regard to case.\n";

int usage(bool asked) {
    return print_usage(kUsage, asked);
}

const char *access_text(int32_t type) {
    switch (type) {
        case KOVA_SHARE_READ_WRITE:
            return "rw";
        case KOVA_SHARE_NO_ACCESS:
            return "none";
        default:
            return "ro";
    }
}

nlohmann::json to_json(const KOVASHARE &share) {
    return {{"name", share.szName},
            {"comment", share.szComment},
            {"path", share.szPath},
            {"deny", share.szDenyList},
            {"rw", share.szRWList},
            {"ro", share.szROList},
            {"access", access_text(share.fType)},
            {"browseable", share.browseable != 0},
            {"ftp_write_only", share.ftpWriteOnly != 0}};
}

int share_list(int argc, char **argv) {
    const char *prefix = option(argc, argv, "--prefix");
    PKLIBSZLIST names = PslKLIBSzListAlloc(0);
    if (names == nullptr) return report_failure("share list");
    const int n = prefix != nullptr ? KOVAShareEnumByPrefix(&names, prefix) : KOVAShareEnum(&names);
    if (n < 0) {
        KLIBSzListFree(names);
        return report_failure("share list");
    }
    const bool json = has_flag(argc, argv, "--json");
    nlohmann::json all = nlohmann::json::array();
    PKOVASHARE share = nullptr;
    for (int i = 0; i < n; ++i) {
        const char *name = SzKLIBSzListGet(names, i);
        if (KOVAShareGet(name, &share) != 0) {
            if (!json) printf("%-20s (unreadable)\n", name);
            continue;
        }
        if (json) {
            all.push_back(to_json(*share));
        } else {
            printf("%-20s %-4s %s\n", share->szName, access_text(share->fType), share->szPath);
        }
    }
    KOVAShareFree(share);
    KLIBSzListFree(names);
    if (json) print_json(all);
    return 0;
}

int share_get(int argc, char **argv) {
    if (argc < 3) return usage(false);
    PKOVASHARE share = nullptr;
    if (KOVAShareGet(argv[2], &share) != 0) return report_failure(argv[2]);
    if (has_flag(argc, argv, "--json")) {
        print_json(to_json(*share));
    } else {
        printf("name:       %s\n", share->szName);
        printf("comment:    %s\n", share->szComment);
        printf("path:       %s\n", share->szPath);
        printf("deny:       %s\n", share->szDenyList);
        printf("read-write: %s\n", share->szRWList);
        printf("read-only:  %s\n", share->szROList);
        printf("others:     %s\n", access_text(share->fType));
        printf("browseable: %s\n", share->browseable != 0 ? "yes" : "no");
    }
    KOVAShareFree(share);
    return 0;
}

// Writes a new share (old null) or changes one from the options.
int write_share(int argc, char **argv, const KOVASHARE *old, const char *name) {
    KOVASHARE share = old != nullptr ? *old : KOVASHARE{};
    share.szName = const_cast<char *>(name);
    if (old == nullptr) {
        share.fType = KOVA_SHARE_READ_ONLY;
        share.browseable = 1;
    }
    struct {
        const char *option;
        char *KOVASHARE::*field;
    } const texts[] = {{"--path", &KOVASHARE::szPath},
                       {"--comment", &KOVASHARE::szComment},
                       {"--deny", &KOVASHARE::szDenyList},
                       {"--rw", &KOVASHARE::szRWList},
                       {"--ro", &KOVASHARE::szROList}};
    for (const auto &text : texts) {
        if (const char *value = option(argc, argv, text.option)) {
            share.*text.field = const_cast<char *>(value);
        }
    }
    if (const char *access = option(argc, argv, "--access")) {
        if (strcmp(access, "rw") == 0) {
            share.fType = KOVA_SHARE_READ_WRITE;
        } else if (strcmp(access, "none") == 0) {
            share.fType = KOVA_SHARE_NO_ACCESS;
        } else if (strcmp(access, "ro") == 0) {
            share.fType = KOVA_SHARE_READ_ONLY;
        } else {
            fprintf(stderr, "kovactl: share: --access is ro, rw or none\n");
            return 1;
        }
    }
    if (has_flag(argc, argv, "--hidden")) share.browseable = 0;
    if (has_flag(argc, argv, "--visible")) share.browseable = 1;
    if (const char *ftp = option(argc, argv, "--ftp-write-only")) {
        share.ftpWriteOnly = strcmp(ftp, "yes") == 0 ? 1 : 0;
    }
    if (KOVAShareSet(old != nullptr ? old->szName : nullptr, &share) != 0) {
        return report_failure(name);
    }
    if (old == nullptr) printf("created %s at %s\n", name, share.szPath);
    return 0;
}

int share_add(int argc, char **argv) {
    if (argc < 3) return usage(false);
    return write_share(argc, argv, nullptr, argv[2]);
}

int share_set(int argc, char **argv) {
    if (argc < 3) return usage(false);
    PKOVASHARE old = nullptr;
    if (KOVAShareGet(argv[2], &old) != 0) return report_failure(argv[2]);
    const char *name = option(argc, argv, "--name");
    const int rc = write_share(argc, argv, old, name != nullptr ? name : old->szName);
    KOVAShareFree(old);
    return rc;
}

int share_del(int argc, char **argv) {
    if (argc < 3) return usage(false);
    return KOVAShareDelete(argv[2]) == 0 ? 0 : report_failure(argv[2]);
}

int share_rights(int argc, char **argv) {
    if (argc < 3) return usage(false);
    PKOVASHARE share = nullptr;
    if (KOVAShareGet(argv[2], &share) != 0) return report_failure(argv[2]);
    PKLIBSZLIST rights = PslKLIBSzListAlloc(0);
    const int n = rights != nullptr
                      ? ParseRights(share->szDenyList, share->szRWList, share->szROList, &rights)
                      : -1;
    KOVAShareFree(share);
    if (n < 0) {
        KLIBSzListFree(rights);
        return report_failure(argv[2]);
    }
    const bool json = has_flag(argc, argv, "--json");
    nlohmann::json all = nlohmann::json::object();
    for (int i = 0; i < n; ++i) {
        const std::string entry = SzKLIBSzListGet(rights, i);
        const size_t dash = entry.rfind(" - ");
        if (json) {
            all[entry.substr(0, dash)] = entry.substr(dash + 3);
        } else {
            puts(entry.c_str());
        }
    }
    KLIBSzListFree(rights);
    if (json) print_json(all);
    return 0;
}

}  // namespace

int cmd_share(int argc, char **argv) {
    static constexpr Subcommand kSubs[] = {{"list", share_list}, {"get", share_get},
                                           {"add", share_add},   {"set", share_set},
                                           {"del", share_del},   {"rights", share_rights}};
    return dispatch(argc, argv, "share", kSubs, kUsage);
}

}  // namespace kovactl
