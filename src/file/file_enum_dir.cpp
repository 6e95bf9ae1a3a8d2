#include <dirent.h>

#include <cstring>

#include "core/fail.h"
#include "core/owners.h"
#include "kovasdk/file.h"

// Pushes the names of the directory's entries ("." and ".." left out), sorted byte-wise, onto
// the list (made when *ppList is null): the number of names pushed.
int KLIBFileEnumDir(const char *szDir, PKLIBSZLIST *ppList) {
    if (szDir == nullptr || ppList == nullptr) return kova::fail(ERR_BAD_PARAMETERS);
    kova::UniqueDir dir(opendir(szDir));
    if (!dir) return kova::fail(ERR_OPEN_FAILED);
    PKLIBSZLIST names = PslKLIBSzListAlloc(0);
    if (names == nullptr) return -1;
    int count = 0;
    while (const dirent *entry = readdir(dir.get())) {
        if (strcmp(entry->d_name, ".") == 0 || strcmp(entry->d_name, "..") == 0) continue;
        if (KLIBSzListPush(&names, entry->d_name) < 0) {
            KLIBSzListFree(names);
            return -1;
        }
        ++count;
    }
    KLIBSzListSortItems(names, KLIB_SZLIST_SORT_BYTES);
    if (*ppList == nullptr) {
        *ppList = names;
        return count;
    }
    for (int i = 0; i < names->nItem; ++i) {
        if (KLIBSzListPush(ppList, names->pszItem[i]) < 0) {
            KLIBSzListFree(names);
            return -1;
        }
    }
    KLIBSzListFree(names);
    return count;
}
