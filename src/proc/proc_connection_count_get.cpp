#include <algorithm>
#include <cstring>

#include "core/fail.h"
#include "core/raise.h"
#include "kovasdk/file.h"
#include "kovasdk/proc.h"
#include "proc/proc_internal.h"

namespace {

struct ServerCounts {
    int smb = 0;
    int afp = 0;
    int ftp = 0;
};

void count_server(const char *status_path, void *context) {
    auto *counts = static_cast<ServerCounts *>(context);
    char name[384];
    if (KLIBFileGetLine(status_path, "Name:", name, sizeof name, KLIB_FILE_MATCH_PREFIX) <= 0)
        return;
    if (strstr(name, "smbd") != nullptr) {
        ++counts->smb;
    } else if (strstr(name, "afpd") != nullptr) {
        ++counts->afp;
    } else if (strstr(name, "ftpd") != nullptr) {
        ++counts->ftp;
    }
}

}  // namespace

// Connections are the server processes beyond the masters: two SMB, one AFP and one FTP.
int KLIBConnectionCountGet(int *pnCount) {
    if (pnCount == nullptr) {
        kova::raise(ERR_BAD_PARAMETERS);
        return -1;
    }
    ServerCounts counts;
    if (!kova::proc::for_each_process_status(count_server, &counts)) {
        kova::log_at(LOG_ERR, 28, "%s (%d) Failed to glob.\n");
        return -1;
    }
    *pnCount =
        std::max(counts.smb - 2, 0) + std::max(counts.afp - 1, 0) + std::max(counts.ftp - 1, 0);
    return 0;
}
