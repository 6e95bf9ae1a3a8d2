// Helpers of the process family's tests: real children with unique command lines or holding an
// operation registration.
#pragma once

#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <chrono>
#include <filesystem>
#include <string>
#include <vector>

#include "kovasdk/error.h"
#include "kovasdk/file.h"
#include "kovasdk/proc.h"
#include "proc/proc_internal.h"
#include "support/sandbox.h"

namespace kova::test {

using Clock = std::chrono::steady_clock;
using std::chrono::milliseconds;

// A command-line word no other process on this machine has: "kovatest-TAG-PID-N".
inline std::string unique_name(const std::string &tag) {
    static std::atomic<int> counter{0};
    return "kovatest-" + tag + "-" + std::to_string(getpid()) + "-" + std::to_string(++counter);
}

// Reaps the child: its exit code, or minus the signal that killed it.
inline int reap(pid_t pid) {
    int status = 0;
    while (waitpid(pid, &status, 0) < 0 && errno == EINTR) {
    }
    return WIFSIGNALED(status) ? -WTERMSIG(status) : WEXITSTATUS(status);
}

// Real children of a test, killed and reaped at the end unless reaped earlier.
class Children {
  public:
    ~Children() {
        for (pid_t pid : std::vector(pids_))
            end(pid);
    }
    pid_t adopt(pid_t pid) { return pids_.push_back(pid), pid; }
    int finish(pid_t pid) {
        pids_.erase(std::remove(pids_.begin(), pids_.end(), pid), pids_.end());
        return reap(pid);
    }
    int end(pid_t pid) { return kill(pid, SIGKILL), finish(pid); }
    // program ("/bin/sleep 30") shown by ps as name; running once this returns.
    pid_t sleeper(const std::string &name, bool ignore_term = false,
                  const std::string &program = "/bin/sleep") {
        const pid_t pid = fork();
        if (pid == 0) {
            if (ignore_term) signal(SIGTERM, SIG_IGN);  // stays ignored across exec
            execl(program.c_str(), name.c_str(), "30", static_cast<char *>(nullptr));
            _exit(127);
        }
        usleep(50 * 1000);  // until the exec has happened
        return adopt(pid);
    }
    // A child that runs fn and, when it returned 0, stays (holding what fn took) until it is
    // ended: its pid, or -1 when fn failed.
    template <class F>
    pid_t hold_while(F fn) {
        int report[2], rc = -100;
        if (pipe(report) != 0) return -1;
        const pid_t pid = adopt(fork());
        if (pid == 0) {
            rc = fn();
            if (write(report[1], &rc, sizeof rc) == sizeof rc)
                for (;;)
                    pause();
            _exit(1);
        }
        close(report[1]);
        if (read(report[0], &rc, sizeof rc) != sizeof rc) rc = -100;
        close(report[0]);
        return rc == 0 ? pid : -1;
    }
    // A child holding a registration of op (when ended, its entry stays behind, dead).
    pid_t hold(int op) {
        return hold_while([op] {
            int ids[16], n = 16;
            return KOVAOperationRegister(op, 0, ids, &n, 0);
        });
    }

  private:
    std::vector<pid_t> pids_;
};

}  // namespace kova::test
