#include "core/run.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <climits>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "core/root.h"

namespace kova {
namespace {
// Test seam only: who sees the runs. Production code never sets it.
testing::RunObserver g_observer = nullptr;
void *g_observer_context = nullptr;

void observe(const char *path, char *const argv[], const char *command) {
    if (g_observer != nullptr) g_observer({path, argv, command}, g_observer_context);
}

// The kernel's null device, not a file of the appliance root.
void stdio_to_dev_null() {
    int fd = open("/dev/null", O_RDWR);
    if (fd < 0) return;
    dup2(fd, STDIN_FILENO);
    dup2(fd, STDOUT_FILENO);
    dup2(fd, STDERR_FILENO);
    if (fd > STDERR_FILENO) close(fd);
}

[[noreturn]] void exec_child(const char *path, char *const argv[], const ChildSetup &setup) {
    stdio_to_dev_null();
    if (setup.before_exec != nullptr) setup.before_exec();
    if (setup.new_session) setsid();
    if (setup.chdir_root && chdir("/") != 0) {
        // the program still runs, from wherever the caller was
    }
    // A cleared environment still names the appliance root: a program the library runs works
    // on the same appliance as the library (built without allocating, after fork).
    char root_entry[PATH_MAX + 16] = "";
    char *cleared[2] = {nullptr, nullptr};
    if (setup.clear_env) {
        const char *root = getenv("KOVA_ROOT");
        if (root != nullptr && root[0] != '\0' &&
            snprintf(root_entry, sizeof root_entry, "KOVA_ROOT=%s", root) <
                static_cast<int>(sizeof root_entry)) {
            cleared[0] = root_entry;
        }
    }
    char *const *env = setup.clear_env ? cleared : environ;
    if (strchr(path, '/') != nullptr) {
        execve(path, argv, env);
    } else {
        execvpe(path, argv, env);
    }
    if (setup.on_exec_failure == ChildSetup::OnExecFailure::abort) abort();
    _exit(255);  // _exit: the caller's stdio buffers must not be flushed twice
}

bool harmless_in_shell(unsigned char c) {
    return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') ||
           strchr("/._-+,:@%=", c) != nullptr;
}
}  // namespace

pid_t spawn(const char *path, char *const argv[], const ChildSetup &setup) {
    observe(path, argv, nullptr);
    pid_t pid = fork();
    if (pid == 0) exec_child(path, argv, setup);
    return pid;
}

pid_t wait_child(pid_t pid, int *status) {
    pid_t rc;
    do {
        rc = waitpid(pid, status, 0);
    } while (rc < 0 && errno == EINTR);
    return rc;
}

ChildWaitScope::ChildWaitScope() {
    if (sigaction(SIGCHLD, nullptr, &saved_) != 0 || (saved_.sa_flags & SA_NOCLDWAIT) == 0) return;
    struct sigaction waitable = saved_;
    waitable.sa_flags &= ~SA_NOCLDWAIT;
    changed_ = sigaction(SIGCHLD, &waitable, nullptr) == 0;
}

ChildWaitScope::~ChildWaitScope() {
    if (changed_) sigaction(SIGCHLD, &saved_, nullptr);
}

int run_shell(const char *command) {
    observe(nullptr, nullptr, command);
    return system(command);
}

FILE *open_shell_pipe(const char *command) {
    observe(nullptr, nullptr, command);
    return popen(command, "r");
}

ProgramPath::ProgramPath(const char *absolute_path) {
    word_[0] = '\0';
    const char *program = absolute_path;
    RootedPath rooted(absolute_path);
    if (sandbox_root()[0] != '\0') {
        struct stat st {};
        bool inside = rooted.ok() && stat(rooted.c_str(), &st) == 0 && S_ISREG(st.st_mode) &&
                      access(rooted.c_str(), X_OK) == 0;
        if (inside) {
            program = rooted.c_str();
        } else {
            const char *slash = strrchr(absolute_path, '/');
            program = slash != nullptr ? slash + 1 : absolute_path;
        }
    }
    if (!kova::shell_word(program, word_, sizeof word_)) word_[0] = '\0';
}

bool shell_word(const char *text, char *out, size_t size) {
    const size_t len = strlen(text);
    bool harmless = len > 0;
    for (size_t i = 0; i < len && harmless; ++i) {
        harmless = harmless_in_shell(static_cast<unsigned char>(text[i]));
    }
    if (!harmless) return shell_escape(text, out, size);
    if (len + 1 > size) {
        if (size > 0) out[0] = '\0';
        return false;
    }
    memcpy(out, text, len + 1);
    return true;
}

bool shell_escape(const char *text, char *out, size_t size) {
    if (size == 0) return false;
    size_t used = 0;
    for (const char *p = text; *p != '\0'; ++p) {
        const bool newline = *p == '\n';
        const size_t need = newline ? 3 : 2;
        if (size - used < need + 1) {  // the piece and the terminating NUL
            out[used] = '\0';
            return false;
        }
        if (newline) {
            memcpy(out + used, "'\n'", 3);
        } else {
            out[used] = '\\';
            out[used + 1] = *p;
        }
        used += need;
    }
    out[used] = '\0';
    return true;
}

namespace testing {
void set_run_observer(RunObserver observer, void *context) {
    g_observer = observer;
    g_observer_context = context;
}
}  // namespace testing

}  // namespace kova
