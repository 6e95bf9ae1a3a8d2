// Service control: the appliance's network services, each started and stopped by its program
// under "/usr/kova/etc/rc.d/" with the word "start" or "stop". Services start in table order
// and stop in the reverse order (the web manager last, the file services first).
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <climits>
#include <cstdio>

#include "core/root.h"
#include "kovasdk/proc.h"
#include "sysbkp/sysbkp_internal.h"

namespace kova::sysbkp {
namespace {

struct Service {
    uint32_t bit;
    const char *name;
    const char *program;
};

constexpr Service kServices[] = {
    {KOVA_SERVICE_WEB, "web", "S20web.sh"},
    {KOVA_SERVICE_MYSQL, "mysql", "S30mysql.sh"},
    {KOVA_SERVICE_SMB, "smb", "S40smb.sh"},
    {KOVA_SERVICE_AFP, "afp", "S41afp.sh"},
    {KOVA_SERVICE_NFS, "nfs", "S42nfs.sh"},
    {KOVA_SERVICE_FTP, "ftp", "S50ftp.sh"},
    {KOVA_SERVICE_PHOTO, "photo", "S60photo.sh"},
    {KOVA_SERVICE_DOWNLOAD, "download", "S70download.sh"},
};
constexpr int kCount = sizeof kServices / sizeof kServices[0];

// 0 when the program ran and succeeded or is not installed; -1 otherwise.
int run_service(const Service &service, const char *word) {
    char absolute[PATH_MAX];
    snprintf(absolute, sizeof absolute, "%s%s", kServiceDir, service.program);
    const RootedPath program(absolute);
    struct stat st {};
    if (stat(program.c_str(), &st) != 0 && errno == ENOENT) return 0;  // not on this model
    char name[64];
    char action[16];
    snprintf(name, sizeof name, "%s", service.program);
    snprintf(action, sizeof action, "%s", word);
    char *const argv[] = {name, action, nullptr};
    const int status = KLIBExecv(program.c_str(), argv, 1);
    if (status == 0) return 0;
    log_at(LOG_ERR, Site(), "%s:%d service [%s] %s failed, exit=%d", service.name, word, status);
    return fail(ERR_OP_FAILURE);
}

}  // namespace
}  // namespace kova::sysbkp

int KOVANetService(uint32_t dwMask, int action) {
    using namespace kova::sysbkp;
    if (action != KOVA_SERVICE_START && action != KOVA_SERVICE_STOP) {
        return kova::fail(ERR_BAD_PARAMETERS);
    }
    int result = 0;
    for (int i = 0; i < kCount; ++i) {
        const Service &service = kServices[action == KOVA_SERVICE_START ? i : kCount - 1 - i];
        if ((service.bit & dwMask) == 0) continue;
        if (run_service(service, action == KOVA_SERVICE_START ? "start" : "stop") != 0) {
            result = -1;
        }
    }
    return result;
}
