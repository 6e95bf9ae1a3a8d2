#include "proc/proc_test_support.h"

#include <signal.h>
#include <sys/shm.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>

#include "kovasdk/proc.h"
#include "proc/proc_internal.h"

namespace kova::test {

std::string unique_name(const std::string &tag) {
    static std::atomic<int> counter{0};
    return "kovatest-" + tag + "-" + std::to_string(getpid()) + "-" + std::to_string(++counter);
}

pid_t start_sleeper(const std::string &name, bool ignore_term) {
    const pid_t pid = fork();
    if (pid == 0) {
        if (ignore_term) signal(SIGTERM, SIG_IGN);  // stays ignored across exec
        execl("/bin/sleep", name.c_str(), "30", static_cast<char *>(nullptr));
        _exit(127);
    }
    return pid;
}

int reap(pid_t pid) {
    int status = 0;
    while (waitpid(pid, &status, 0) < 0 && errno == EINTR) {
    }
    return status;
}

HeldOperation::HeldOperation(int op) {
    int report[2];
    if (pipe(report) != 0) return;
    pid_ = fork();
    if (pid_ == 0) {
        close(report[0]);
        int ids[16];
        int n = 16;
        const int rc = KOVAOperationRegister(op, 0, ids, &n, 0);
        if (write(report[1], &rc, sizeof rc) != sizeof rc) _exit(1);
        for (;;)
            pause();
    }
    close(report[1]);
    if (read(report[0], &result_, sizeof result_) != sizeof result_) result_ = -100;
    close(report[0]);
}

void HeldOperation::end() {
    if (pid_ < 0) return;
    kill(pid_, SIGKILL);
    reap(pid_);
    pid_ = -1;
}

HeldOperation::~HeldOperation() {
    end();
}

RegistryTest::~RegistryTest() {
    const int id = shmget(kova::proc::registry_key(), 0, 0);
    if (id >= 0) shmctl(id, IPC_RMID, nullptr);
}

}  // namespace kova::test
