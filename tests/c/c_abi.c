/* Every public header, compiled as C99 and called through the shared library. */
#include <kovasdk/kovasdk.h>

#include <stdio.h>
#include <string.h>

static int failures = 0;

#define CHECK(cond)                                                                  \
    do {                                                                             \
        if (!(cond)) {                                                               \
            fprintf(stderr, "%s:%d: check failed: %s\n", __FILE__, __LINE__, #cond); \
            ++failures;                                                              \
        }                                                                            \
    } while (0)

static void error_family(void) {
    KLIBErrSetEx(ERR_BAD_PARAMETERS, "c_abi.c", 7);
    CHECK(KLIBErrGet() == ERR_BAD_PARAMETERS);
    CHECK(kovaerrno == ERR_BAD_PARAMETERS);
    CHECK(strcmp(KOVAErrorGetFile(), "c_abi.c") == 0);
    CHECK(KOVAErrorGetLine() == 7);
    CHECK(errNum == 145 && codeNum == 96);
    CHECK(strcmp(rgszErrMsg[ERR_KEY_NOT_FOUND >> 8], "ERR_KEY_NOT_FOUND") == 0);
    KOVAVolISetErr(ERR_NO_VOLUME_ID);
    CHECK(KOVAVolGetErr() == ERR_NO_VOLUME_ID && volerr == ERR_NO_VOLUME_ID);
    CHECK(gDiskErr == 0 && gRaidErr == 0);
}

static void list_family(void) {
    PKLIBSZLIST list = PslKLIBSzListAlloc(0);
    PKLIBSZLIST other;
    PKLIBSZLIST both;
    CHECK(list != NULL);
    CHECK(list->cbSize == 512);
    CHECK(KLIBSzListPush(&list, "beta") == 0);
    CHECK(KLIBSzListUnshift(&list, "alpha") == 0);
    CHECK(KLIBSzListFind(list, "beta") == 1);
    CHECK(KLIBSzListSortItems(list, KLIB_SZLIST_SORT_CASE) == 0);
    CHECK(KLIBSzListCaseFind(list, "BETA") == 1);
    CHECK(strcmp(SzKLIBSzListGet(list, 0), "alpha") == 0);

    other = PslKLIBSzListAlloc(0);
    CHECK(KLIBSzListPush(&other, "Beta") == 0);
    both = PslKLIBSzListAnd(list, other, KLIB_SZLIST_NEW_LIST);
    CHECK(both != NULL && both->nItem == 1);
    KLIBSzListFree(both);
    KLIBSzListFree(other);
    KLIBSzListFree(list);
    CHECK(KLIBUnicodeUTF8StrCaseCmp("\xC3\x84", "\xC3\xA4") == 0);
}

int main(void) {
    error_family();
    list_family();
    if (failures != 0) return 1;
    puts("c abi: all checks passed");
    return 0;
}
