/* The record store's pair functions, declared when the 1.85 header comes first. */
#include <db_185.h>
#include <kovasdk/kovasdk.h>

#include <stdio.h>
#include <stdlib.h>
#include <string.h>

int main(void) {
    DBT pair;
    void *copy = NULL;
    int32_t cb = 0;
    int failures = 0;
    if (DBTSet(&pair, "alice", 5) != 0 || pair.size != 5) ++failures;
    if (DBTCopyOut(&pair, &copy, &cb) != 0 || cb != 5 || memcmp(copy, "alice", 5) != 0) {
        ++failures;
    }
    KOVABDbFree(copy);
    if (DBTSet(NULL, "x", 1) != -1 || KLIBErrGet() != ERR_BAD_PARAMETERS) ++failures;
    if (failures != 0) {
        fprintf(stderr, "c abi db185: %d checks failed\n", failures);
        return 1;
    }
    puts("c abi db185: all checks passed");
    return 0;
}
