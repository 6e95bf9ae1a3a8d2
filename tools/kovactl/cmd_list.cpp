#include <cstdio>
#include <cstring>

#include "commands.h"
#include "kovasdk/list.h"

namespace kovactl {
namespace {

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

void print(const KLIBSZLIST *list) {
    for (int i = 0; i < list->nItem; ++i)
        printf("%s%s", i ? "," : "", SzKLIBSzListGet(list, i));
    printf("\n");
}

int usage() {
    fprintf(stderr,
            "usage: kovactl list sort|casesort LIST\n"
            "       kovactl list and|or|sub LIST1 LIST2     (LIST: comma-separated names)\n");
    return 2;
}

}  // namespace

int cmd_list(int argc, char **argv) {
    if (argc < 3) return usage();
    const char *op = argv[1];
    PKLIBSZLIST a = from_commas(argv[2]);
    if (a == nullptr) return report_failure("list");
    int rc = 0;
    if (argc == 3 && (strcmp(op, "sort") == 0 || strcmp(op, "casesort") == 0)) {
        KLIBSzListSortItems(
            a, strcmp(op, "sort") == 0 ? KLIB_SZLIST_SORT_BYTES : KLIB_SZLIST_SORT_CASE);
        print(a);
    } else if (argc == 4) {
        PKLIBSZLIST b = from_commas(argv[3]);
        PKLIBSZLIST result = nullptr;
        if (b != nullptr && strcmp(op, "and") == 0) {
            result = PslKLIBSzListAnd(a, b, KLIB_SZLIST_NEW_LIST);
        } else if (b != nullptr && strcmp(op, "or") == 0) {
            result = PslKLIBSzListOr(&a, b, KLIB_SZLIST_NEW_LIST);
        } else if (b != nullptr && strcmp(op, "sub") == 0) {
            result = PslKLIBSzListSub(a, b, KLIB_SZLIST_NEW_LIST);
        } else if (b != nullptr) {
            rc = usage();
        }
        if (result != nullptr) {
            print(result);
        } else if (rc == 0) {
            rc = report_failure("list");
        }
        KLIBSzListFree(result);
        KLIBSzListFree(b);
    } else {
        rc = usage();
    }
    KLIBSzListFree(a);
    return rc;
}

}  // namespace kovactl
