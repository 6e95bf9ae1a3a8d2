// An append in place at the end of an existing file, for the writers defined to add to a file
// without a temporary copy. The old length is remembered, and any failure cuts the file back to
// it, so the file holds either what it held before or the whole addition, never half a line.
#pragma once

#include <sys/stat.h>

#include <cstdio>

#include "core/owners.h"
#include "core/sys.h"

namespace kova {

class AppendInPlace {
  public:
    AppendInPlace() = default;
    AppendInPlace(const AppendInPlace &) = delete;
    AppendInPlace &operator=(const AppendInPlace &) = delete;
    ~AppendInPlace() { abandon(); }

    // Opens path for reading and writing ("r+"); refuses what is not a regular file.
    sys::Opened open(const char *path);
    FILE *stream() const { return stream_.get(); }
    const struct stat &stat() const { return st_; }

    // Moves to the end and remembers the length there; the last byte of the file ('\0' for an
    // empty file) goes to *last when asked. False when seeking failed.
    bool seek_end(char *last = nullptr);

    // Flush, fsync, close. On failure the file is cut back to the remembered length.
    bool finish();
    // Cuts the file back to the remembered length and closes it.
    void abandon();

  private:
    UniqueFile stream_;
    int fd_ = -1;
    struct stat st_ {};
    off_t length_ = -1;  // remembered by seek_end()
};

}  // namespace kova
