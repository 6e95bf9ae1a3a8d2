#include <cstdio>
#include <cstring>

#include "args.h"
#include "commands.h"
#include "kovasdk/list.h"

namespace kovactl {
namespace {

constexpr char kUsage[] =
    "usage: kovactl list sort|casesort LIST [--json]\n"
    "       kovactl list and|or|sub LIST1 LIST2 [--json]     (LIST: comma-separated names)\n";

// Splits "a,b,c" into a new list; null when the SDK fails.
PKLIBSZLIST from_commas(const char *text) {
    PKLIBSZLIST list = PslKLIBSzListAlloc(0);
    if (list == nullptr) return nullptr;
    const char *start = text;
    for (;;) {
        const char *comma = strchr(start, ',');
        const size_t len = comma != nullptr ? static_cast<size_t>(comma - start) : strlen(start);
        char item[1024];
        snprintf(item, sizeof item, "%.*s", static_cast<int>(len), start);
        if (KLIBSzListPush(&list, item) < 0) {
            KLIBSzListFree(list);
            return nullptr;
        }
        if (comma == nullptr) return list;
        start = comma + 1;
    }
}

// The result as a comma list, or as a JSON array of its items.
void print(const KLIBSZLIST *list, bool json) {
    if (json) {
        nlohmann::json items = nlohmann::json::array();
        for (int i = 0; i < list->nItem; ++i)
            items.push_back(SzKLIBSzListGet(list, i));
        print_json(items);
        return;
    }
    for (int i = 0; i < list->nItem; ++i)
        printf("%s%s", i ? "," : "", SzKLIBSzListGet(list, i));
    printf("\n");
}

int sort(int argc, char **argv) {
    const bool json = take_flag(&argc, argv, "--json");
    if (argc != 3) return kUsageError;
    PKLIBSZLIST list = from_commas(argv[2]);
    if (list == nullptr) return report_failure("list");
    KLIBSzListSortItems(
        list, strcmp(argv[1], "sort") == 0 ? KLIB_SZLIST_SORT_BYTES : KLIB_SZLIST_SORT_CASE);
    print(list, json);
    KLIBSzListFree(list);
    return 0;
}

// and, or, sub: a new list from the two.
int combine(int argc, char **argv) {
    const bool json = take_flag(&argc, argv, "--json");
    if (argc != 4) return kUsageError;
    PKLIBSZLIST a = from_commas(argv[2]);
    PKLIBSZLIST b = a != nullptr ? from_commas(argv[3]) : nullptr;
    PKLIBSZLIST result = nullptr;
    if (b != nullptr && strcmp(argv[1], "and") == 0) {
        result = PslKLIBSzListAnd(a, b, KLIB_SZLIST_NEW_LIST);
    } else if (b != nullptr && strcmp(argv[1], "or") == 0) {
        result = PslKLIBSzListOr(&a, b, KLIB_SZLIST_NEW_LIST);
    } else if (b != nullptr) {
        result = PslKLIBSzListSub(a, b, KLIB_SZLIST_NEW_LIST);
    }
    const int rc = result != nullptr ? 0 : report_failure("list");
    if (result != nullptr) print(result, json);
    KLIBSzListFree(result);
    KLIBSzListFree(b);
    KLIBSzListFree(a);
    return rc;
}

}  // namespace

int cmd_list(int argc, char **argv) {
    static constexpr Subcommand kSubs[] = {
        {"sort", sort}, {"casesort", sort}, {"and", combine}, {"or", combine}, {"sub", combine}};
    return dispatch(argc, argv, "list", kSubs, kUsage);
}

}  // namespace kovactl
