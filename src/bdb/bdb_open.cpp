#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdlib>

#include "bdb/bdb_internal.h"
#include "core/alloc.h"
#include "core/sys.h"

namespace {

uint32_t open_code_for_errno(int err) {
    switch (err) {
        case EINVAL:
            return ERR_BDB_INVALID;
        case EACCES:
            return ERR_ACCESS_DENIED;
        case ENOSPC:
            return ERR_NOT_ENOUGH_SPACE;
        case ENOENT:
            return ERR_FILE_NOT_FOUND;
        default:
            return ERR_OPEN_FAILED;
    }
}

}  // namespace

PKOVABDB KOVABDbOpen(const char *szPath, int flags, int dupMode) {
    if (szPath == nullptr || szPath[0] == '\0') {
        kova::raise(ERR_BAD_PARAMETERS);
        return nullptr;
    }
    auto *handle = static_cast<PKOVABDB>(kova::xcalloc(1, sizeof(KOVABDB)));
    if (handle == nullptr) {
        kova::raise(ERR_OUT_OF_MEMORY);
        return nullptr;
    }

    off_t size = 0;
    const int refused = kova::bdb::check_store_file(szPath, flags, &size);
    if (refused == 0) {
        // The default parameters; only the page cache grows with a large file, so that a
        // lookup in a store of thousands of accounts is not a read of the disk file.
        BTREEINFO info{};
        info.flags = dupMode == KOVA_BDB_DUP ? R_DUP : 0;
        info.cachesize = kova::bdb::cache_size_for(size);
        const bool defaults = info.flags == 0 && info.cachesize == 0;
        handle->pDb = dbopen(szPath, flags, 0666, DB_BTREE, defaults ? nullptr : &info);
    }
    if (handle->pDb == nullptr) {
        const int err = refused != 0 ? refused : errno;
        errno = err;                // for %m
        const int line = __LINE__;  // logged and raised alike
        const uint32_t code = open_code_for_errno(err);
        if (code == ERR_OPEN_FAILED) {
            kova::log_at(LOG_NOTICE, line, "%s:%d errno=%d/%m, dbopen failed.", err);
        }
        kova::raise(code, line);
        free(handle);
        return nullptr;
    }
    handle->nCursorType = KOVA_BDB_CURSOR_NEXT;

    // Every process of the appliance reads the caches, whatever the creator's umask.
    // On the descriptor: the path may have been replaced by a link meanwhile.
    if (geteuid() == 0 && kova::sys::fchmod(handle->pDb->fd(handle->pDb), 0666) != 0) {
        kova::log_at(LOG_ERR, __LINE__, "%s:%d errno=%d/%m, chmod failed.", errno);
    }
    return handle;
}
