// Running programs: the library's one road to fork/exec, system() and popen(). Every program it
// starts passes through here, so a test can see what was run (an observer gets each argument
// vector and each composed shell line) and can put recording shims on PATH in front of the
// standard programs.
#pragma once

#include <sys/types.h>

#include <csignal>
#include <cstddef>
#include <cstdio>

namespace kova {

// What happens in the child between fork and exec. Standard input, output and error always go
// to /dev/null.
struct ChildSetup {
    enum class OnExecFailure { exit_255, abort };

    bool new_session = false;         // setsid()
    bool chdir_root = false;          // chdir("/")
    bool clear_env = false;           // an empty environment, but for KOVA_ROOT
    void (*before_exec)() = nullptr;  // e.g. closing the lock files the caller holds
    OnExecFailure on_exec_failure = OnExecFailure::exit_255;
};

// Forks and execs path with argv (execv; a path without "/" is searched on PATH). Returns the
// child's pid, or -1 with errno set when fork failed. Never returns in the child.
pid_t spawn(const char *path, char *const argv[], const ChildSetup &setup);

// waitpid() that retries when interrupted by a signal handler.
pid_t wait_child(pid_t pid, int *status);

// While alive, SIGCHLD's SA_NOCLDWAIT flag is cleared so that a child can be waited for; the
// caller's action is restored afterwards.
class ChildWaitScope {
  public:
    ChildWaitScope();
    ~ChildWaitScope();
    ChildWaitScope(const ChildWaitScope &) = delete;
    ChildWaitScope &operator=(const ChildWaitScope &) = delete;

  private:
    struct sigaction saved_ {};
    bool changed_ = false;
};

// system(3) and popen(command, "r") of a command line the library composed.
int run_shell(const char *command);
FILE *open_shell_pipe(const char *command);

// A program that the library names inside a composed command ("/bin/ps", "/sbin/sfdisk").
// On the real root the path stays as it is. Under a sandbox root it is the program inside the
// sandbox when one is there and executable (the appliance's own programs, or a test's shim),
// otherwise the bare name, which the shell finds on PATH (the standard programs).
class ProgramPath {
  public:
    explicit ProgramPath(const char *absolute_path);
    // Ready to stand as a word of a shell command (escaped if it needs it); "" if too long.
    const char *shell_word() const { return word_; }

  private:
    char word_[4096];
};

// Copies text so that it stands as one word of a shell command: unchanged when every byte is
// harmless to the shell, else each byte escaped (see shell_escape). False if it did not fit.
bool shell_word(const char *text, char *out, size_t size);

// Writes every byte preceded by a backslash, except a line feed, which is written quoted
// ('\n') because the shell drops a backslash-newline pair. The output is always terminated;
// false if the input did not fit (the output then holds the part that fitted).
bool shell_escape(const char *text, char *out, size_t size);

namespace testing {
// One program run: path and argv for fork/exec, or the command for the shell forms.
struct RunRecord {
    const char *path;     // null for a shell command
    char *const *argv;    // null for a shell command
    const char *command;  // null for fork/exec
};
using RunObserver = void (*)(const RunRecord &run, void *context);
// Installs an observer that sees every run before it starts (null removes it).
void set_run_observer(RunObserver observer, void *context);
}  // namespace testing

}  // namespace kova
