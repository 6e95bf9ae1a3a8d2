// kovactl discover and kovactl net: finding the other appliances on the network, and this
// appliance's configured interfaces.
#include <algorithm>
#include <cstdio>
#include <cstring>
#include <string>
#include <utility>
#include <vector>

#include "args.h"
#include "commands.h"
#include "kovasdk/hash.h"
#include "kovasdk/list.h"
#include "kovasdk/socket.h"

namespace kovactl {
namespace {

constexpr char kDiscoverUsage[] =
    "usage: kovactl discover [--json]\n"
    "Sends the discovery query out of every configured interface, waits 10 seconds for the\n"
    "answers (starting the discovery daemon first when it is not running) and prints the\n"
    "appliances found, one \"NAME ADDRESS\" line each.\n";

constexpr char kNetUsage[] =
    "usage: kovactl net cards [--json]    the configured interfaces, by slot\n";

using Host = std::pair<std::string, std::string>;  // name, address

// The reader's keys are "name(address)"; the value is the address.
std::vector<Host> hosts_of(const KLIBSZHASH *found) {
    std::vector<Host> hosts;
    PKLIBSZLIST keys = nullptr;
    const int n = KLIBSzHashEnumKey(found, &keys);
    for (int i = 0; i < n; ++i) {
        const std::string key = SzKLIBSzListGet(keys, i);
        const std::string address = SzKLIBSzHashGetValue(found, key.c_str());
        const size_t cut = key.size() >= address.size() + 2 ? key.size() - address.size() - 2 : 0;
        hosts.emplace_back(key.substr(0, cut), address);
    }
    KLIBSzListFree(keys);
    std::sort(hosts.begin(), hosts.end());
    return hosts;
}

int discover(int argc, char **argv) {
    for (int i = 1; i < argc; ++i) {
        if (strcmp(argv[i], "--help") == 0 || strcmp(argv[i], "-h") == 0) {
            return print_usage(kDiscoverUsage, true);
        }
        if (strcmp(argv[i], "--json") != 0) return print_usage(kDiscoverUsage, false);
    }
    if (KOVAFHOSTDumpHost() != 0) return report_failure("discover");
    PKLIBSZHASH found = PshKLIBSzHashAlloc(0);
    if (found == nullptr) return report_failure("discover");
    if (KOVAFHOSTGet2Hash(&found) < 0) {
        KLIBSzHashFree(found);
        return report_failure("discover");
    }
    const std::vector<Host> hosts = hosts_of(found);
    KLIBSzHashFree(found);
    if (has_flag(argc, argv, "--json")) {
        nlohmann::json all = nlohmann::json::array();
        for (const auto &[name, address] : hosts)
            all.push_back({{"name", name}, {"address", address}});
        print_json(all);
        return 0;
    }
    if (hosts.empty()) printf("no appliance answered\n");
    for (const auto &[name, address] : hosts)
        printf("%s %s\n", name.c_str(), address.c_str());
    return 0;
}

int net_cards(int argc, char **argv) {
    if (has_flag(argc, argv, "--help") || has_flag(argc, argv, "-h")) {
        return print_usage(kNetUsage, true);
    }
    const bool json = has_flag(argc, argv, "--json");
    nlohmann::json all = nlohmann::json::array();
    for (int slot = 0; slot < KOVA_NET_MAX_CARDS; ++slot) {
        KOVANETCARD card{};
        const int rc = KOVANetGetCard1(slot, nullptr, &card);
        if (rc < 0) return report_failure("net cards");
        if (rc == 0) break;
        const char *how = card.blDhcp ? "dhcp" : "static";
        if (json) {
            all.push_back({{"slot", slot},
                           {"device", card.szDevice},
                           {"config", how},
                           {"address", card.szIPAddr},
                           {"netmask", card.szNetmask}});
        } else {
            printf("%d %s %s %s %s\n", slot, card.szDevice, how,
                   card.szIPAddr[0] != '\0' ? card.szIPAddr : "-",
                   card.szNetmask[0] != '\0' ? card.szNetmask : "-");
        }
    }
    if (json) print_json(all);
    return 0;
}

}  // namespace

int cmd_discover(int argc, char **argv) {
    if (is_subcommand_query(argc, argv)) return 0;  // no subcommands
    return discover(argc, argv);
}

int cmd_net(int argc, char **argv) {
    static constexpr Subcommand kSubs[] = {{"cards", net_cards}};
    return dispatch(argc, argv, "net", kSubs, kNetUsage);
}

}  // namespace kovactl
