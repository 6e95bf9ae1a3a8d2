/* Every public header, compiled as C99 and called through the shared library. */
#include <kovasdk/kovasdk.h>

#include <fcntl.h>
#include <stddef.h>
#include <stdio.h>
#include <stdlib.h>
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
    CHECK(KLIBSzListPush(&other, "beta") == 0);
    both = PslKLIBSzListAnd(list, other, KLIB_SZLIST_NEW_LIST);
    CHECK(both != NULL && both->nItem == 1);
    KLIBSzListFree(both);
    KLIBSzListFree(other);
    KLIBSzListFree(list);
    CHECK(KLIBUnicodeUTF8StrCaseCmp("\xC3\x84", "\xC3\xA4") == 0);
}

static void hash_family(void) {
    PKLIBSZHASH hash = PshKLIBSzHashAlloc(0);
    PKLIBSZLIST keys = PslKLIBSzListAlloc(0);
    CHECK(hash != NULL && hash->nSlot == KLIB_SZHASH_INIT_SLOTS);
    CHECK(KLIBSzHashSetValue(&hash, "abcd", "5000") == 5);
    CHECK(KLIBSzHashSetValue(&hash, "z", "") >= 0);
    CHECK(strcmp(SzKLIBSzHashGetValue(hash, "abcd"), "5000") == 0);
    CHECK(KLIBSzHashEnumKey(hash, &keys) == 2 && strcmp(SzKLIBSzListGet(keys, 0), "abcd") == 0);
    CHECK(strcmp(SzKLIBSzHashRemoveKey(hash, "z"), "") == 0);
    CHECK(KLIBSzHashPairNum(hash) == 1 && KLIBSzHashGetLength(NULL) == 0xFFFFFFFFu);
    CHECK(KLIBIRadixHashCode("abcd", 31) == 5 && KLIBIFileCheckFormat("%s=%s\n") == 1);
    CHECK(PslSzHashRemoveAll(hash) == hash && KLIBSzHashGetLength(hash) == 0);
    KLIBSzListFree(keys);
    KLIBSzHashFree(hash);
}

static void string_family(void) {
    char text[32] = "  \"Mixed Case\"  ";
    char out[32];
    const char *parts[3] = {"a", NULL, "b"};
    char *joined = NULL;
    int size = 0;
    PKLIBSZLIST list = PslKLIBSzListAlloc(0);
    CHECK(KLIBStrTrimSpace(text, NULL) == 10 && strcmp(text, "Mixed Case") == 0);
    CHECK(SzKLIBStrCaseLower(text, 0, NULL, 32) == text && strcmp(text, "mixed case") == 0);
    CHECK(KLIBStrEncodeColon("a:b;c", out, 31) == 7 && strcmp(out, "a;,b;;c") == 0);
    CHECK(KLIBStrHexCodeToString("417A", out, 31) == 2 && strcmp(out, "Az") == 0);
    CHECK(KLIBStrReplace(text, "case", "CASE", NULL, 31) == 1 && strcmp(text, "mixed CASE") == 0);
    CHECK(KLIBStrSepPair("key = \"a b\"", &list) == 0 && list->nItem == 2);
    CHECK(KLIBStrSep("x,,y", ",", &list) == 3 && KLIBStrTok("x,,y", ",", &list) == 2);
    CHECK(KOVAStrNobodyFilter("nobody,alice", &list) == 1);
    CHECK(KOVAStrJoin(parts, 3, ", ", &joined, &size) == 0 && strcmp(joined, "a, b") == 0);
    free(joined);
    KLIBSzListFree(list);
}

static void file_family(void) {
    char name[64];
    const KLIBFILELOCK *entry = &rgslckList[0];
    CHECK(entry->bit == KLIB_LOCK_KOVAINFO && entry->pFile == NULL);
    CHECK(strcmp(entry->szPath, "/tmp/lock/lock_kovainfo") == 0);
    CHECK(rgslckList[KLIB_LOCK_ENTRIES].bit == 0);
    CHECK(KLIBILineMatch("workgroup=\"HOME\"\n", "home\"",
                         KLIB_FILE_MATCH_SUFFIX | KLIB_FILE_MATCH_NOCASE) == 1);
    CHECK(KLIBILineMatch("#workgroup=HOME\n", "work", 0) == 0);
    CHECK(KLIBFileITmpName("/etc/kovainfo.conf.", name, (int)sizeof name) == 0);
    CHECK(KLIBFileGetKeyValue("/nonexistent/kovainfo.conf", "hostname", NULL, 0, 0) == -1);
    CHECK(KLIBErrGet() == ERR_OPEN_FAILED);
    CHECK(BlKLIBFileExist("/nonexistent/kovainfo.conf") == 0);
    CHECK(ErrKLIBFileCloseLock() == 0);
}

