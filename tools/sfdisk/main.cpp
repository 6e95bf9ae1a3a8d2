// The appliance's partition tool, run by the library as "/sbin/sfdisk": lists, creates, replaces
// and deletes the four primary entries of an MS-DOS table at exact sector positions, and writes
// the table's signature. libfdisk reads and writes the table; this program decides where a
// partition goes and refuses what does not fit before anything is written.
#include <fcntl.h>
#include <libfdisk.h>
#include <linux/fs.h>
#include <sys/ioctl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cinttypes>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <optional>
#include <string>

#include "options.h"

namespace sfdisk {
namespace {

struct ContextFree {
    void operator()(fdisk_context *cxt) const { fdisk_unref_context(cxt); }
};
struct PartitionFree {
    void operator()(fdisk_partition *pa) const { fdisk_unref_partition(pa); }
};
struct TypeFree {
    void operator()(fdisk_parttype *type) const { fdisk_unref_parttype(type); }
};
using Context = std::unique_ptr<fdisk_context, ContextFree>;
using Partition = std::unique_ptr<fdisk_partition, PartitionFree>;
using PartType = std::unique_ptr<fdisk_parttype, TypeFree>;

constexpr size_t kPrimaries = 4;
// The MS-DOS entry holds start and size in 32 bits.
constexpr uint64_t kMaxSectors = UINT64_C(0xffffffff);

// The sectors one entry covers, inclusive.
struct Extent {
    uint64_t start;
    uint64_t size;
    uint64_t end() const { return start + size - 1; }
};

std::string why(int rc) {
    return strerror(rc < 0 ? -rc : rc);
}

// libfdisk's own messages: warnings always, information unless quiet; it asks nothing (dialogs
// are off), and a question it tries anyway is refused.
int answer(fdisk_context *, fdisk_ask *ask, void *data) {
    const bool quiet = *static_cast<bool *>(data);
    switch (fdisk_ask_get_type(ask)) {
        case FDISK_ASKTYPE_INFO:
            if (!quiet) printf("%s\n", fdisk_ask_print_get_mesg(ask));
            return 0;
        case FDISK_ASKTYPE_WARNX:
            fprintf(stderr, "sfdisk: %s\n", fdisk_ask_print_get_mesg(ask));
            return 0;
        case FDISK_ASKTYPE_WARN:
            fprintf(stderr, "sfdisk: %s: %s\n", fdisk_ask_print_get_mesg(ask),
                    strerror(fdisk_ask_print_get_errno(ask)));
            return 0;
        default:
            return -EINVAL;
    }
}

// Opens the disk (an image file or a block device) with alignment off: starts and sizes are
// used exactly as given, at any sector.
Context open_disk(const Options &o, bool &quiet, bool readonly) {
    Context cxt(fdisk_new_context());
    if (!cxt) {
        complain(o.disk, "out of memory");
        return nullptr;
    }
    fdisk_set_ask(cxt.get(), answer, &quiet);
    fdisk_disable_dialogs(cxt.get(), 1);
    // One-sector grain: libfdisk aligns nothing of what we place.
    fdisk_save_user_grain(cxt.get(), 512);
    const int rc = fdisk_assign_device(cxt.get(), o.disk.c_str(), readonly ? 1 : 0);
    if (rc < 0) {
        // Listing an empty bay lists nothing, quietly: the library walks every bay.
        if (!(readonly && (rc == -ENOENT || rc == -ENXIO)))
            complain(o.disk, "cannot open: " + why(rc));
        return nullptr;
    }
    if (fdisk_get_sector_size(cxt.get()) != 512) {
        complain(o.disk, "sector size " + std::to_string(fdisk_get_sector_size(cxt.get())) +
                             " not supported (512 only)");
        return nullptr;
    }
    return cxt;
}

bool is_dos(fdisk_context *cxt) {
    return fdisk_has_label(cxt) && fdisk_is_label(cxt, DOS);
}

// A non-MS-DOS label is left alone: converting it would destroy its partitions.
bool refuse_other_label(fdisk_context *cxt, const Options &o) {
    if (!fdisk_has_label(cxt) || is_dos(cxt)) return false;
    complain(o.disk, std::string("has a ") + fdisk_label_get_name(fdisk_get_label(cxt, nullptr)) +
                         " partition table, not MS-DOS");
    return true;
}

bool make_dos_label(fdisk_context *cxt, const Options &o) {
    const int rc = fdisk_create_disklabel(cxt, "dos");
    if (rc < 0) {
        complain(o.disk, "cannot create an MS-DOS table: " + why(rc));
        return false;
    }
    return true;
}

// Entry partno (0-based) when it is in use.
std::optional<Extent> entry(fdisk_context *cxt, size_t partno) {
    fdisk_partition *raw = nullptr;
    if (fdisk_get_partition(cxt, partno, &raw) < 0) return std::nullopt;
    Partition pa(raw);
    if (!fdisk_partition_is_used(pa.get()) || !fdisk_partition_has_start(pa.get()) ||
        !fdisk_partition_has_size(pa.get()) || fdisk_partition_get_size(pa.get()) == 0)
        return std::nullopt;
    return Extent{fdisk_partition_get_start(pa.get()), fdisk_partition_get_size(pa.get())};
}

unsigned entry_type(fdisk_context *cxt, size_t partno) {
    fdisk_partition *raw = nullptr;
    if (fdisk_get_partition(cxt, partno, &raw) < 0) return 0;
    Partition pa(raw);
    const fdisk_parttype *type = fdisk_partition_get_type(pa.get());
    return type != nullptr ? fdisk_parttype_get_code(type) : 0;
}

// "NAME START END SECTORS TYPE": short, as the library reads only the first 64 characters, so
// the partition's name goes without its directory (a disk deep in a sandbox stays readable).
void print_entry(fdisk_context *cxt, const Options &o, size_t partno, const Extent &e) {
    std::unique_ptr<char, decltype(&free)> name(fdisk_partname(o.disk.c_str(), partno + 1), free);
    const char *full = name ? name.get() : o.disk.c_str();
    const char *slash = strrchr(full, '/');
    printf("%s %" PRIu64 " %" PRIu64 " %" PRIu64 " %x\n", slash != nullptr ? slash + 1 : full,
           e.start, e.end(), e.size, entry_type(cxt, partno));
}

int list(const Options &o) {
    bool quiet = true;
    Context cxt = open_disk(o, quiet, true);
    if (!cxt) return 1;
    if (!is_dos(cxt.get())) {
        if (o.partno == 0) complain(o.disk, "no MS-DOS partition table");
        return 1;
    }
    if (o.partno != 0) {
        const auto e = entry(cxt.get(), o.partno - 1);
        if (!e) return 1;
        print_entry(cxt.get(), o, o.partno - 1, *e);
        return 0;
    }
    for (size_t i = 0; i < fdisk_get_npartitions(cxt.get()); ++i) {
        if (const auto e = entry(cxt.get(), i)) print_entry(cxt.get(), o, i, *e);
    }
    return 0;
}

// Asks the kernel to read the new table of a block device; busy partitions keep the old view
// until the next boot, which is the caller's business, so EBUSY is not worth a word.
int reread(const Options &o) {
    struct stat st {};
    if (stat(o.disk.c_str(), &st) != 0 || !S_ISBLK(st.st_mode)) return 0;
    const int fd = open(o.disk.c_str(), O_RDONLY | O_CLOEXEC);
    if (fd < 0) {
        complain(o.disk, std::string("cannot re-read the partition table: ") + strerror(errno));
        return 1;
    }
    const int rc = ioctl(fd, BLKRRPART);
    const int err = errno;
    close(fd);
    if (rc == 0 || err == EBUSY) return 0;
    complain(o.disk, std::string("cannot re-read the partition table: ") + strerror(err));
    return 1;
}

// Writes the table, closes the disk (with fsync) and tells the kernel.
int commit(Context cxt, const Options &o) {
    int rc = fdisk_write_disklabel(cxt.get());
    if (rc < 0) {
        complain(o.disk, "cannot write the partition table: " + why(rc));
        return 1;
    }
    rc = fdisk_deassign_device(cxt.get(), 0);
    if (rc < 0) {
        complain(o.disk, "cannot flush the partition table: " + why(rc));
        return 1;
    }
    cxt.reset();
    return o.reread ? reread(o) : 0;
}

int signature(const Options &o) {
    bool quiet = o.quiet;
    Context cxt = open_disk(o, quiet, false);
    if (!cxt) return 1;
    if (refuse_other_label(cxt.get(), o)) return 1;
    // libfdisk recognises an MS-DOS table by its signature: one it found has it already, and
    // writing it back keeps the entries as they are.
    if (!is_dos(cxt.get()) && !make_dos_label(cxt.get(), o)) return 1;
    return commit(std::move(cxt), o);
}

std::string extent_text(const Extent &e) {
    return "sectors " + std::to_string(e.start) + "-" + std::to_string(e.end());
}

// Where the new entry goes: -o exactly, or GAP sectors after the end of the highest-numbered
// entry below it (after sector 0 when there is none). A size of -1 runs to the last sector.
std::optional<Extent> placement(fdisk_context *cxt, const Options &o) {
    const std::string what = "partition " + std::to_string(o.partno);
    uint64_t start = static_cast<uint64_t>(o.gap);
    if (o.offset >= 0) {
        start = static_cast<uint64_t>(o.offset);
    } else {
        for (size_t i = o.partno - 1; i-- > 0;) {
            if (const auto prev = entry(cxt, i)) {
                start = prev->end() + 1 + static_cast<uint64_t>(o.gap);
                break;
            }
        }
    }
    const uint64_t last = fdisk_get_nsectors(cxt) - 1;
    if (start < 1 || start > last) {
        complain(what, "start sector " + std::to_string(start) + " is outside the disk (1-" +
                           std::to_string(last) + ")");
        return std::nullopt;
    }
    const uint64_t size = o.size < 0 ? last - start + 1 : static_cast<uint64_t>(o.size);
    const Extent e{start, size};
    if (size > last - start + 1) {
        complain(what, extent_text(e) + " do not fit on the disk (last sector " +
                           std::to_string(last) + ")");
        return std::nullopt;
    }
    if (start > kMaxSectors || size > kMaxSectors) {
        complain(what, extent_text(e) + " are beyond what an MS-DOS table can hold");
        return std::nullopt;
    }
    for (size_t i = 0; i < kPrimaries; ++i) {
        const auto other = entry(cxt, i);
        if (i + 1 == static_cast<size_t>(o.partno) || !other) continue;
        if (e.start <= other->end() && other->start <= e.end()) {
            complain(what, extent_text(e) + " overlap partition " + std::to_string(i + 1) + " (" +
                               extent_text(*other) + ")");
            return std::nullopt;
        }
    }
    return e;
}

PartType part_type(fdisk_context *cxt, unsigned code) {
    fdisk_parttype *known = fdisk_label_get_parttype_from_code(fdisk_get_label(cxt, nullptr), code);
    // A copy of the label's own entry, or a type of its own for a code it does not know; the
    // partition takes its own reference.
    if (known != nullptr) return PartType(fdisk_copy_parttype(known));
    return PartType(fdisk_new_unknown_parttype(code, nullptr));
}

bool add_entry(fdisk_context *cxt, const Options &o, const Extent &e) {
    const std::string what = "partition " + std::to_string(o.partno);
    Partition pa(fdisk_new_partition());
    PartType type = part_type(cxt, o.type);
    if (!pa || !type) {
        complain(what, "out of memory");
        return false;
    }
    fdisk_partition_set_partno(pa.get(), o.partno - 1);
    fdisk_partition_set_start(pa.get(), e.start);
    fdisk_partition_set_size(pa.get(), e.size);
    fdisk_partition_size_explicit(pa.get(), 1);
    fdisk_partition_set_type(pa.get(), type.get());
    size_t got = 0;
    const int rc = fdisk_add_partition(cxt, pa.get(), &got);
    if (rc < 0) {
        complain(what, "cannot create: " + why(rc));
        return false;
    }
    // libfdisk has its own ideas about alignment; make sure none of them crept in.
    const auto placed = entry(cxt, o.partno - 1);
    if (got != static_cast<size_t>(o.partno - 1) || !placed || placed->start != e.start ||
        placed->size != e.size || entry_type(cxt, o.partno - 1) != o.type) {
        complain(what, "libfdisk did not place it as asked (" + extent_text(e) + ")");
        return false;
    }
    return true;
}

int change(const Options &o) {
    bool quiet = o.quiet;
    Context cxt = open_disk(o, quiet, false);
    if (!cxt) return 1;
    if (refuse_other_label(cxt.get(), o)) return 1;
    const bool empty_entry = (o.size_given && o.size == 0) || (o.type_given && o.type == 0);
    if (empty_entry) {
        // An entry that is not there is already deleted.
        if (!is_dos(cxt.get()) || !entry(cxt.get(), o.partno - 1)) return 0;
        const int rc = fdisk_delete_partition(cxt.get(), o.partno - 1);
        if (rc < 0) {
            complain("partition " + std::to_string(o.partno), "cannot delete: " + why(rc));
            return 1;
        }
        return commit(std::move(cxt), o);
    }
    if (!is_dos(cxt.get()) && !make_dos_label(cxt.get(), o)) return 1;
    // After the label exists: creating one resets the first usable sector to its default.
    fdisk_set_first_lba(cxt.get(), 1);
    const auto e = placement(cxt.get(), o);
    if (!e) return 1;
    if (entry(cxt.get(), o.partno - 1)) {
        const int rc = fdisk_delete_partition(cxt.get(), o.partno - 1);
        if (rc < 0) {
            complain("partition " + std::to_string(o.partno), "cannot replace: " + why(rc));
            return 1;
        }
    }
    if (!add_entry(cxt.get(), o, *e)) return 1;
    return commit(std::move(cxt), o);
}

}  // namespace
}  // namespace sfdisk

int main(int argc, char **argv) {
    using namespace sfdisk;
    Options options;
    if (!parse_options(argc, argv, options)) return 1;
    switch (options.action) {
        case Action::kHelp:
            print_usage();
            return 0;
        case Action::kList:
            return list(options);
        case Action::kSignature:
            return signature(options);
        case Action::kChange:
            return change(options);
    }
    return 1;
}
