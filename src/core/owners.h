// Owners of the C resources the library works with, so that every early return releases them.
#pragma once

#include <dirent.h>
#include <glob.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <memory>
#include <utility>

namespace kova {

class UniqueFd {
  public:
    UniqueFd() = default;
    explicit UniqueFd(int fd) : fd_(fd) {}
    UniqueFd(UniqueFd &&other) noexcept : fd_(other.release()) {}
    UniqueFd &operator=(UniqueFd &&other) noexcept {
        reset(other.release());
        return *this;
    }
    UniqueFd(const UniqueFd &) = delete;
    UniqueFd &operator=(const UniqueFd &) = delete;
    ~UniqueFd() { reset(); }

    int get() const { return fd_; }
    explicit operator bool() const { return fd_ >= 0; }
    int release() { return std::exchange(fd_, -1); }
    // Closes the held descriptor; the result of close(), or 0 when none was held.
    int reset(int fd = -1) {
        int old = std::exchange(fd_, fd);
        return old >= 0 ? ::close(old) : 0;
    }

  private:
    int fd_ = -1;
};

struct FileCloser {
    void operator()(FILE *f) const { fclose(f); }
};
using UniqueFile = std::unique_ptr<FILE, FileCloser>;

struct DirCloser {
    void operator()(DIR *d) const { closedir(d); }
};
using UniqueDir = std::unique_ptr<DIR, DirCloser>;

struct MallocFree {
    void operator()(void *p) const { free(p); }
};
template <class T>
using UniqueMalloc = std::unique_ptr<T, MallocFree>;

class UniqueGlob {
  public:
    UniqueGlob() = default;
    UniqueGlob(const UniqueGlob &) = delete;
    UniqueGlob &operator=(const UniqueGlob &) = delete;
    ~UniqueGlob() {
        if (held_) globfree(&glob_);
    }
    // glob(3) into the held result; the result of glob().
    int run(const char *pattern, int flags) {
        if (held_) globfree(&glob_);
        int rc = ::glob(pattern, flags, nullptr, &glob_);
        held_ = true;
        return rc;
    }
    const glob_t &get() const { return glob_; }

  private:
    glob_t glob_{};
    bool held_ = false;
};

// Runs a callable when the scope ends, unless dismissed.
template <class F>
class ScopeGuard {
  public:
    explicit ScopeGuard(F f) : f_(std::move(f)) {}
    ScopeGuard(const ScopeGuard &) = delete;
    ScopeGuard &operator=(const ScopeGuard &) = delete;
    ~ScopeGuard() {
        if (active_) f_();
    }
    void dismiss() { active_ = false; }

  private:
    F f_;
    bool active_ = true;
};

}  // namespace kova