static void bdb_family(void) {
    const char *path = "c_abi_bdb.db"; /* in the test's working directory */
    PKOVABDB db;
    PKLIBSZLIST list = PslKLIBSzListAlloc(0);
    void *packed;
    void *key = NULL;
    void *value = NULL;
    int32_t cbKey = 0;
    int32_t cbValue = 0;
    int32_t *syncTime = NULL;

    remove(path);
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
    remove(path);
}

static void proc_family(void) {
    char out[8];
    int ids[4];
    int n = 4;
    CHECK(KLIBExec("/bin/false", NULL, NULL, NULL, NULL) == 1);
    CHECK(KLIBEncShParam("ab", out, (int)sizeof out) == 0 && strcmp(out, "\\a\\b") == 0);
    CHECK(strcmp(KOVAOperationGetName(KOVA_OP_BACKUP), "backup") == 0);
    CHECK(KOVAOperationRegister(KOVA_OP_END + 1, KOVA_OP_FLAG_TEST_ONLY, ids, &n, 0) == -1 &&
          n == 0 && KLIBErrGet() == ERR_BAD_PARAMETERS);
    CHECK(KLIBReadPidFile("/nonexistent/x.pid") == -1);
    CHECK(BlKLIBProcAlive(0) == 1); /* our own process group */
}

static void user_family(void) {
    PKOVAUSER user = NULL;
    char line[128];
    union {
        KOVAUSER header;
        char bytes[256];
    } buffer;
    CHECK(sizeof(KOVAUSERDB) == 5 * sizeof(PKOVABDB));
    CHECK(KOVAUserAlloc(&user, "carol", NULL, 1028, 100, "Sales;, EMEA", NULL, "/bin/csh", 0, NULL,
                        7) == 0);
    CHECK(user != NULL && user->type == KOVA_USER_TYPE_LOCAL && strcmp(user->szMail, "") == 0);
    CHECK(KOVAUserDBPack(user, line, sizeof line) ==
          (int)strlen("carol:x:1028:100:Sales;, EMEA::/bin/csh") + 1);
    CHECK(KOVAUserDBPasswdUnpack(line, &buffer.header, sizeof buffer) == 0);
    CHECK(strcmp(buffer.header.szDescription, "Sales: EMEA") == 0 && buffer.header.uid == 1028);
    KOVAUserFree(user);
    CHECK(BlKLIBIsUserName("carol") == 1 && BlKLIBIsUserName("a:b") == 0);
    CHECK(KOVAUserRandomNumMap2Seed(-63) == '/' && KOVAUserRandomNumMap2Seed(10) == 'A');
    CHECK(KOVAUserIsExpired(1) == 1 && KOVAUserIsExpired(1000000) == 0);
}

static void group_family(void) {
    PKOVAGROUP group = NULL;
    char line[64];
    CHECK(sizeof(KOVAGROUPDB) == 3 * sizeof(PKOVABDB));
    CHECK(KOVAGroupAlloc(&group, "sales", 65536, "") == 0);
    CHECK(KOVAGroupDBPackFromUnix(NULL, group, line, sizeof line) ==
          (int)strlen("sales:x:65536:nobody,nobody") + 1);
    CHECK(strcmp(line, "sales:x:65536:nobody,nobody") == 0);
    CHECK(KOVAGroupDBUnpack("sales:x:65536:nobody,alice,nobody", &group) == 0);
    CHECK(strcmp(group->szMembers, "alice") == 0 && group->gid == 65536);
    KOVAGroupFree(group);
    CHECK(BlKLIBIsGroupName("fifteen-chars-x") == 1 && BlKLIBIsGroupName("sixteen-chars-xx") == 0);
}

static void share_family(void) {
    KOVASHARE tmpl;
    PKOVASHARE share = NULL;
    PKOVASHARE back = NULL;
    void *packed = NULL;
    int32_t cap = 0;
    memset(&tmpl, 0, sizeof tmpl);
    tmpl.szName = "public";
    tmpl.szPath = "/volume1/public";
    tmpl.fType = KOVA_SHARE_READ_ONLY;
    CHECK(KOVAShareAlloc(&share, &tmpl) == 0);
    CHECK(share != NULL && share->szComment[0] == '\0');
    CHECK(KOVAShareDBPack(share, &packed, &cap) == 4 + 44 + 7 + 16 + 1);
    CHECK(((unsigned char *)packed)[31] == KOVA_SHARE_READ_ONLY); /* big-endian fType */
    CHECK(KOVAShareDBUnpack(packed, cap, &back) == 0 &&
          strcmp(back->szPath, "/volume1/public") == 0);
    CHECK(ShareSectionTypeGet("Printers") == KOVA_SHARE_SECTION_RESERVED);
    KOVAShareFree(back);
    KOVAShareFree(share);
    free(packed);
}

