// The one way a file is rewritten. A Rewrite owns the file being replaced (open for reading,
// with its owner, group and mode), the temporary file beside it and the line reader; the
// function using it gives the lines at which each step's failure is raised and an editor that
// decides what stands in each line's place. Creating a file that does not exist is a mode of
// it, and so is writing content that is not line-based. The target is replaced only by the
// final rename, so any failure leaves the old file as it was and no temporary file behind.
//
//     kova::Rewrite rewrite(path, kLines);
//     if (rewrite.open() != kova::Rewrite::Opened::kOk) return -1;
//     if (!rewrite.each_line([&](kova::LineReader &line) { return rewrite.put(line.line()); }))
//         return -1;
//     return rewrite.commit() ? 1 : -1;
#pragma once

#include <fcntl.h>
#include <sys/stat.h>

#include <cstdint>
#include <cstdio>
#include <initializer_list>
#include <string_view>

#include "core/line_reader.h"
#include "core/owners.h"
#include "core/raise.h"
#include "core/temp_file.h"

namespace kova {

// The defined line of each step's failure. 0 stands for the line of the caller's call that
// failed (where no line is defined); kNoCode raises nothing (the step still fails).
struct RewriteLines {
    int open = 0;         // ERR_OPEN_FAILED: the file exists but cannot be opened
    int stat = 0;         // ERR_STAT_FAILED
    int not_regular = 0;  // ERR_OPEN_FAILED: a directory, FIFO or device
    int create = 0;       // ERR_OPEN_FAILED: the temporary file
    int stream = 0;       // ERR_OPEN_FAILED: its stream
    int write = 0;        // ERR_WRITE_FAILED: put() and print() without a line of their own
    int read = 0;         // read_code: reading the file stopped before its end
    uint32_t read_code = ERR_READ_FAILED;  // out of memory is always ERR_OUT_OF_MEMORY
    int flush = 0;                         // ERR_WRITE_FAILED
    int sync = 0;                          // ERR_WRITE_FAILED: fsync, fchown, fchmod
    int close = 0;                         // ERR_WRITE_FAILED
    int rename = 0;                        // ERR_RENAME_FAILED
};
inline constexpr int kNoCode = -1;

// The lines of creating a missing file in one go (create()); 0 as above.
struct CreateLines {
    int open = 0;   // ERR_OPEN_FAILED: the new file could not be made
    int write = 0;  // ERR_WRITE_FAILED: the writer failed
    int flush = 0;  // ERR_WRITE_FAILED
    int sync = 0;   // ERR_WRITE_FAILED: fsync, fchown, fchmod
    int close = 0;  // ERR_WRITE_FAILED; also when a file appeared at the path meanwhile
};

class Rewrite {
  public:
    // path is the file to replace; temp_name a defined temporary name (null: "<path>.XXXXXX").
    // Raises are recorded under the constructing source file's name. Both strings are kept by
    // pointer.
    Rewrite(const char *path, const RewriteLines &lines, const char *temp_name = nullptr,
            const char *file = __builtin_FILE());
    Rewrite(const Rewrite &) = delete;
    Rewrite &operator=(const Rewrite &) = delete;

    enum class Opened { kOk, kMissing, kFailed };
    // Opens the file to replace. kMissing only when it does not exist (nothing raised); any
    // other failure, and a path that is not a regular file, raise their lines: kFailed.
    // access O_RDWR opens it as "r+" would, for the writers defined to need write access.
    Opened open(int access = O_RDONLY, int call_line = __builtin_LINE());
    // The open file, for a first pass; each_line() rewinds it.
    FILE *source() const { return source_.get(); }

    // Creates the temporary file (each_line() does it when needed). For a file that did not
    // exist, start_new(mode) instead: the new file gets the caller's ids and mode.
    bool start(int call_line = __builtin_LINE());
    bool start_new(mode_t mode, int call_line = __builtin_LINE());

    // Reads the file from its start and calls edit(LineReader &) for each line; edit writes
    // what stands in the line's place with put()/print() and returns false on a failure it has
    // raised. False when edit failed or reading stopped early (raised at lines.read).
    template <class Edit>
    bool each_line(Edit &&edit, int call_line = __builtin_LINE());

    // Write into the temporary file; false (raised at line, or lines.write when 0) on failure.
    // print() has no call line to fall back on: give __LINE__ where no line is defined.
    bool put(std::string_view bytes, int line = 0, int call_line = __builtin_LINE());
    bool print(int line, const char *format, ...) __attribute__((format(printf, 3, 4)));
    FILE *out() const { return temp_.stream(); }
    // The file is written with at most these permission bits, whatever the old file had: a
    // file of secrets stays private even where it was found readable by others.
    void limit_mode(mode_t allowed) { allowed_mode_ = allowed; }

    // Flush, sync, owner and mode, close, rename (or, for a file that did not exist, a link
    // that never replaces one that appeared meanwhile).
    bool commit(int call_line = __builtin_LINE());
    // Several files replaced together: all are prepared before the first rename, so a failure
    // up to then leaves every target as it was.
    static bool commit_all(std::initializer_list<Rewrite *> rewrites,
                           int call_line = __builtin_LINE());

    // Creates the missing file in one go: write(FILE *) fills it (false on failure), then it
    // is committed like any rewrite. The lines are the creation's own.
    template <class Writer>
    bool create(const CreateLines &lines, mode_t mode, Writer &&write,
                int call_line = __builtin_LINE());

  private:
    bool fail(uint32_t code, int line, int call_line);
    bool fail_step(const RewriteLines &lines, uint32_t rename_code, int call_line);
    bool fail_commit(int call_line);
    bool fail_create(const CreateLines &lines, int call_line);
    bool reading_failed(const LineReader &reader, int call_line);
    // The owner and mode the new file is given.
    struct stat target() const {
        struct stat st = st_;
        st.st_mode &= ~07777 | allowed_mode_;
        return st;
    }

    const char *path_;
    const char *temp_name_;
    const char *file_;
    RewriteLines lines_;
    UniqueFile source_;
    struct stat st_ {};
    bool new_file_ = false;
    mode_t allowed_mode_ = 07777;
    TempFile temp_;
};

template <class Edit>
bool Rewrite::each_line(Edit &&edit, int call_line) {
    if (out() == nullptr && !start(call_line)) return false;
    if (!source_) return true;
    rewind(source_.get());
    LineReader reader(source_.get());
    while (reader.next()) {
        if (!edit(reader)) return false;
    }
    return !reader.failed() || reading_failed(reader, call_line);
}

template <class Writer>
bool Rewrite::create(const CreateLines &lines, mode_t mode, Writer &&write, int call_line) {
    new_file_ = true;
    st_ = new_file_owner(mode);
    if (!temp_.create(path_, temp_name_)) return fail_create(lines, call_line);
    if (!write(out())) return fail(ERR_WRITE_FAILED, lines.write, call_line);
    if (!temp_.commit_new(target())) return fail_create(lines, call_line);
    return true;
}

}  // namespace kova
