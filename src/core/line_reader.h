// Reads a stream line by line, without a limit on the line length: each line with its line feed
// (when it has one) and its exact length, embedded NUL bytes included. The buffer grows through
// the allocation seam, so that running out of memory is seen and reported.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <string_view>

#include "kovasdk/error.h"

namespace kova {

class LineReader {
  public:
    explicit LineReader(FILE *stream) : stream_(stream) {}
    LineReader(const LineReader &) = delete;
    LineReader &operator=(const LineReader &) = delete;
    ~LineReader();

    // Reads the next line; false at the end of the file, on a read error or when memory ran
    // out (tell them apart with failed() and out_of_memory()).
    bool next();

    // The current line, NUL-terminated after its last byte (line feed included).
    char *data() { return buf_; }
    std::string_view line() const { return {buf_, len_}; }
    size_t size() const { return len_; }
    bool ends_with_newline() const { return len_ > 0 && buf_[len_ - 1] == '\n'; }
    // Lines read so far (1 for the first line).
    long number() const { return number_; }

    // Reading stopped before the end of the file.
    bool failed() const { return failed_; }
    bool out_of_memory() const { return out_of_memory_; }
    // The code a reader's failure is raised with: out of memory, or a read error.
    uint32_t failure_code() const { return out_of_memory_ ? ERR_OUT_OF_MEMORY : ERR_READ_FAILED; }

  private:
    bool reserve(size_t needed);

    FILE *stream_;
    char *buf_ = nullptr;
    size_t cap_ = 0;
    size_t len_ = 0;
    long number_ = 0;
    bool failed_ = false;
    bool out_of_memory_ = false;
};

}  // namespace kova
