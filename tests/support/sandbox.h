// The test harness: a fresh appliance root per test, captured log lines, injected allocation
// failures, and small file helpers.
#pragma once

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace kova::test {

// A fresh copy of skeleton/ under the build tree, installed as KOVA_ROOT for the test's
// lifetime and removed afterwards.
class Sandbox {
  public:
    Sandbox();
    ~Sandbox();
    Sandbox(const Sandbox &) = delete;
    Sandbox &operator=(const Sandbox &) = delete;

    const std::string &root() const { return root_; }
    // A path inside the sandbox: path("/etc/kovainfo.conf").
    std::string path(const std::string &absolute) const { return root_ + absolute; }

  private:
    std::string root_;
    std::string saved_root_;
    bool had_root_ = false;
};

// GoogleTest fixture giving each test its own sandbox root.
class SandboxTest : public ::testing::Test {
  protected:
    std::string path(const std::string &absolute) const { return sandbox_.path(absolute); }
    const std::string &root() const { return sandbox_.root(); }
    // Entries of a sandbox directory that the skeleton does not have (sorted): what a test
    // made there, and any temporary file left behind.
    std::vector<std::string> new_entries(const std::string &absolute) const;

    Sandbox sandbox_;
};

struct LogLine {
    int priority;
    std::string text;
};

// Collects the library's syslog lines while alive.
class LogCapture {
  public:
    LogCapture();
    ~LogCapture();
    LogCapture(const LogCapture &) = delete;
    LogCapture &operator=(const LogCapture &) = delete;

    const std::vector<LogLine> &lines() const { return lines_; }
    bool contains(int priority, const std::string &text) const;
    // A line at priority holding text anywhere (for lines that quote this file's own lines).
    bool mentions(int priority, const std::string &text) const;

  private:
    std::vector<LogLine> lines_;
};

// Collects the programs the library runs while alive: "path arg1 arg2" for fork/exec (argv[0]
// left out), the command line itself for the shell forms.
class RunCapture {
  public:
    RunCapture();
    ~RunCapture();
    RunCapture(const RunCapture &) = delete;
    RunCapture &operator=(const RunCapture &) = delete;

    const std::vector<std::string> &runs() const { return runs_; }

  private:
    std::vector<std::string> runs_;
};

// Makes the nth allocation of the library from now fail; restores on destruction.
class AllocationFailure {
  public:
    explicit AllocationFailure(long nth);
    ~AllocationFailure();
    AllocationFailure(const AllocationFailure &) = delete;
    AllocationFailure &operator=(const AllocationFailure &) = delete;
};

// Whether the last raise was code (at line, when given).
::testing::AssertionResult raised(uint32_t code, int line = 0);

// Library allocations made since the process started.
long allocation_count();

// Standard output written while fn runs.
template <class F>
std::string capture_stdout(F fn) {
    ::testing::internal::CaptureStdout();
    fn();
    fflush(stdout);
    return ::testing::internal::GetCapturedStdout();
}

// Runs a program of the build directory through the shell ("kovactl --root DIR disk list"):
// its standard output (and standard error, when the command line says 2>&1) and exit status.
std::pair<std::string, int> run_tool(const std::string &command_line);

std::string read_file(const std::string &path);
void write_file(const std::string &path, const std::string &content);
bool file_exists(const std::string &path);
// Entries of a directory (names only, sorted), for checking that no temporary file is left.
std::vector<std::string> list_dir(const std::string &dir);

}  // namespace kova::test
