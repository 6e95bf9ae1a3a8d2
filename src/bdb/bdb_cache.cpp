// The account caches' protocol (bdb_cache.h).
#include "bdb/bdb_cache.h"

#include <fcntl.h>
#include <pthread.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <climits>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <iterator>

#include "bdb/bdb_internal.h"
#include "core/alloc.h"
#include "core/owners.h"
#include "core/paths.h"
#include "core/root.h"
#include "core/sys.h"
#include "kovasdk/file.h"

namespace kova::cache {
namespace {

constexpr off_t kMinStoreSize = 8192;
constexpr int kLockTries = 200;  // 50 ms apart: ten seconds
constexpr useconds_t kLockPollMicroseconds = 50000;

// Beside the defined sync time (whole seconds), what tells a replaced or rewritten source apart
// within one second. A reserved record of this implementation; others ignore it.
constexpr char kFingerprintKey[] = "#KOVA@SYNC@FILE";
constexpr int32_t kFingerprintKeyLen = 15;
Fingerprint fingerprint_of(const struct stat &st) {
    return {static_cast<int64_t>(st.st_dev), static_cast<int64_t>(st.st_ino),
            static_cast<int64_t>(st.st_size), static_cast<int64_t>(st.st_mtim.tv_nsec)};
}

class StorePath {
  public:
    StorePath(const char *base, const char *suffix) {
        const int n = snprintf(path_, sizeof path_, "%s%s", base, suffix);
        if (n < 0 || static_cast<size_t>(n) >= sizeof path_) path_[0] = '\0';
    }
    const char *c_str() const { return path_; }

