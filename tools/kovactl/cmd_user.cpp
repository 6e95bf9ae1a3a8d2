// kovactl user: the appliance's user accounts.
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <nlohmann/json.hpp>
#include <string>

#include "args.h"
#include "commands.h"
#include "kovasdk/list.h"
#include "kovasdk/user.h"

namespace kovactl {
namespace {

constexpr char kUsage[] =
    "usage: kovactl user list [--json] [--prefix TEXT] [--domain | --all]\n"
    "       kovactl user get NAME [--json]\n"
    "       kovactl user add NAME [OPTIONS]           (a new id is chosen)\n"
    "       kovactl user set NAME [--name NEW] [OPTIONS]\n"
    "       kovactl user passwd NAME PASSWORD         (\"-\" reads it from standard input)\n"
    "       kovactl user del NAME\n"
    "OPTIONS: --password TEXT --description TEXT --home DIR --shell PATH --gid N\n"
    "         --mail ADDRESS --privilege MASK --expire YYYY-MM-DD|DAYS|never\n"
    "Names match without regard to case. Local users only are changed here.\n";

int usage(bool asked) {
    return print_usage(kUsage, asked);
}

// "never", a day count since the epoch, or a date (the end of that day counts).
bool parse_expire(const char *text, int32_t *day) {
    if (strcmp(text, "never") == 0) {
        *day = 0;
        return true;
    }
    struct tm tm {};
    const char *end = strptime(text, "%Y-%m-%d", &tm);
    if (end != nullptr && *end == '\0') {
        *day = static_cast<int32_t>(timegm(&tm) / 86400);
        return true;
    }
    char *rest = nullptr;
    const long n = strtol(text, &rest, 10);
    if (rest == text || *rest != '\0' || n < 0 || n > INT32_MAX) return false;
    *day = static_cast<int32_t>(n);
    return true;
}

std::string expire_text(int32_t day) {
    if (day <= 0) return "never";
    const time_t when = static_cast<time_t>(day) * 86400;
    struct tm tm {};
    gmtime_r(&when, &tm);
    char text[32];
    strftime(text, sizeof text, "%Y-%m-%d", &tm);
    return text;
}

nlohmann::json to_json(const KOVAUSER &user) {
    return {{"name", user.szName},
            {"uid", user.uid},
            {"gid", user.gid},
            {"description", user.szDescription},
            {"home", user.szHomeDir},
            {"shell", user.szShell},
            {"expire_day", user.expireDay},
            {"expires", expire_text(user.expireDay)},
            {"expired", user.expireDay > 0 && KOVAUserIsExpired(user.expireDay) == 1},
            {"mail", user.szMail != nullptr ? user.szMail : ""},
            {"type", user.type == KOVA_USER_TYPE_DOMAIN ? "domain" : "local"},
            {"privilege", user.privilege}};
}

void print_user(const KOVAUSER &user) {
    printf("name:        %s\n", user.szName);
    printf("uid/gid:     %u/%u\n", user.uid, user.gid);
    printf("description: %s\n", user.szDescription);
    printf("home:        %s\n", user.szHomeDir);
    printf("shell:       %s\n", user.szShell);
    printf("expires:     %s%s\n", expire_text(user.expireDay).c_str(),
           user.expireDay > 0 && KOVAUserIsExpired(user.expireDay) == 1 ? " (expired)" : "");
    printf("mail:        %s\n", user.szMail != nullptr ? user.szMail : "");
    printf("privilege:   %d\n", user.privilege);
}

int user_list(int argc, char **argv) {
    int mask = KOVA_USER_MASK_LOCAL;
    if (has_flag(argc, argv, "--domain")) mask = KOVA_USER_MASK_DOMAIN;
    if (has_flag(argc, argv, "--all")) mask = KOVA_USER_MASK_LOCAL | KOVA_USER_MASK_DOMAIN;
    const char *prefix = option(argc, argv, "--prefix");
    PKLIBSZLIST names = PslKLIBSzListAlloc(0);
    if (names == nullptr) return report_failure("user list");
    const int n =
        prefix != nullptr ? KOVAUserEnumByPrefix(&names, mask, prefix) : KOVAUserEnum(&names, mask);
    if (n < 0) {
        KLIBSzListFree(names);
        return report_failure("user list");
    }
    const bool json = has_flag(argc, argv, "--json");
    nlohmann::json all = nlohmann::json::array();
    PKOVAUSER user = nullptr;
    for (int i = 0; i < n; ++i) {
        const char *name = SzKLIBSzListGet(names, i);
        if (KOVAUserGet(name, &user) != 0) {
            if (!json) printf("%-20s (unreadable)\n", name);
            continue;
        }
        if (json) {
            all.push_back(to_json(*user));
        } else {
            printf("%-20s %6u  %s\n", user->szName, user->uid, user->szDescription);
        }
    }
    KOVAUserFree(user);
    KLIBSzListFree(names);
    if (json) print_json(all);
    return 0;
}

int user_get(int argc, char **argv) {
    if (argc < 3) return usage(false);
    PKOVAUSER user = nullptr;
    if (KOVAUserGet(argv[2], &user) != 0) return report_failure(argv[2]);
    if (has_flag(argc, argv, "--json")) {
        print_json(to_json(*user));
    } else {
        print_user(*user);
    }
    KOVAUserFree(user);
    return 0;
}

// The record of a new user, or an existing one changed by the options.
int build_user(int argc, char **argv, const KOVAUSER *base, const char *name, PKOVAUSER *out) {
    const char *password = option(argc, argv, "--password");
    const char *description = option(argc, argv, "--description");
    const char *home = option(argc, argv, "--home");
    const char *shell = option(argc, argv, "--shell");
    const char *mail = option(argc, argv, "--mail");
    const char *gid = option(argc, argv, "--gid");
    const char *privilege = option(argc, argv, "--privilege");
    const char *expire = option(argc, argv, "--expire");
    int32_t day = base != nullptr ? base->expireDay : 0;
    if (expire != nullptr && !parse_expire(expire, &day)) {
        fprintf(stderr, "kovactl: user: bad expiry date '%s'\n", expire);
        return 1;
    }
    const bool renamed = base != nullptr && strcmp(base->szName, name) != 0;
    // A renamed user's home follows the name unless given.
    const char *kept_home = base != nullptr && !renamed ? base->szHomeDir : nullptr;
    if (KOVAUserAlloc(out, name,
                      password != nullptr ? password
                      : base              ? base->szPassword
                                          : "",
                      base != nullptr ? base->uid : 0,
                      gid != nullptr ? static_cast<uint32_t>(atol(gid))
                      : base         ? base->gid
                                     : 100,
                      description != nullptr ? description
                      : base                 ? base->szDescription
                                             : "",
                      home != nullptr ? home : kept_home,
                      shell != nullptr ? shell
                      : base           ? base->szShell
                                       : nullptr,
                      day,
                      mail != nullptr ? mail
                      : base          ? base->szMail
                                      : nullptr,
                      privilege != nullptr ? atoi(privilege)
                      : base               ? base->privilege
                                           : 0) != 0) {
        return report_failure("user");
    }
    return 0;
}

int user_add(int argc, char **argv) {
    if (argc < 3) return usage(false);
    PKOVAUSER user = nullptr;
    if (build_user(argc, argv, nullptr, argv[2], &user) != 0) return 1;
    const int rc = KOVAUserSetOne(nullptr, user);
    if (rc == 0) printf("created %s with uid %u\n", user->szName, user->uid);
    KOVAUserFree(user);
    return rc == 0 ? 0 : report_failure(argv[2]);
}

int user_set(int argc, char **argv) {
    if (argc < 3) return usage(false);
    PKOVAUSER old = nullptr;
    if (KOVAUserGet(argv[2], &old) != 0) return report_failure(argv[2]);
    const char *name = option(argc, argv, "--name");
    PKOVAUSER user = nullptr;
    int rc = build_user(argc, argv, old, name != nullptr ? name : old->szName, &user);
    if (rc == 0) {
        rc = KOVAUserSetOne(old->szName, user) == 0 ? 0 : report_failure(argv[2]);
    }
    KOVAUserFree(user);
    KOVAUserFree(old);
    return rc;
}

int user_passwd(int argc, char **argv) {
    if (argc < 4) return usage(false);
    char line[512];
    const char *password = argv[3];
    if (strcmp(password, "-") == 0) {
        if (fgets(line, sizeof line, stdin) == nullptr) line[0] = '\0';
        line[strcspn(line, "\n")] = '\0';
        password = line;
    }
    return KOVAUserSetPasswd(argv[2], password) == 0 ? 0 : report_failure(argv[2]);
}

int user_del(int argc, char **argv) {
    if (argc < 3) return usage(false);
    return KOVAUserDelete(argv[2]) == 0 ? 0 : report_failure(argv[2]);
}

}  // namespace

int cmd_user(int argc, char **argv) {
    static constexpr Subcommand kSubs[] = {{"list", user_list}, {"get", user_get},
                                           {"add", user_add},   {"set", user_set},
                                           {"del", user_del},   {"passwd", user_passwd}};
    return dispatch(argc, argv, "user", kSubs, kUsage);
}

}  // namespace kovactl
