// Import: the file's blocks in the order they come, each chosen one copied into the scratch
// file "/tmp/importprocess" for its importer, with the network services stopped meanwhile.
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>

#include "core/endian.h"
#include "core/owners.h"
#include "core/root.h"
#include "kovasdk/log.h"
#include "sysbkp/sysbkp_internal.h"

namespace kova::sysbkp {
namespace {

constexpr const char *kFunction = "KOVASysbkpImport";
constexpr size_t kPiece = 1024;

struct Report {
    PFN_SYSBKP_REPORT fn;
    void *context;
    void operator()(const SYSBKP_ROUTINE &row, int state) const {
        if (fn == nullptr) return;
        const char *count = gpshSysbkpImported != nullptr
                                ? SzKLIBSzHashGetValue(gpshSysbkpImported, row.szDesc)
                                : nullptr;
        fn(context, row.dwBit, row.szDesc, state, count != nullptr ? atoi(count) : 0);
    }
};

bool read_exact(int fd, void *buffer, size_t size) {
    size_t done = 0;
    while (done < size) {
        const ssize_t n = read(fd, static_cast<char *>(buffer) + done, size - done);
        if (n < 0 && errno == EINTR) continue;
        if (n <= 0) return false;
        done += static_cast<size_t>(n);
    }
    return true;
}

bool write_exact(int fd, const void *buffer, size_t size) {
    return write(fd, buffer, size) == static_cast<ssize_t>(size);
}

// The body into the scratch file, which then holds exactly that body, positioned at its start.
bool copy_body(int in, int scratch, uint32_t size) {
    char piece[kPiece];
    if (ftruncate(scratch, 0) != 0 || lseek(scratch, 0, SEEK_SET) != 0) {
        fail_in(kFunction, ERR_WRITE_FAILED, Site(), "%s(%d): write fdHandle failed 1");
        return false;
    }
    for (uint32_t left = size / kPiece; left > 0; --left) {
        if (!read_exact(in, piece, kPiece)) {
            fail_in(kFunction, ERR_READ_FAILED, Site(), "%s(%d): read fdin failed 1");
            return false;
        }
        if (!write_exact(scratch, piece, kPiece)) {
            fail_in(kFunction, ERR_WRITE_FAILED, Site(), "%s(%d): write fdHandle failed 1");
            return false;
        }
    }
    const size_t rest = size % kPiece;
    if (rest > 0 && !read_exact(in, piece, rest)) {
        fail_in(kFunction, ERR_READ_FAILED, Site(), "%s(%d): read fdin failed 2");
        return false;
    }
    if (rest > 0 && !write_exact(scratch, piece, rest)) {
        fail_in(kFunction, ERR_WRITE_FAILED, Site(), "%s(%d): write fdHandle failed 2");
        return false;
    }
    if (lseek(scratch, 0, SEEK_SET) != 0) {
        fail_in(kFunction, ERR_SEEK_FAILED, Site(), "%s(%d): seek fdHandle to begining error.");
        return false;
    }
    return true;
}

// Seeking past the end would succeed and read as a clean end: a body cut short is refused.
bool skip_body(int in, uint32_t size) {
    struct stat st {};
    const off_t at = lseek(in, 0, SEEK_CUR);
    if (at < 0 || fstat(in, &st) != 0 || at + static_cast<off_t>(size) > st.st_size ||
        lseek(in, size, SEEK_CUR) < 0) {
        fail_in(kFunction, ERR_SEEK_FAILED, Site(), "%s(%d): fail to skip ");
        return false;
    }
    return true;
}

class Import {
  public:
    Import(uint32_t mask, int option, Report report)
        : mask_(mask), option_(option), report_(report) {}
    ~Import() { finish(); }

    int run(const char *path);

  private:
    bool open_files(const char *path);
    bool read_head();
    bool read_blocks();
    void finish();

