#include "core/rewrite.h"

#include <cstdarg>

#include "core/sys.h"

namespace kova {

Rewrite::Rewrite(const char *path, const RewriteLines &lines, const char *temp_name,
                 const char *file)
    : path_(path), temp_name_(temp_name), file_(base_name(file)), lines_(lines) {}

bool Rewrite::fail(uint32_t code, int line, int call_line) {
    if (line != kNoCode) KLIBErrSetEx(code, file_, line != 0 ? line : call_line);
    return false;
}

Rewrite::Opened Rewrite::open(int access, int call_line) {
    int fd = -1;
    switch (sys::open_regular(path_, access, &fd, &st_)) {
        case sys::Opened::kOk:
            break;
        case sys::Opened::kMissing:
            return Opened::kMissing;
        case sys::Opened::kFailed:
            fail(ERR_OPEN_FAILED, lines_.open, call_line);
            return Opened::kFailed;
        case sys::Opened::kStatFailed:
            fail(ERR_STAT_FAILED, lines_.stat, call_line);
            return Opened::kFailed;
        case sys::Opened::kNotRegular:
            fail(ERR_OPEN_FAILED, lines_.not_regular, call_line);
            return Opened::kFailed;
    }
    source_.reset(sys::stream(fd, "r"));
    if (!source_) {
        fail(errno == ENOMEM ? ERR_OUT_OF_MEMORY : ERR_OPEN_FAILED, lines_.open, call_line);
        return Opened::kFailed;
    }
    return Opened::kOk;
}

bool Rewrite::start(int call_line) {
    return temp_.create(path_, temp_name_) || fail_commit(call_line);
}

bool Rewrite::start_new(mode_t mode, int call_line) {
    new_file_ = true;
    st_ = new_file_owner(mode);
    return start(call_line);
}

bool Rewrite::put(std::string_view bytes, int line, int call_line) {
    if (fwrite(bytes.data(), 1, bytes.size(), out()) == bytes.size()) return true;
    return fail(ERR_WRITE_FAILED, line != 0 ? line : lines_.write, call_line);
}

bool Rewrite::print(int line, const char *format, ...) {
    va_list args;
    va_start(args, format);
    const int written = vfprintf(out(), format, args);
    va_end(args);
    return written >= 0 || fail(ERR_WRITE_FAILED, line != 0 ? line : lines_.write, 0);
}

bool Rewrite::reading_failed(const LineReader &reader, int call_line) {
    const uint32_t code = reader.out_of_memory() ? ERR_OUT_OF_MEMORY : lines_.read_code;
    return fail(code, lines_.read, call_line);
}

// Raises the code and line of the temporary file's failed step; a failed rename raises
// rename_code (a new file that could not be put in place is a write failure).
bool Rewrite::fail_step(const RewriteLines &lines, uint32_t rename_code, int call_line) {
    switch (temp_.failed_step()) {
        case TempFile::Step::kCreate:
            return fail(ERR_OPEN_FAILED, lines.create, call_line);
        case TempFile::Step::kStream:
            return fail(ERR_OPEN_FAILED, lines.stream, call_line);
        case TempFile::Step::kFlush:
            return fail(ERR_WRITE_FAILED, lines.flush, call_line);
        case TempFile::Step::kSync:
        case TempFile::Step::kOwner:
            return fail(ERR_WRITE_FAILED, lines.sync, call_line);
        case TempFile::Step::kClose:
            return fail(ERR_WRITE_FAILED, lines.close, call_line);
        case TempFile::Step::kRename:
            return fail(rename_code, lines.rename, call_line);
        case TempFile::Step::kNone:
            break;
    }
    return false;
}

bool Rewrite::fail_commit(int call_line) {
    return fail_step(lines_, ERR_RENAME_FAILED, call_line);
}

bool Rewrite::fail_create(const CreateLines &lines, int call_line) {
    const RewriteLines as_steps{.create = lines.open,
                                .stream = lines.open,
                                .flush = lines.flush,
                                .sync = lines.sync,
                                .close = lines.close,
                                .rename = lines.close};
    return fail_step(as_steps, ERR_WRITE_FAILED, call_line);
}

bool Rewrite::commit(int call_line) {
    if (out() == nullptr && !start(call_line)) return false;
    source_.reset();
    const bool done = new_file_ ? temp_.commit_new(target()) : temp_.commit(target());
    return done || fail_commit(call_line);
}

bool Rewrite::commit_all(std::initializer_list<Rewrite *> rewrites, int call_line) {
    for (Rewrite *rewrite : rewrites) {
        if (rewrite->out() == nullptr && !rewrite->start(call_line)) return false;
        rewrite->source_.reset();
        if (!rewrite->new_file_ && !rewrite->temp_.prepare(rewrite->target())) {
            return rewrite->fail_commit(call_line);
        }
    }
    for (Rewrite *rewrite : rewrites) {
        const bool done = rewrite->new_file_ ? rewrite->temp_.commit_new(rewrite->target())
                                             : rewrite->temp_.publish();
        if (!done) return rewrite->fail_commit(call_line);
    }
    return true;
}

}  // namespace kova
