// kovactl group: the appliance's local groups.
#include <cstdio>
#include <cstring>
#include <string>

#include "args.h"
#include "commands.h"
#include "kovasdk/group.h"
#include "kovasdk/list.h"

namespace kovactl {
namespace {

constexpr char kUsage[] =
    "usage: kovactl group list [--json] [--prefix TEXT]\n"
    "       kovactl group get NAME [--json]\n"
    "       kovactl group add NAME [--members A,B,...] [--description TEXT]  (a new id is "
    "chosen)\n"
    "       kovactl group set NAME [--name NEW] [--members A,B,...] [--description TEXT]\n"
    "       kovactl group del NAME\n"
    "       kovactl group members NAME [--json]\n"
    "Names match without regard to case; members that are no users are left out.\n";

int usage(bool asked) {
    return print_usage(kUsage, asked);
}

std::string description_of(const char *name) {
    char desc[1024];
    return KOVAGroupDescGet(name, desc, sizeof desc) > 0 ? desc : "";
}

nlohmann::json to_json(const KOVAGROUP &group) {
    nlohmann::json members = nlohmann::json::array();
    for (const char *at = group.szMembers; *at != '\0';) {
        const char *end = strchr(at, ',');
        const size_t len = end != nullptr ? static_cast<size_t>(end - at) : strlen(at);
        members.push_back(std::string(at, len));
        at = end != nullptr ? end + 1 : at + len;
    }
    return {{"name", group.szName},
            {"gid", group.gid},
            {"members", members},
            {"description", description_of(group.szName)}};
}

int group_list(int argc, char **argv) {
    const char *prefix = option(argc, argv, "--prefix");
    PKLIBSZLIST names = PslKLIBSzListAlloc(0);
    if (names == nullptr) return report_failure("group list");
    const int n = prefix != nullptr ? KOVAGroupEnumByPrefix(&names, prefix) : KOVAGroupEnum(&names);
    if (n < 0) {
        KLIBSzListFree(names);
        return report_failure("group list");
    }
    const bool json = has_flag(argc, argv, "--json");
    nlohmann::json all = nlohmann::json::array();
    PKOVAGROUP group = nullptr;
    for (int i = 0; i < n; ++i) {
        const char *name = SzKLIBSzListGet(names, i);
        if (KOVAGroupGet(name, &group) != 0) {
            if (!json) printf("%-16s (unreadable)\n", name);
            continue;
        }
        if (json) {
            all.push_back(to_json(*group));
        } else {
            printf("%-16s %6u  %s\n", group->szName, group->gid, group->szMembers);
        }
    }
    KOVAGroupFree(group);
    KLIBSzListFree(names);
    if (json) print_json(all);
    return 0;
}

int group_get(int argc, char **argv) {
    if (argc < 3) return usage(false);
    PKOVAGROUP group = nullptr;
    if (KOVAGroupGet(argv[2], &group) != 0) return report_failure(argv[2]);
    if (has_flag(argc, argv, "--json")) {
        print_json(to_json(*group));
    } else {
        printf("name:        %s\n", group->szName);
        printf("gid:         %u\n", group->gid);
        printf("members:     %s\n", group->szMembers);
        printf("description: %s\n", description_of(group->szName).c_str());
    }
    KOVAGroupFree(group);
    return 0;
}

// Creates (old null) or changes a group from the options, then its description when given.
int write_group(int argc, char **argv, const KOVAGROUP *old, const char *name) {
    const char *members = option(argc, argv, "--members");
    PKOVAGROUP group = nullptr;
    if (KOVAGroupAlloc(&group, name, 0,
                       members != nullptr ? members
                       : old != nullptr   ? old->szMembers
                                          : "") != 0) {
        return report_failure(name);
    }
    int rc = KOVAGroupSet(old != nullptr ? old->szName : nullptr, group);
    if (rc == 0 && old == nullptr) printf("created %s with gid %u\n", group->szName, group->gid);
    const char *description = option(argc, argv, "--description");
    if (rc == 0 && description != nullptr) rc = KOVAGroupDescSet(group->szName, description);
    KOVAGroupFree(group);
    return rc == 0 ? 0 : report_failure(name);
}

int group_add(int argc, char **argv) {
    if (argc < 3) return usage(false);
    return write_group(argc, argv, nullptr, argv[2]);
}

int group_set(int argc, char **argv) {
    if (argc < 3) return usage(false);
    PKOVAGROUP old = nullptr;
    if (KOVAGroupGet(argv[2], &old) != 0) return report_failure(argv[2]);
    const char *name = option(argc, argv, "--name");
    const int rc = write_group(argc, argv, old, name != nullptr ? name : old->szName);
    KOVAGroupFree(old);
    return rc;
}

int group_del(int argc, char **argv) {
    if (argc < 3) return usage(false);
    return KOVAGroupDelete(argv[2]) == 0 ? 0 : report_failure(argv[2]);
}

int group_members(int argc, char **argv) {
    if (argc < 3) return usage(false);
    PKLIBSZLIST members = PslKLIBSzListAlloc(0);
    if (members == nullptr) return report_failure(argv[2]);
    const int n = KOVAGroupListMember(argv[2], &members);
    if (n < 0) {
        KLIBSzListFree(members);
        return report_failure(argv[2]);
    }
    nlohmann::json all = nlohmann::json::array();
    for (int i = 0; i < n; ++i) {
        if (has_flag(argc, argv, "--json")) {
            all.push_back(SzKLIBSzListGet(members, i));
        } else {
            puts(SzKLIBSzListGet(members, i));
        }
    }
    KLIBSzListFree(members);
    if (has_flag(argc, argv, "--json")) print_json(all);
    return 0;
}

}  // namespace

int cmd_group(int argc, char **argv) {
    static constexpr Subcommand kSubs[] = {{"list", group_list}, {"get", group_get},
                                           {"add", group_add},   {"set", group_set},
                                           {"del", group_del},   {"members", group_members}};
    return dispatch(argc, argv, "group", kSubs, kUsage);
}

}  // namespace kovactl
