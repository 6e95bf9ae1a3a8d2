#include "core/fail.h"
#include "file/file_internal.h"
#include "kovasdk/list.h"

// Pushes every line of the file, line feed removed, comments included, onto the list (made when
// *ppList is null): the number of lines pushed.
int KLIBFileReadLines(const char *szPath, PKLIBSZLIST *ppList) {
    if (szPath == nullptr || ppList == nullptr) return kova::fail(ERR_BAD_PARAMETERS);
    kova::UniqueFile in(kova::file::open_for_reading(szPath));
    if (!in) return kova::fail(ERR_OPEN_FAILED);
    if (*ppList == nullptr && (*ppList = PslKLIBSzListAlloc(0)) == nullptr) return -1;
    kova::LineReader reader(in.get());
    int count = 0;
    while (reader.next()) {
        char *line = reader.data();
        if (reader.ends_with_newline()) line[reader.size() - 1] = '\0';
        if (KLIBSzListPush(ppList, line) < 0) return -1;
        ++count;
    }
    if (reader.failed()) return kova::fail(reader.failure_code());
    return count;
}
