// The account caches' protocol, written once for the user, group and share databases: each is
// a handle of btree stores fed by master text files, and each family names only its files, its
// handle's slots and its build.
//
//   open:    open every store; if one is missing, create and build them all (serialised).
//   check:   a store missing, below 8192 bytes or not the file at its path any more, a
//            deprecated marker, or a source file changed since the build: rebuild or reopen.
//   rebuild: build a fresh set under the ".tmp" base, rename it over the live one, mark the
//            replaced files deprecated (other processes holding them reopen at their check).
//   change:  a writer changes a private copy of the live set (the ".tmp" base) and puts it in
//            place the same way, so a reader never sees a store being written.
//
// Rebuilds and changes of one cache are serialised by a lock file of their own under the lock
// directory; readers take it only when they must rebuild. A source's sync time is its
// modification time in whole seconds (the defined record); beside it each store keeps the
// source's inode, size and nanoseconds, so that a file replaced or edited twice within one
// second is still seen as changed.
#pragma once

#include <sys/types.h>

#include <array>
#include <cstddef>
#include <cstdint>
#include <mutex>
#include <optional>
#include <span>

#include "kovasdk/bdb.h"

namespace kova::cache {

struct Store {
    const char *suffix;  // after the base path: ".name.0850"
    int dup_mode;        // KOVA_BDB_DUP or 0
    const char *source;  // the master file whose modification time is the store's sync time
    bool checked;        // compared with its source at the check (a second store of one
                         // source is not)
};

struct Family {
    const char *name;               // "User": in the log lines ("KOVAUserDBRebuild failed ...")
    const char *base;               // "/tmp/.db.user"
    const char *tmp_base;           // "/tmp/.db.user.tmp"
    const char *lock_file;          // serialises rebuilds and changes
    std::span<const Store> stores;  // in the order they are opened and checked
    size_t handle_size;             // the family's handle: a record of PKOVABDB slots
    PKOVABDB *(*slot)(void *handle, size_t store);
    int (*build)(void *handle);  // fills the open, empty stores; 0 or -1
    // Completes or undoes a change of the text files that a killed writer left (may be null).
    void (*recover)();
};

inline constexpr size_t kMaxStores = 8;

// The defined operations, for the family's exported functions.
int open_file(const Family &family, void **handle, const char *base);
int check_and_rebuild(const Family &family, void **handle);
int rebuild(const Family &family);
// Opens the live cache, rebuilding as needed: the handle, or null.
void *open(const Family &family);
int close(const Family &family, void *handle);

// Stores the sync time (and fingerprint) of each store's source: 0 or -1.
int store_sync_times(const Family &family, void *handle);

// The lock of one cache, taken for its lifetime (polled up to ten seconds).
class Lock {
  public:
    explicit Lock(const Family &family);
    Lock(const Lock &) = delete;
    Lock &operator=(const Lock &) = delete;
    ~Lock();
    bool held() const { return fd_ >= 0; }
    // Lets the lock go before the end of the scope.
    void release();

  private:
    int fd_ = -1;
};

// A writer's private copy of the live cache: made from the open live handle under the cache's
// lock, changed through handle(), then installed over the live files (the live handle is
// reopened on them). Destroyed without install, it is removed.
class Change {
  public:
    Change(const Family &family, void **live);
    Change(const Change &) = delete;
    Change &operator=(const Change &) = delete;
    ~Change();

    // False when the lock or the copy failed (raised).
    bool ok() const { return handle_ != nullptr; }
    void *handle() const { return handle_; }
    // Records the sources' sync times, closes the copy and renames it over the live files; the
    // cache's lock is let go then, so that the updates that follow a change (other families'
    // files) may rebuild this cache if they must.
    bool install();

  private:
    const Family &family_;
    void **live_;
    Lock lock_;
    void *handle_ = nullptr;
};

// The frame every change of a family's text files runs in: the family's file lock (a lock-table
// bit, taken exclusively), the open live cache and a private copy of it (Change). finish()
// writes the text files from the copy and puts the copy in place; a cache that cannot be put
// in place is left for the next reader to rebuild, since the text files are the accounts.
struct WriterOps {
    uint32_t lock_bit;
    int (*dump)(void *handle);  // the family's text files from a handle: 0 or -1
    const char *lock_failed;    // logged when the lock cannot be taken (may be null)
};

class Writer {
  public:
    Writer(const Family &family, const WriterOps &ops);
    Writer(const Writer &) = delete;
    Writer &operator=(const Writer &) = delete;
    ~Writer();

    bool ok() const { return change_.has_value() && change_->ok(); }
    void *handle() const { return change_->handle(); }
    // Dump the text files, then put the changed cache in place. 0 or -1.
    int finish();

  private:
    const Family &family_;
    const WriterOps &ops_;
    bool locked_ = false;
    void *live_ = nullptr;
    std::optional<Change> change_;
};

// What a store records of its source beside the sync time.
struct Fingerprint {
    int64_t dev;
    int64_t ino;
    int64_t size;
    int64_t nsec;
};

// The live cache as the account operations of one process read it: opened on first use and
// kept open between calls. Each use checks it the cheap way: the last store of the set still
// the file at its path (every replacement renames the whole set, that one last), every source
// unchanged since the build (compared with what the stores recorded when they were opened).
// Only when something differs do the family's recovery and the full check (and rebuild) run.
// Uses are serialised within the process; a child after fork opens its own.
class Kept {
  public:
    explicit Kept(const Family &family);
    Kept(const Kept &) = delete;
    Kept &operator=(const Kept &) = delete;

    // read(void *handle) with the checked live handle; its result, or -1 when the cache cannot
    // be opened (raised).
    template <class Read>
    int read(Read &&read) {
        const std::lock_guard guard(mutex_);
        void *handle = current();
        return handle != nullptr ? read(handle) : -1;
    }

    static void before_fork();
    static void after_fork_in_parent();
    static void after_fork_in_child();
    static void at_exit();

  private:
    struct Mark {
        int32_t sync = 0;
        Fingerprint print{};
        bool set = false;
    };
    void *current();
    bool unchanged() const;
    bool remember();
    void forget();

    const Family &family_;
    std::mutex mutex_;
    void *handle_ = nullptr;
    std::array<dev_t, kMaxStores> dev_{};
    std::array<ino_t, kMaxStores> ino_{};
    std::array<Mark, kMaxStores> marks_{};
    bool inherited_ = false;  // opened by the parent of a fork
};

}  // namespace kova::cache
