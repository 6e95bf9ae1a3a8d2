// What the process family's files share: paths, the operation tables, the registry segment
// and the process-table walk.
//
// Shell-command safety. Every text that goes into a command line composed by the library is
// either checked by a rule that lets no shell metacharacter through or escaped:
// - validated: user, group and share names (their families' name rules), device and array
//   names the library builds from numbers (sda3, md2), numbers, fixed option words, and the
//   KLIBPs pattern (inside single quotes; a quote or a control character in it is refused:
//   grep reads a pattern with a line feed as two patterns);
// - escaped with KLIBEncShParam (or kova::shell_word): paths (mount points, volume and backup
//   paths, the sandbox root), passwords, descriptions, host names, grep patterns outside quotes,
//   and anything else a caller or a file supplied.
#pragma once

#include <sys/types.h>

#include <cstddef>
#include <cstdint>

namespace kova::proc {

// The argument vector of the four-argument exec forms: the path as argument 0, then the given
// arguments up to the first null.
struct ExecArgs {
    ExecArgs(const char *path, const char *a1, const char *a2, const char *a3, const char *a4) {
        const char *given[] = {a1, a2, a3, a4};
        argv[0] = const_cast<char *>(path);
        for (int i = 0; i < 4 && given[i] != nullptr; ++i)
            argv[i + 1] = const_cast<char *>(given[i]);
    }
    char *argv[6] = {};
};

// A pattern for KLIBPs and KLIBIKill: no single quote (it stands between quotes), no control
// character (a line feed would make grep match by a second pattern), shorter than a line.
bool is_safe_pattern(const char *pattern);

inline constexpr const char kPsTempFile[] = "/tmp/tempKLIBPs%u";
inline constexpr const char kRegistryLockFile[] = "/tmp/procreg.lock";
inline constexpr const char kProcStatusGlob[] = "/proc/[0-9]*/status";
inline constexpr const char kPs[] = "/bin/ps";
inline constexpr const char kGrep[] = "/bin/grep";

inline constexpr int kCommandSize = 1024;  // composed shell lines
inline constexpr int kLineSize = 1024;     // lines read back from ps
inline constexpr int kKillMax = 256;       // pids KLIBIKill signals per pass

// ---- The operation registry ------------------------------------------------------------------

inline constexpr int kOperationCount = 39;  // ids 0-38; 39 ends the table
inline constexpr int kOperationIdLimit = 40;
inline constexpr int kClassCount = 18;
inline constexpr int kRegistrySlots = 16;
inline constexpr int kStepMs = 200;  // the lock and the registry are polled in 200 ms steps
inline constexpr int kRegistryKey = 888;

struct OperationInfo {
    int id;
    const char *name;
    int op_class;
};

struct ClassMasks {
    uint32_t bit;   // the class's own bit
    uint32_t hard;  // classes that a running operation of this class blocks hard
    uint32_t soft;  // ... and softly
};

extern const OperationInfo grgIDMap[kOperationCount + 1];
extern const ClassMasks grgBOPack[kClassCount];

// The class row of an operation id; ids outside the table have class 0 (blocks nothing).
const ClassMasks &class_of(uint32_t op);

// The shared segment: a count and 16 (operation id, pid) pairs in the machine's own byte order
// (it never leaves the machine).
struct RegistryEntry {
    uint32_t op;
    uint32_t pid;
};
struct Registry {
    uint32_t count;
    RegistryEntry entries[kRegistrySlots];
};
static_assert(sizeof(Registry) == 132, "the segment is 132 bytes");

// The segment's System V key: 888 on the real root, another key per sandbox root.
key_t registry_key();

// "/tmp/procreg.lock" taken with GetExclusiveFileLock; released when the owner goes away.
class RegistryLock {
  public:
    // Waits up to *budget_ms (what is left stays there); see GetExclusiveFileLock's results.
    explicit RegistryLock(int *budget_ms);
    ~RegistryLock();
    RegistryLock(const RegistryLock &) = delete;
    RegistryLock &operator=(const RegistryLock &) = delete;
    int result() const { return fd_; }  // the descriptor, -2 time-out, -1 failure

  private:
    int fd_;
};

// The attached segment, detached when the owner goes away.
class AttachedRegistry {
  public:
    // create: make the segment (zero-filled) when it does not exist yet.
    explicit AttachedRegistry(bool create);
    ~AttachedRegistry();
    AttachedRegistry(const AttachedRegistry &) = delete;
    AttachedRegistry &operator=(const AttachedRegistry &) = delete;
    Registry *get() const { return registry_; }

  private:
    Registry *registry_ = nullptr;
};

// Removes entry i by moving the last entry into its place.
void remove_entry(Registry *registry, uint32_t i);

// ---- The process table -----------------------------------------------------------------------

// Calls visit(status_path, context) for every "/proc/<pid>/status" under the root; false (with
// errno) when the listing failed.
bool for_each_process_status(void (*visit)(const char *status_path, void *context), void *context);

// The pid in "<root>/proc/<pid>/status", or -1.
int pid_of_status_path(const char *status_path);

// The child's side of "children do not inherit the caller's lock files".
void close_held_lock_files();

namespace testing {
// Forgets the cached "maxservices", so the next login check reads it again.
void forget_max_services();
}  // namespace testing

}  // namespace kova::proc
