// Helpers of the process family's tests: real children with unique command lines, and
// children that hold an operation registration.
#pragma once

#include <sys/types.h>

#include <string>

#include "support/sandbox.h"

namespace kova::test {

// A command-line word no other process on this machine has: "kovatest-TAG-PID-N".
std::string unique_name(const std::string &tag);

// Starts "/bin/sleep 30" with argv[0] set to name (so ps shows the name); with ignore_term the
// child ignores SIGTERM. Returns the pid.
pid_t start_sleeper(const std::string &name, bool ignore_term = false);

// waitpid() for the child; its raw status.
int reap(pid_t pid);

// A child process that registers an operation and holds it until it is killed by end() or
// the destructor (its entry then stays behind, dead).
class HeldOperation {
  public:
    explicit HeldOperation(int op);
    ~HeldOperation();
    HeldOperation(const HeldOperation &) = delete;
    HeldOperation &operator=(const HeldOperation &) = delete;

    int result() const { return result_; }  // what KOVAOperationRegister returned in the child
    pid_t pid() const { return pid_; }
    // Kills the child and reaps it.
    void end();

  private:
    pid_t pid_ = -1;
    int result_ = -100;
};

// A sandbox test that removes the sandbox's registry segment afterwards.
class RegistryTest : public SandboxTest {
  protected:
    ~RegistryTest() override;
};

}  // namespace kova::test
