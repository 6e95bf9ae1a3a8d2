// Shared by the family's tests: a sandbox with a settings file, the last raise, a string hash
// that frees itself, and forked children that report through their exit status.
#pragma once

#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <initializer_list>
#include <utility>

#include "kovasdk/error.h"
#include "kovasdk/hash.h"
#include "support/sandbox.h"

namespace kova::test {

// A fresh sandbox root with a settings file of the test's own and a name that does not exist.
class FileTest : public SandboxTest {
  protected:
    const std::string conf_path_ = path("/etc/test.conf"), none_path_ = path("/etc/none");
    const char *conf_ = conf_path_.c_str(), *none_ = none_path_.c_str();
};

// A hash holding the given pairs, freed at the end of its scope.
struct Hash {
    PKLIBSZHASH h = PshKLIBSzHashAlloc(0);
    Hash(std::initializer_list<std::pair<const char *, const char *>> pairs = {}) {
        for (const auto &[key, value] : pairs)
            EXPECT_GE(KLIBSzHashSetValue(&h, key, value), 0);
    }
    ~Hash() { KLIBSzHashFree(h); }
    Hash(const Hash &) = delete;
    Hash &operator=(const Hash &) = delete;
    operator PKLIBSZHASH() const { return h; }
};

// Forks a child running fn (its result is the exit status); the child never returns.
template <class F>
pid_t fork_child(F fn) {
    const pid_t pid = fork();
    if (pid == 0) _exit(fn());
    return pid;
}

// The child's exit status, or -1 when it did not exit normally.
inline int wait_child(pid_t pid) {
    int status = 0;
    if (waitpid(pid, &status, 0) != pid || !WIFEXITED(status)) return -1;
    return WEXITSTATUS(status);
}

// How many seconds fn took.
template <class F>
double seconds_for(F fn) {
    const auto start = std::chrono::steady_clock::now();
    fn();
    return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
}

}  // namespace kova::test
