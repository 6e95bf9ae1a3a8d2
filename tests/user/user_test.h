// Shared by the user family's tests: a sandbox with the skeleton's accounts, records that free
// themselves, and children that report through their exit status.
#pragma once

#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <string>

#include "kovasdk/error.h"
#include "kovasdk/file.h"
#include "kovasdk/user.h"
#include "support/sandbox.h"

namespace kova::test {

// A record freed at the end of its scope.
struct User {
    PKOVAUSER p = nullptr;
    User() = default;
    User(const char *name, const char *password, const char *description = "", int32_t expire = 0,
         const char *mail = nullptr, int32_t privilege = 0) {
        EXPECT_EQ(KOVAUserAlloc(&p, name, password, 0, 100, description, nullptr, nullptr, expire,
                                mail, privilege),
                  0);
    }
    ~User() { KOVAUserFree(p); }
    User(const User &) = delete;
    User &operator=(const User &) = delete;
    PKOVAUSER operator->() const { return p; }
};

class UserTest : public SandboxTest {
  protected:
    void TearDown() override { ErrKLIBFileCloseLock(); }

    std::string text(const char *file) const { return read_file(path(file)); }
    // Whether the four files agree: the set of names in each.
    std::string names_in(const char *file) const;
    bool files_agree() const;
    bool no_tmp_files() const;
};

template <class F>
pid_t fork_child(F fn) {
    const pid_t pid = fork();
    if (pid == 0) {
        alarm(120);  // a child that hangs fails instead of hanging the suite
        _exit(fn());
    }
    return pid;
}

inline int wait_child(pid_t pid) {
    int status = 0;
    if (waitpid(pid, &status, 0) != pid || !WIFEXITED(status)) return -1;
    return WEXITSTATUS(status);
}

}  // namespace kova::test
