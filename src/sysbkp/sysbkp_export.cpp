// Export: the file header, then each chosen section's block in table order. A failure removes
// the partial file.
#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

#include "core/owners.h"
#include "sysbkp/sysbkp_internal.h"

namespace kova::sysbkp {
namespace {

bool write_header(int fd, uint32_t mask) {
    const char *function = "KOVASysbkpExport";
    if (write(fd, KOVA_SYSBKP_MAGIC, 4) != 4) {
        fail_in(function, ERR_WRITE_FAILED, Site(), "%s(%d): write magic fail, errno = %d", errno);
        return false;
    }
    const uint32_t category = KOVA_SYSBKP_CATEGORY;
    if (KOVASysbkpRawIntWrite(fd, &category, 4) != 4) {
        log_at(LOG_ERR, Site(__LINE__, function), "%s(%d): write category fail, errno = %d", errno);
        return false;
    }
    if (KOVASysbkpRawIntWrite(fd, &mask, 4) != 4) {
        log_at(LOG_ERR, Site(__LINE__, function), "%s(%d): write content type fail, errno = %d",
               errno);
        return false;
    }
    return true;
}

bool write_sections(int fd, uint32_t mask) {
    for (const SYSBKP_ROUTINE *row = grgSysRoutine; row->dwBit != 0; ++row) {
        if (mask != KOVA_SYSBKP_ALL && (row->dwBit & mask) == 0) continue;
        if (row->pfnExport(fd) < 0) {
            log(LOG_ERR, "%s:Fail to export %s\n", "KOVASysbkpExport", row->szDesc);
            return false;
        }
    }
    return true;
}

}  // namespace
}  // namespace kova::sysbkp

int KOVASysbkpExport(const char *szPath, uint32_t dwMask) {
    using namespace kova;
    using kova::sysbkp::fail_in;
    if (szPath == nullptr) {
        return fail_in(__func__, ERR_BAD_PARAMETERS, Site(), "%s(%d): parameter error");
    }
    // The file holds password hashes: readable by its owner only.
    UniqueFd fd(open(szPath, O_RDWR | O_CREAT | O_TRUNC | O_CLOEXEC, 0600));
    if (!fd) {
        return fail_in(__func__, ERR_OPEN_FAILED, Site(), "%s(%d): fail to open %s(%d)", szPath,
                       errno);
    }
    if (sysbkp::write_header(fd.get(), dwMask) && sysbkp::write_sections(fd.get(), dwMask)) {
        if (fd.reset() == 0) return 0;
        fail(ERR_WRITE_FAILED);
    }
    fd.reset();
    if (unlink(szPath) != 0) {
        log_at(LOG_ERR, Site(__LINE__, __func__), "%s(%d): fail to remove %s", szPath);
    }
    if (KLIBErrGet() == ERR_SUCCESS) fail(ERR_WRITE_FAILED);
    return -1;
}
