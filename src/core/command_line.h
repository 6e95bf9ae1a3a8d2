// A shell command composed from the system's fixed texts and paths. A path becomes one quoted
// shell word, so a caller's device name can never add a command; a device path (/dev, /sys,
// /proc) is resolved under the sandbox root first. Too long a command is refused (ok() false).
#pragma once

#include <cstddef>

namespace kova {

class CommandLine {
  public:
    CommandLine() { text_[0] = '\0'; }
    CommandLine(const CommandLine &) = delete;
    CommandLine &operator=(const CommandLine &) = delete;

    // Fixed text, formatted like printf (no caller-given strings here: use word()).
    CommandLine &text(const char *format, ...) __attribute__((format(printf, 2, 3)));
    // A caller's or the system's path as one shell word (a device path rooted first).
    CommandLine &device(const char *path);
    // Any text as one shell word, as it is.
    CommandLine &word(const char *text);

    bool ok() const { return ok_; }
    const char *c_str() const { return text_; }

    // Runs it through the shell: its exit status (0-255), or -1 when it could not run (or the
    // command did not fit).
    int run() const;

  private:
    static constexpr size_t kSize = 8192;
    char text_[kSize];
    size_t length_ = 0;
    bool ok_ = true;
};

// The exit status of a system() result: (status >> 8) & 0xFF, -1 when the shell did not run.
int exit_status(int status);

}  // namespace kova