  private:
    char path_[PATH_MAX];
};

PKOVABDB &store_of(const Family &family, void *handle, size_t i) {
    return *family.slot(handle, i);
}

void close_stores(const Family &family, void *handle) {
    for (size_t i = 0; i < family.stores.size(); ++i) {
        PKOVABDB &db = store_of(family, handle, i);
        if (db != nullptr) KOVABDbClose(db);
        db = nullptr;
    }
}

void free_handle(const Family &family, void *handle) {
    if (handle == nullptr) return;
    close_stores(family, handle);
    free(handle);
}

void *new_handle(const Family &family) {
    void *handle = xcalloc(1, family.handle_size);
    if (handle == nullptr) {
        errno = ENOMEM;
        fail(ERR_OUT_OF_MEMORY, Site(), "%s:%d errno=%d/%m, malloc failed", ENOMEM);
    }
    return handle;
}

void remove_files(const Family &family, const char *base) {
    for (const Store &store : family.stores)
        sys::unlink(StorePath(base, store.suffix).c_str());
}

// Opens every store read-write; with create, a store that does not exist is created with its
// deprecated marker 0 and *created is set. 0, or -1 (logged) at the first store that failed.
int open_stores(const Family &family, void *handle, const char *base, bool create, bool *created) {
    for (size_t i = 0; i < family.stores.size(); ++i) {
        const Store &store = family.stores[i];
        const StorePath path(base, store.suffix);
        PKOVABDB db = KOVABDbOpen(path.c_str(), O_RDWR, store.dup_mode);
        if (db == nullptr && create && KLIBErrGet() == ERR_FILE_NOT_FOUND) {
            db = KOVABDbOpen(path.c_str(), O_RDWR | O_CREAT, store.dup_mode);
            if (db != nullptr) {
                *created = true;
                if (KOVABDbDeprecatedSet(db, 0) != 0) {
                    KOVABDbClose(db);
                    db = nullptr;
                }
            }
        }
        if (db == nullptr) {
            // Only a missing store is worth a line when the caller will create it.
            if (create || KLIBErrGet() != ERR_FILE_NOT_FOUND) {
                log_at(LOG_ERR, Site(), "%s:%d KOVABDbOpen [%s] failed. kovaerr=0x%04X",
                       path.c_str(), KLIBErrGet());
            }
            return -1;
        }
        store_of(family, handle, i) = db;
    }
    return 0;
}

// Under the cache's lock, a store being created at base is this process's own: a file at a
// store's creation name was left by a creator that was killed, and would hold up the next.
void remove_creation_leftovers(const Family &family, const char *base) {
    for (const Store &store : family.stores) {
        char leftover[PATH_MAX];
        if (bdb::creation_name(StorePath(base, store.suffix).c_str(), leftover, sizeof leftover))
            sys::unlink(leftover);
    }
}

// Opens the set at base, creating and building it where a store is missing. The caller holds
// the cache's lock. 1 built, 0 opened, -1.
int open_locked(const Family &family, void **handle, const char *base) {
    remove_creation_leftovers(family, base);
    void *fresh = new_handle(family);
    if (fresh == nullptr) return -1;
    bool created = false;
    if (open_stores(family, fresh, base, true, &created) != 0) {
        free_handle(family, fresh);
        return -1;
    }
    if (created) {
        // Built, then closed (which writes it out) and opened again.
        const bool built = family.build(fresh) == 0;
        close_stores(family, fresh);
        if (!built || open_stores(family, fresh, base, false, &created) != 0) {
            free_handle(family, fresh);
            return -1;
        }
    }
    free_handle(family, *handle);
    *handle = fresh;
    return created ? 1 : 0;
}

uint32_t stat_code(int err) {
    switch (err) {
        case EACCES:
            return ERR_ACCESS_DENIED;
        case ENOMEM:
            return ERR_OUT_OF_MEMORY;
        case ENOENT:
            return ERR_PATH_NOT_FOUND;
        default:
            return ERR_STAT_FAILED;
    }
}

enum class Decision { kNone, kReopen, kRebuild, kFail };

// The open store is no longer the file at its path: another process renamed a rebuild over it.
bool replaced(PKOVABDB db, const struct stat &at_path) {
    struct stat open_file {};
    return sys::fstat(db->pDb->fd(db->pDb), &open_file) != 0 ||
           open_file.st_ino != at_path.st_ino || open_file.st_dev != at_path.st_dev;
}

Decision check_stores(const Family &family, void *handle, const char *base) {
    for (size_t i = 0; i < family.stores.size(); ++i) {
        const StorePath path(base, family.stores[i].suffix);
        struct stat st {};
        if (stat(path.c_str(), &st) != 0) {
            log_at(LOG_ERR, Site(), "%s:%d stat(%s) failed, so rebuild db. (errno=%s)",
                   path.c_str(), strerror(errno));
            return Decision::kRebuild;
        }
        if (st.st_size < kMinStoreSize) {
            log_at(LOG_ERR, Site(), "%s:%d st_size(%s)=%llu, so rebuild db.", path.c_str(),
                   static_cast<unsigned long long>(st.st_size));
            return Decision::kRebuild;
        }
        PKOVABDB db = store_of(family, handle, i);
        if (replaced(db, st)) return Decision::kReopen;
        const int deprecated = KOVABDbDeprecatedGet(db);
        if (deprecated < 0) return Decision::kFail;
        if (deprecated == 1) return Decision::kReopen;
    }
    return Decision::kNone;
}

bool same_fingerprint(PKOVABDB db, const struct stat &st) {
    void *stored = nullptr;
    int32_t size = 0;
    if (KOVABDbGet(db, kFingerprintKey, kFingerprintKeyLen, &stored, &size) != 0) return false;
    const Fingerprint now = fingerprint_of(st);
    const bool same = size == sizeof now && memcmp(stored, &now, sizeof now) == 0;
    free(stored);
    return same;
}

Decision check_sources(const Family &family, void *handle) {
    for (size_t i = 0; i < family.stores.size(); ++i) {
        const Store &store = family.stores[i];
        if (store.source == nullptr || !store.checked) continue;
        struct stat st {};
        if (stat(RootedPath(store.source).c_str(), &st) != 0) {
            fail(stat_code(errno));
            return Decision::kFail;
        }
        PKOVABDB db = store_of(family, handle, i);
        const int need = KOVABDbIsNeedToRebuild(db, static_cast<int32_t>(st.st_mtime));
        // No sync time at all: a build that never finished.
        if (need < 0 && KLIBErrGet() != ERR_KEY_NOT_FOUND) return Decision::kFail;
        if (need != 0 || !same_fingerprint(db, st)) return Decision::kRebuild;
    }
    return Decision::kNone;
}

Decision check(const Family &family, void *handle) {
    const Decision decision = check_stores(family, handle, RootedPath(family.base).c_str());
    return decision != Decision::kNone ? decision : check_sources(family, handle);
}

int rename_store(const char *from, const char *to) {
    if (sys::rename(from, to) == 0) return 0;
    const int err = errno;
    return fail(err == EACCES ? ERR_ACCESS_DENIED : ERR_RENAME_FAILED, Site(),
                "%s:%d rename(%s, %s) = (%d)/%m", from, to, -1);
}

// Renames the set at tmp_base over the live one; the stores of the old set that is still open
// in old (may be null) are marked deprecated.
int put_in_place(const Family &family, void *old) {
    const RootedPath base(family.base);
    const RootedPath tmp_base(family.tmp_base);
    for (const Store &store : family.stores) {
        if (rename_store(StorePath(tmp_base.c_str(), store.suffix).c_str(),
                         StorePath(base.c_str(), store.suffix).c_str()) != 0) {
            return -1;
        }
    }
    if (old != nullptr) KOVABDbDeprecatedSet(store_of(family, old, 0), 1);
    return 0;
}

int rebuild_locked(const Family &family) {
    const RootedPath base(family.base);
    const RootedPath tmp_base(family.tmp_base);
    remove_files(family, tmp_base.c_str());  // a rebuild that was killed
    void *fresh = nullptr;
    if (open_locked(family, &fresh, tmp_base.c_str()) < 0) {
        remove_files(family, tmp_base.c_str());
        return fail(ERR_OPEN_FAILED);
    }
    // The set being replaced is opened to mark it deprecated. One that cannot be opened (a
    // damaged store, the very reason for this rebuild) is logged and replaced all the same:
    // processes holding it see the replacement at their check.
    void *old = nullptr;
    if (access(StorePath(base.c_str(), family.stores[0].suffix).c_str(), F_OK) == 0) {
        bool created = false;
        old = new_handle(family);
        if (old != nullptr && open_stores(family, old, base.c_str(), false, &created) != 0) {
            log_at(LOG_ERR, Site(), "%s:%d KOVA%sDBOpenFile(&p%sDbOld) Error, KLIBError=(0x%04X)",
                   family.name, family.name, KLIBErrGet());
            free_handle(family, old);
            old = nullptr;
        }
    }
    const int result = put_in_place(family, old);
    free_handle(family, old);
    free_handle(family, fresh);
    if (result != 0) remove_files(family, tmp_base.c_str());
    return result;
}

bool copy_file(const char *from, const char *to) {
    const UniqueFd in(sys::open(from, O_RDONLY | O_CLOEXEC | O_NOFOLLOW));
    if (!in) return false;
    const UniqueFd out(sys::open(to, O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, 0666));
    if (!out) return false;
    if (geteuid() == 0) sys::fchmod(out.get(), 0666);  // as the store's own creation does
    char buffer[65536];
    for (;;) {
        const ssize_t got = sys::calls().read(in.get(), buffer, sizeof buffer);
        if (got == 0) return true;
        if (got < 0) {
            if (errno == EINTR) continue;
            return false;
        }
        for (ssize_t done = 0; done < got;) {
            const ssize_t put =
                sys::calls().write(out.get(), buffer + done, static_cast<size_t>(got - done));
            if (put < 0 && errno == EINTR) continue;
            if (put <= 0) return false;
            done += put;
        }
    }
}

}  // namespace

Lock::Lock(const Family &family) {
    if (ErrKLIBILockCheckDir() != 0) return;
    const RootedPath path(family.lock_file);
    UniqueFd fd(sys::open(path.c_str(), O_RDWR | O_CREAT | O_NOFOLLOW | O_CLOEXEC, 0600));
    if (!fd) {
        fail(ERR_OPEN_FAILED);
        return;
    }
    for (int i = 0; i < kLockTries; ++i) {
        if (sys::flock(fd.get(), LOCK_EX | LOCK_NB) == 0) {
            fd_ = fd.release();
            return;
        }
        if (errno != EWOULDBLOCK && errno != EINTR) break;
        usleep(kLockPollMicroseconds);
    }
    fail(ERR_LOCK_FAILED);
}

Lock::~Lock() {
    release();
}

void Lock::release() {
    if (fd_ >= 0) sys::close(fd_);  // releases the lock
    fd_ = -1;
}

int open_file(const Family &family, void **handle, const char *base) {
    void *fresh = new_handle(family);
    if (fresh == nullptr) return -1;
    bool created = false;
    if (open_stores(family, fresh, base, false, &created) == 0) {
        free_handle(family, *handle);
        *handle = fresh;
        return 0;
    }
    const uint32_t why = KLIBErrGet();
    close_stores(family, fresh);
    if (why != ERR_FILE_NOT_FOUND && why != ERR_BDB_INVALID) {
        free(fresh);
        return -1;
    }
    // Missing or damaged stores are built by one process at a time.
    const Lock lock(family);
    if (!lock.held()) {
        free(fresh);
        return -1;
    }
    if (strcmp(base, RootedPath(family.base).c_str()) != 0) {
        free(fresh);
        return open_locked(family, handle, base);
    }
    // The live set is built aside and renamed into place, never built where readers look;
    // unless another process did so while this one waited for the lock.
    int built = 0;
    if (open_stores(family, fresh, base, false, &created) != 0) {
        close_stores(family, fresh);
        if (rebuild_locked(family) != 0 || open_stores(family, fresh, base, false, &created) != 0) {
            free_handle(family, fresh);
            return -1;
        }
        built = 1;
    }
    free_handle(family, *handle);
    *handle = fresh;
    return built;
}

int check_and_rebuild(const Family &family, void **handle) {
    Decision decision = check(family, *handle);
    if (decision == Decision::kNone) return 0;
    if (decision == Decision::kFail) return -1;
    if (decision == Decision::kRebuild) {
        const Lock lock(family);
        if (!lock.held()) return -1;
        // Another process may have rebuilt while this one waited: then a reopen does.
        decision = check(family, *handle);
        if (decision == Decision::kFail) return -1;
        if (decision == Decision::kNone) return 0;
        if (decision == Decision::kRebuild) {
            if (rebuild_locked(family) != 0) {
                return fail(KLIBErrGet(), Site(), "%s:%d KOVA%sDBRebuild failed, kovaerr=0x%04X",
                            family.name, KLIBErrGet());
            }
            for (size_t i = 0; i < family.stores.size(); ++i)
                KOVABDbDeprecatedSet(store_of(family, *handle, i), 1);
        }
    }
    if (open_file(family, handle, RootedPath(family.base).c_str()) < 0) {
        return fail(KLIBErrGet(), Site(), "%s:%d KOVA%sDBOpenFile() Error, KLIBError=(0x%04X)",
                    family.name, KLIBErrGet());
    }
    return 1;
}

int rebuild(const Family &family) {
    const Lock lock(family);
    return lock.held() ? rebuild_locked(family) : -1;
}

void *open(const Family &family) {
    void *handle = nullptr;
    const int opened = open_file(family, &handle, RootedPath(family.base).c_str());
    if (opened < 0) return nullptr;
    if (opened == 0 && check_and_rebuild(family, &handle) < 0) {
        free_handle(family, handle);
        return nullptr;
    }
    return handle;
}

int close(const Family &family, void *handle) {
    if (handle == nullptr) return fail(ERR_BAD_PARAMETERS);
    free_handle(family, handle);
    return 0;
}

int store_sync_times(const Family &family, void *handle) {
    for (size_t i = 0; i < family.stores.size(); ++i) {
        const Store &store = family.stores[i];
        if (store.source == nullptr) continue;
        const RootedPath source(store.source);
        struct stat st {};
        if (stat(source.c_str(), &st) != 0) {
            return fail(stat_code(errno), Site(), "%s:%d stat [%s] failed!! errno=%d/%m",
                        source.c_str(), errno);
        }
        PKOVABDB db = store_of(family, handle, i);
        const Fingerprint print = fingerprint_of(st);
        if (KOVABDbConfSyncTimeSet(db, static_cast<int32_t>(st.st_mtime)) != 0 ||
            KOVABDbSet(db, kFingerprintKey, kFingerprintKeyLen, &print, sizeof print) != 0) {
            return -1;
        }
    }
    return 0;
}

Change::Change(const Family &family, void **live) : family_(family), live_(live), lock_(family) {
    if (!lock_.held()) return;
    const RootedPath base(family.base);
    const RootedPath tmp_base(family.tmp_base);
    remove_files(family, tmp_base.c_str());
    for (const Store &store : family.stores) {
        if (!copy_file(StorePath(base.c_str(), store.suffix).c_str(),
                       StorePath(tmp_base.c_str(), store.suffix).c_str())) {
            fail(ERR_CREATE_FAILED, Site(), "%s:%d copy of the cache to [%s] failed. errno=%d/%m",
                 tmp_base.c_str(), errno);
            remove_files(family, tmp_base.c_str());
            return;
        }
    }
    if (open_locked(family, &handle_, tmp_base.c_str()) < 0) {
        remove_files(family, tmp_base.c_str());
        handle_ = nullptr;
    }
}

Change::~Change() {
    if (handle_ == nullptr) return;
    free_handle(family_, handle_);
    remove_files(family_, RootedPath(family_.tmp_base).c_str());
}

bool Change::install() {
    if (store_sync_times(family_, handle_) != 0) return false;
    free_handle(family_, handle_);  // written out
    handle_ = nullptr;
    if (put_in_place(family_, *live_) != 0) {
        remove_files(family_, RootedPath(family_.tmp_base).c_str());
        return false;
    }
    const bool reopened = open_locked(family_, live_, RootedPath(family_.base).c_str()) >= 0;
    lock_.release();
    return reopened;
}

namespace {

// Every kept handle (one per family), for the fork and exit handlers. Plain storage: the exit
// handler runs after static destructors may have.
std::mutex g_kept_mutex;
Kept *g_kept[4];
size_t g_kept_count = 0;

std::span<Kept *> all_kept() {
    return {g_kept, g_kept_count};
}

}  // namespace

Kept::Kept(const Family &family) : family_(family) {
    static std::once_flag registered;
    std::call_once(registered, [] {
        pthread_atfork(Kept::before_fork, Kept::after_fork_in_parent, Kept::after_fork_in_child);
        atexit(Kept::at_exit);
    });
    const std::lock_guard guard(g_kept_mutex);
    if (g_kept_count == std::size(g_kept)) abort();  // a family more than the table was made for
    g_kept[g_kept_count++] = this;
}

// No thread may hold a kept handle across fork: the child would find its lock taken.
void Kept::before_fork() {
    g_kept_mutex.lock();
    for (Kept *kept : all_kept())
        kept->mutex_.lock();
}

void Kept::after_fork_in_parent() {
    for (Kept *kept : all_kept())
        kept->mutex_.unlock();
    g_kept_mutex.unlock();
}

void Kept::after_fork_in_child() {
    for (Kept *kept : all_kept()) {
        kept->inherited_ = kept->handle_ != nullptr;
        kept->mutex_.unlock();
    }
    g_kept_mutex.unlock();
}

// The stores are closed (and their memory given back) when the process ends normally; one in
// use by another thread at that moment is left to the system.
void Kept::at_exit() {
    const std::lock_guard guard(g_kept_mutex);
    for (Kept *kept : all_kept()) {
        if (!kept->mutex_.try_lock()) continue;
        kept->forget();
        kept->mutex_.unlock();
    }
}

void Kept::forget() {
    free_handle(family_, handle_);
    handle_ = nullptr;
}

// What the open stores are and what they were built from.
bool Kept::remember() {
    for (size_t i = 0; i < family_.stores.size(); ++i) {
        PKOVABDB db = store_of(family_, handle_, i);
        struct stat st {};
        if (sys::fstat(db->pDb->fd(db->pDb), &st) != 0) return false;
        dev_[i] = st.st_dev;
        ino_[i] = st.st_ino;
        marks_[i] = Mark{};
        const Store &store = family_.stores[i];
        if (store.source == nullptr || !store.checked) continue;
        int32_t *sync = nullptr;
        void *print = nullptr;
        int32_t size = 0;
        const bool got = KOVABDbConfSyncTimeGet(db, &sync) == 0 &&
                         KOVABDbGet(db, kFingerprintKey, kFingerprintKeyLen, &print, &size) == 0 &&
                         size == sizeof(Fingerprint);
        if (got) {
            marks_[i].sync = *sync;
            memcpy(&marks_[i].print, print, sizeof(Fingerprint));
            marks_[i].set = true;
        }
        free(sync);
        free(print);
        if (!got) return false;
    }
    return true;
}

bool Kept::unchanged() const {
    // A rebuild or change renames the whole set in store order: while the last store is the
    // one held, no other process has put a set in place since it was opened.
    const size_t last = family_.stores.size() - 1;
    struct stat held {};
    if (stat(StorePath(RootedPath(family_.base).c_str(), family_.stores[last].suffix).c_str(),
             &held) != 0 ||
        held.st_size < kMinStoreSize || held.st_dev != dev_[last] || held.st_ino != ino_[last]) {
        return false;
    }
    for (size_t i = 0; i < family_.stores.size(); ++i) {
        if (!marks_[i].set) continue;
        struct stat st {};
        if (stat(RootedPath(family_.stores[i].source).c_str(), &st) != 0) return false;
        const Fingerprint now = fingerprint_of(st);
        if (static_cast<int32_t>(st.st_mtime) != marks_[i].sync ||
            memcmp(&now, &marks_[i].print, sizeof now) != 0) {
            return false;
        }
    }
    return true;
}

void *Kept::current() {
    if (inherited_) {
        forget();  // the parent's: closed here, still open there
        inherited_ = false;
    }
    if (handle_ != nullptr && unchanged()) return handle_;
    if (family_.recover != nullptr) family_.recover();
    if (handle_ == nullptr) {
        handle_ = open(family_);
    } else if (check_and_rebuild(family_, &handle_) < 0) {
        forget();
    }
    // A source that changed again meanwhile only costs a full check at the next use.
    if (handle_ != nullptr && !remember()) {
        for (Mark &mark : marks_)
            mark.set = false;
        dev_.fill(0);
    }
    return handle_;
}

namespace {
constexpr int kWriterLockSeconds = 30;
}

Writer::Writer(const Family &family, const WriterOps &ops) : family_(family), ops_(ops) {
    if (ErrKLIBFileLock(ops.lock_bit | KLIB_LOCK_EX | KLIB_LOCK_NB, kWriterLockSeconds) != 0) {
        if (ops.lock_failed != nullptr) log_at(LOG_ERR, Site(), ops.lock_failed);
        return;
    }
    locked_ = true;
    if (family.recover != nullptr) family.recover();
    live_ = open(family);
    if (live_ != nullptr) change_.emplace(family, &live_);
}

Writer::~Writer() {
    change_.reset();
    if (live_ != nullptr) close(family_, live_);
    if (locked_) ErrKLIBFileUnlock(ops_.lock_bit);
}

int Writer::finish() {
    if (ops_.dump(change_->handle()) != 0) return -1;
    if (!change_->install()) {
        log_at(LOG_ERR, Site(), "%s:%d the %s cache stays to be rebuilt. kovaerr=0x%04X",
               family_.name, KLIBErrGet());
    }
    return 0;
}

}  // namespace kova::cache
