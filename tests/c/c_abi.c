/* Every public header, compiled as C99 and called through the shared library. */
#define _POSIX_C_SOURCE 200809L /* mkstemp, unlink: the record store needs a file */
#include <kovasdk/kovasdk.h>

#include <fcntl.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <unistd.h>

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
    CHECK(KLIBSzListPush(&other, "beta") == 0);
    both = PslKLIBSzListAnd(list, other, KLIB_SZLIST_NEW_LIST);
    CHECK(both != NULL && both->nItem == 1);
    KLIBSzListFree(both);
    KLIBSzListFree(other);
    KLIBSzListFree(list);
    CHECK(KLIBUnicodeUTF8StrCaseCmp("\xC3\x84", "\xC3\xA4") == 0);
}

static void bdb_family(void) {
    char path[] = "c_abi_bdb.XXXXXX";
    int fd = mkstemp(path);
    PKOVABDB db;
    PKLIBSZLIST list = PslKLIBSzListAlloc(0);
    void *packed;
    void *key = NULL;
    void *value = NULL;
    int32_t cbKey = 0;
    int32_t cbValue = 0;
    int32_t *syncTime = NULL;

    CHECK(fd >= 0);
    close(fd);
    unlink(path); /* an empty file is no btree: let the store create it */
    db = KOVABDbOpen(path, O_RDWR | O_CREAT, KOVA_BDB_DUP);
    CHECK(db != NULL && db->nCursorType == KOVA_BDB_CURSOR_NEXT);
    if (db == NULL) return;
    CHECK(KOVABDbSet(db, "alice", 5, "1001", 4) == 0);
    CHECK(KOVABDbConfSyncTimeSet(db, 1700000000) == 0);
    CHECK(KOVABDbIsNeedToRebuild(db, 1700000000) == 0);
    CHECK(KOVABDbConfSyncTimeGet(db, &syncTime) == 0 && *syncTime == 1700000000);
    KOVABDbFree(syncTime);
    CHECK(KOVABDbGet(db, "alice", 5, &value, &cbValue) == 0 && cbValue == 4);
    CHECK(KOVABDbCursorSetType(db, KOVA_BDB_CURSOR_FIRST) == 0);
    CHECK(KOVABDbCursorGet(db, 1, &key, &cbKey, &value, &cbValue) == 0 && cbKey == 5);
    CHECK(KOVABDbCursorGet(db, 1, &key, &cbKey, &value, &cbValue) == -1 &&
          KLIBErrGet() == ERR_BDB_END_OF_RECORDS);
    CHECK(KOVACheckAndRealloc(&value, &cbValue, 64) == 0 && cbValue == 64);

    CHECK(KLIBSzListPush(&list, "admin") == 0);
    packed = KOVAListDBPack(list, list->cbSize);
    CHECK(packed != NULL);
    CHECK(KOVAListDBSet(db, "groups", list) == 0);
    KOVABDbFree(packed);
    KLIBSzListFree(list);
    KOVABDbFree(key);
    KOVABDbFree(value);
    CHECK(KOVABDbClose(db) == 0);
    unlink(path);
}

int main(void) {
    error_family();
    list_family();
    bdb_family();
    if (failures != 0) return 1;
    puts("c abi: all checks passed");
    return 0;
}