    uint32_t mask_;
    int option_;
    Report report_;
    RootedPath marker_{KOVA_SYSBKP_IMPORT_MARKER};
    UniqueFd in_;
    UniqueFd scratch_;
    uint32_t result_ = KOVA_SYSBKP_ALL;
    bool section_failed_ = false;
    bool stopped_ = false;
    bool finished_ = false;
};

bool Import::open_files(const char *path) {
    in_.reset(open(path, O_RDONLY | O_CLOEXEC));
    if (!in_) {
        fail_in(kFunction, ERR_OPEN_FAILED, Site(),
                "%s(%d): fail to open import file [%s], errno = %d ", path, errno);
        return false;
    }
    scratch_.reset(
        open(marker_.c_str(), O_RDWR | O_CREAT | O_TRUNC | O_NOFOLLOW | O_CLOEXEC, 0600));
    if (!scratch_) {
        fail_in(kFunction, ERR_OPEN_FAILED, Site(),
                "%s(%d): fail to open handle file [%s], errno = %d ", marker_.c_str(), errno);
        return false;
    }
    return true;
}

bool Import::read_head() {
    char magic[4] = {};
    const ssize_t n = read(in_.get(), magic, sizeof magic);
    if (n != sizeof magic) {
        fail_in(kFunction, ERR_READ_FAILED, Site(), "%s(%d): fail to read magic %d",
                static_cast<int>(n));
        return false;
    }
    if (memcmp(magic, KOVA_SYSBKP_MAGIC, 4) != 0) {
        fail_in(kFunction, ERR_FORMAT_ERROR, Site(), "%s(%d): wrong magic [%.4s]", magic);
        return false;
    }
    stopped_ = true;
    if (KOVANetService(KOVA_SERVICE_ALL_BUT_WEB, KOVA_SERVICE_STOP) != 0) {
        log_at(LOG_ERR, Site(),
               "%s:%d KOVANetService() failed!! services=[%d], action=[ACTION_STOP]",
               static_cast<int>(KOVA_SERVICE_ALL_BUT_WEB));
        return false;
    }
    log(LOG_INFO, "%s: network services stopped for the import", kFunction);
    uint32_t word = 0;
    int got = KOVASysbkpRawIntRead(in_.get(), &word, 4);
    if (got != 4) {
        fail_in(kFunction, ERR_READ_FAILED, Site(), "%s(%d): fail to read category %d", got);
        return false;
    }
    if (word != KOVA_SYSBKP_CATEGORY) {
        fail_in(kFunction, ERR_FORMAT_ERROR, Site(), "%s(%d): wrong category [%ld]",
                static_cast<long>(word));
        return false;
    }
    got = KOVASysbkpRawIntRead(in_.get(), &word, 4);  // the content mask: informative only
    if (got != 4) {
        fail_in(kFunction, ERR_READ_FAILED, Site(), "%s(%d): fail to read option %d", got);
        return false;
    }
    return true;
}

// True when the file was read to its end.
bool Import::read_blocks() {
    for (;;) {
        uint32_t head[3];
        unsigned char probe[KOVA_SYSBKP_BLOCK_HEADER_SIZE];
        if (!read_exact(in_.get(), probe, sizeof probe)) return true;  // fewer than 12: the end
        for (int i = 0; i < 3; ++i)
            head[i] = load_be32(probe + 4 * i);
        const int idx = KOVASysbkpIGetIdx(head[0]);
        if (idx < 0) {
            fail_in(kFunction, ERR_FORMAT_ERROR, Site(), "%s(%d): unknown command [%ld]",
                    static_cast<long>(head[0]));
            return false;
        }
        const SYSBKP_ROUTINE &row = grgSysRoutine[idx];
        if ((head[0] & mask_) == 0) {
            if (!skip_body(in_.get(), head[2])) return false;
            report_(row, KOVA_SYSBKP_SKIPPED);
            continue;
        }
        if (!copy_body(in_.get(), scratch_.get(), head[2])) return false;
        if (row.pfnImport(scratch_.get(), static_cast<int>(head[1]), option_) < 0) {
            log_at(LOG_ERR, Site(__LINE__, kFunction), "%s(%d): Failed to restore %s\n",
                   row.szDesc);
            result_ &= ~row.dwBit;
            section_failed_ = true;  // also a section outside the mask of all (0x00800000)
            report_(row, KOVA_SYSBKP_FAILED);
        } else {
            report_(row, KOVA_SYSBKP_RESTORED);
        }
    }
}

void Import::finish() {
    if (finished_) return;
    finished_ = true;
    in_.reset();
    scratch_.reset();
    if (unlink(marker_.c_str()) != 0 && errno != ENOENT) {
        log(LOG_ERR, "unlink %s failed", marker_.c_str());
    }
    if (stopped_ && KOVANetService(KOVA_SERVICE_ALL_BUT_WEB, KOVA_SERVICE_START) != 0) {
        log_at(LOG_ERR, Site(),
               "%s:%d KOVANetService() failed!! services=[%d], action=[ACTION_START]",
               static_cast<int>(KOVA_SERVICE_ALL_BUT_WEB));
    }
    KOVASysbkpFinishImport(-1, KOVA_SYSBKP_VERSION, option_);
}

int Import::run(const char *path) {
    struct stat st {};
    if (lstat(marker_.c_str(), &st) == 0) {
        // The marker goes at the end of this call in every case, this one too (deliberate: a
        // marker left by an import that died must not block every later one).
        fail(ERR_FILE_EXISTS, Site(), "%s:%d Another system configuration import task is running.");
        finish();
        return -1;
    }
    const bool complete = open_files(path) && read_head() && read_blocks();
    finish();
    if (!complete) return -1;
    if (result_ != KOVA_SYSBKP_ALL || section_failed_) return fail(ERR_OP_FAILURE);
    KOVALogSet1(KOVA_LOG_CLASS_SYS, KOVA_LOG_TYPE_INFO,
                option_ == 0 ? KOVA_SYSBKP_EVENT_IMPORTED : KOVA_SYSBKP_EVENT_IMPORTED_OPTION, "",
                "", "", "");
    return 0;
}

}  // namespace
}  // namespace kova::sysbkp

int KOVASysbkpImportReport(const char *szPath, uint32_t dwMask, int option,
                           PFN_SYSBKP_REPORT pfnReport, void *pContext) {
    using namespace kova;
    using kova::sysbkp::fail_in;
    if (szPath == nullptr) {
        return fail_in(__func__, ERR_BAD_PARAMETERS, Site(), "%s(%d): parameter error");
    }
    sysbkp::Import import(dwMask, option, {pfnReport, pContext});
    return import.run(szPath);
}

int KOVASysbkpImport(const char *szPath, uint32_t dwMask, int option) {
    return KOVASysbkpImportReport(szPath, dwMask, option, nullptr, nullptr);
}