static void disk_family(void) {
    DISK_INFO info;
    int klass = 0;
    int rows = 0;
    memset(&info, 0, sizeof info);
    CHECK(sizeof(KOVADISKINFO) == 104);
    CHECK(offsetof(DISK_INFO, ullSize) == 272 && sizeof(DISK_INFO) == 288);
    CHECK(sizeof(DISK_LIST) == 2 * sizeof(void *));
    CHECK(DiskPathParse("/dev/sdab", &info) == 0 && info.nameLen == 2 && info.idx == 2);
    CHECK(DiskContainerGet("sdk", &klass) == 0 && klass == DISK_CONTAINER_EXTERNAL);
    while (PartType[rows].szName != NULL)
        ++rows;
    CHECK(rows == 48 && PartType[47].type == 253 && PartType[15].flag == 0);
}

static void volume_family(void) {
    VOLUME_INFO info;
    char path[32];
    memset(&info, 0, sizeof info);
    CHECK(offsetof(VOLUME_INFO, szPath) == 8 && offsetof(VOLUME_INFO, pFSInfo) == 136);
    CHECK(sizeof(VOLUME_INFO) == 136 + 3 * sizeof(void *));
    CHECK(sizeof(VOLUME_LIST) == 2 * sizeof(void *));
    CHECK(sizeof(VOLUME_ACTION) == 76 && offsetof(VOLUME_ACTION, step) == 72);
    CHECK(offsetof(VOL_MOUNT_INFO, szDev) == 8 && offsetof(VOL_MOUNT_INFO, szMountPoint) == 44);
    CHECK(offsetof(VOL_MOUNT_INFO, ullAvail) == 80 && offsetof(VOL_MOUNT_INFO, writable) == 96);
    CHECK(sizeof(VOL_MOUNT_INFO) == 104);
    CHECK(VolumePathParse("/volumeX3", &info) == 1 && info.num == 3 &&
          info.location == VOLUME_LOCATION_EBOX);
    CHECK(VolumePathSwitch("/volume1", VOLUME_SWITCH_VOL_TO_MD, path, sizeof path) == 0 &&
          strcmp(path, "/dev/md2") == 0);
    CHECK(KOVAVolIDParse("/volume2.snap_1/share") == 2);
}

static void socket_family(void) {
    KOVANETFRAME frame;
    PKLIBSZHASH hash = PshKLIBSzHashAlloc(0);
    static const unsigned char payload[1] = {0};
    fd_set none;
    memset(&frame, 0, sizeof frame);
    FD_ZERO(&none);
    CHECK(sizeof(KOVANETFRAME) == 24 && offsetof(KOVANETFRAME, usDstPort) == 22);
    CHECK(FHOSTHeaderSize == 8 && FHOSTBroadCastSize == 10 && FHOSTBroadCastSizeV20 == 20);
    CHECK(memcmp(stFHOSTBroadCastV20, stFHOSTHeader, FHOSTHeaderSize) == 0);
    CHECK(stFHOSTBroadCastV20[19] == 0x01 && stFHOSTBroadCastV11[19] == 0x00);
    /* Refused before any link is opened. */
    CHECK(KOVANetSendUDPBroadCast(0, &frame, payload, 1, "lo") == -1 &&
          KLIBErrGet() == ERR_BAD_PARAMETERS);
    CHECK(KOVAFHOSTGet2Hash(NULL) == -1);
    CHECK(hash != NULL && KOVAFHOSTGet2Hash(&hash) == 0 && KLIBErrGet() == ERR_OPEN_FAILED);
    CHECK(isconnected(0, &none, &none) == 0);
    KLIBSzHashFree(hash);
}

static void sysbkp_family(void) {
    int rows = 0;
    CHECK(sizeof(SYSBKP_ROUTINE) == 3 * sizeof(void *) + 8);
    while (grgSysRoutine[rows].dwBit != 0)
        ++rows;
    CHECK(rows == 23 && grgSysRoutine[rows].pfnImport == NULL);
    CHECK(grgSysRoutine[8].pfnExport == KOVASysbkpShareExport);
    CHECK(KOVASysbkpIGetIdx(KOVA_SYSBKP_MYSQL) == 20 && KOVASysbkpIGetIdx(4) == -1);
    CHECK(KOVASysbkpRawIntRead(-1, NULL, 3) == -1 && KLIBErrGet() == ERR_BAD_PARAMETERS);
    CHECK(offsetof(KOVAMAIL, blTest) == 3 * sizeof(void *));
}

int main(void) {
    error_family();
    list_family();
    bdb_family();
    hash_family();
    string_family();
    file_family();
    proc_family();
    user_family();
    group_family();
    share_family();
    disk_family();
    volume_family();
    socket_family();
    sysbkp_family();
    if (failures != 0) return 1;
    puts("c abi: all checks passed");
    return 0;
}
