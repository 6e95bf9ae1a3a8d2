// Forked helpers for the lock and concurrency tests: children that run a function and report
// through their exit status, with bounded waits.
#pragma once

#include <sys/wait.h>
#include <unistd.h>

#include <chrono>

namespace kova::test {

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

inline double seconds_since(std::chrono::steady_clock::time_point start) {
    return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
}

}  // namespace kova::test
