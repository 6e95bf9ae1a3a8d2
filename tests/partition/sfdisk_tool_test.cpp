// The partition tool behind "/sbin/sfdisk", run as the library runs it from a sandbox root: the
// appliance's layouts placed exactly on sparse images, replacing and deleting entries, the
// signature, its refusals, and the kernel's view of a loop device after a re-read.
#include <fcntl.h>
#include <linux/loop.h>
#include <sys/ioctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <memory>
#include <optional>
#include <sstream>
#include <string>
#include <vector>

#include "support/sandbox.h"

namespace kova::test {
namespace {

constexpr uint64_t k4GiB = uint64_t{4} << 30;
constexpr uint64_t kSectors4GiB = k4GiB / 512;

struct Result {
    std::string out;
    std::string err;
    int status;
};

// One line of "sfdisk -l -uS -N#": device, start, end, sectors, type.
struct Entry {
    std::string device;
    uint64_t start = 0;
    uint64_t end = 0;
    uint64_t size = 0;
    std::string type;
};

// The entry as the MS-DOS table itself holds it (little-endian fields of the 16-byte slot), to
// check the tool against the bytes and not only against itself.
struct RawEntry {
    unsigned type;
    uint32_t start;
    uint32_t size;
    bool operator==(const RawEntry &) const = default;
};

uint32_t le32(const std::string &bytes, size_t at) {
    uint32_t value = 0;
    for (size_t i = 0; i < 4; ++i)
        value |= uint32_t{static_cast<unsigned char>(bytes[at + i])} << (8 * i);
    return value;
}

class SfdiskTool : public SandboxTest {
  protected:
    // Runs the tool through the sandbox's /sbin/sfdisk, as the library's shell command does,
    // in the sandbox root: images go by short relative names there, so that the lines stay as
    // short as they are for /dev/sda.
    Result sfdisk(const std::string &args) {
        const std::string err_file = path("/tmp/sfdisk.err");
        const std::string command =
            "cd " + root() + " && " + path("/sbin/sfdisk") + " " + args + " 2>" + err_file;
        FILE *pipe = popen(command.c_str(), "r");
        Result result{"", "", -1};
        for (int c; pipe != nullptr && (c = fgetc(pipe)) != EOF;)
            result.out += static_cast<char>(c);
        const int status = pipe != nullptr ? pclose(pipe) : -1;
        result.status = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
        result.err = read_file(err_file);
        return result;
    }

    // A sparse image file of the given size in the sandbox root; its name there.
    std::string image(const std::string &name, uint64_t bytes) {
        write_file(on_host(name), "");
        std::filesystem::resize_file(on_host(name), bytes);
        return name;
    }
    std::string on_host(const std::string &disk) const {
        return disk.starts_with("/") ? disk : path("/" + disk);
    }

    std::optional<Entry> entry(const std::string &disk, int partno) {
        const Result r = sfdisk("-l -uS -N" + std::to_string(partno) + " " + disk);
        if (r.status != 0) {
            EXPECT_EQ("", r.out) << "a missing partition prints nothing";
            EXPECT_EQ(1, r.status) << r.err;
            return std::nullopt;
        }
        EXPECT_EQ(1, std::count(r.out.begin(), r.out.end(), '\n')) << r.out;
        EXPECT_LE(r.out.find('\n'), 64u) << "the library reads 64 characters: " << r.out;
        Entry e;
        std::istringstream words(r.out);
        words >> e.device >> e.start >> e.end >> e.size >> e.type;
        EXPECT_FALSE(words.fail()) << r.out;
        return e;
    }

    void expect_entry(const std::string &disk, int partno, uint64_t start, uint64_t size,
                      const std::string &type = "fd") {
        SCOPED_TRACE("partition " + std::to_string(partno));
        const auto e = entry(disk, partno);
        ASSERT_TRUE(e.has_value());
        EXPECT_EQ(start, e->start);
        EXPECT_EQ(size, e->size);
        EXPECT_EQ(start + size - 1, e->end);
        EXPECT_EQ(type, e->type);
    }

    void run_ok(const std::string &args) {
        const Result r = sfdisk(args);
        EXPECT_EQ(0, r.status) << args << ": " << r.err;
        EXPECT_EQ("", r.err) << args;
    }

    // The first sector, where the MS-DOS table lives (the images are sparse but large).
    std::string sector0(const std::string &disk) const {
        std::string mbr(512, '\0');
        FILE *f = fopen(on_host(disk).c_str(), "rb");
        EXPECT_NE(nullptr, f) << disk;
        if (f != nullptr) {
            EXPECT_EQ(512u, fread(mbr.data(), 1, 512, f));
            fclose(f);
        }
        return mbr;
    }

    RawEntry raw_entry(const std::string &disk, int partno) {
        const std::string mbr = sector0(disk);
        const size_t slot = 446 + 16 * static_cast<size_t>(partno - 1);
        return {static_cast<unsigned char>(mbr[slot + 4]), le32(mbr, slot + 8),
                le32(mbr, slot + 12)};
    }

    // The appliance's two system layouts, made as the library makes them.
    void make_layout_1(const std::string &disk, const std::string &extra = "--no-reread") {
        run_ok("-N1 -uS -q -f -j63 -z1574307 -tfd -F " + extra + " " + disk);
        run_ok("-N2 -uS -q -f -j0 -z787185 -tfd -F " + extra + " " + disk);
        run_ok("-N3 -uS -q -f -j273105 -z-1 -tfd -F " + extra + " " + disk);
    }
};

TEST_F(SfdiskTool, LayoutsPlacedExactlyOnA4GiBImage) {
    const std::string disk = image("disk.img", k4GiB);
    make_layout_1(disk);
    expect_entry(disk, 1, 63, 1574307);
    expect_entry(disk, 2, 1574370, 787185);
    expect_entry(disk, 3, 2634660, kSectors4GiB - 2634660);
    EXPECT_FALSE(entry(disk, 4).has_value());
    EXPECT_EQ(disk + "3", entry(disk, 3)->device);
    // What the table itself holds, byte for byte.
    EXPECT_EQ((RawEntry{0xfd, 63, 1574307}), raw_entry(disk, 1));
    EXPECT_EQ((RawEntry{0xfd, 1574370, 787185}), raw_entry(disk, 2));
    EXPECT_EQ((RawEntry{0xfd, 2634660, kSectors4GiB - 2634660}), raw_entry(disk, 3));
    EXPECT_EQ((RawEntry{0, 0, 0}), raw_entry(disk, 4));
    const std::string mbr = sector0(disk);
    EXPECT_EQ("\x55\xAA", mbr.substr(510, 2));

    // Layout 2 over layout 1, in the separate forms: partition 1 cannot grow over 2 while 2 is
    // there, so 3 and 2 go first.
    EXPECT_EQ(1, sfdisk("-N 1 -u S -q -f -j 63 -z 4980087 -t fd -F " + disk).status);
    run_ok("-N3 -q -o0 -z0 -t0 -F -D --no-reread " + disk);
    run_ok("-N2 -q -o0 -z0 -t0 -F -D --no-reread " + disk);
    run_ok("-N 1 -u S -q -f -j 63 -z 4980087 -t fd -F --no-reread " + disk);
    run_ok("-N 2 -u S -q -f -j 0 -z 1044225 -t fd -F --no-reread " + disk);
    run_ok("-N 3 -u S -q -f -j 257040 -z -1 -t fd -F --no-reread " + disk);
    expect_entry(disk, 1, 63, 4980087);
    expect_entry(disk, 2, 4980150, 1044225);
    expect_entry(disk, 3, 6281415, kSectors4GiB - 6281415);
    EXPECT_EQ((RawEntry{0xfd, 6281415, kSectors4GiB - 6281415}), raw_entry(disk, 3));
    // Replacing keeps the disk: same identifier and boot area.
    EXPECT_EQ(mbr.substr(0, 446), sector0(disk).substr(0, 446));
}

TEST_F(SfdiskTool, PlacementOptions) {
    const std::string disk = image("small.img", 64 << 20);  // 131072 sectors
    // The first partition starts GAP sectors after sector 0; the type is any byte.
    run_ok("-N2 -q -j100 -z50 -t83 " + disk);
    expect_entry(disk, 2, 100, 50, "83");
    // The preceding partition is the highest-numbered one below, not the nearest on disk.
    run_ok("-N4 -q -j10 -z20 -t0x7 " + disk);
    expect_entry(disk, 4, 160, 20, "7");
    run_ok("-N3 -q -o1000 -z-1 -tc " + disk);
    expect_entry(disk, 3, 1000, 131072 - 1000, "c");
    // Partition 1 below 2 and 4: gap after sector 0 again, filling the hole up to 100.
    run_ok("-N1 -q -j1 -z99 -tfd " + disk);
    expect_entry(disk, 1, 1, 99);
    // Without -q the tool says what it did, on standard output.
    const Result loud = sfdisk("-N1 -j1 -z98 -tfd " + disk);
    EXPECT_EQ(0, loud.status);
    EXPECT_NE("", loud.out);
    // -l without -N lists every entry, in order.
    const Result all = sfdisk("-l -uS " + disk);
    EXPECT_EQ(0, all.status);
    EXPECT_EQ(disk + "1 1 98 98 fd\n" + disk + "2 100 149 50 83\n" + disk +
                  "3 1000 131071 130072 c\n" + disk + "4 160 179 20 7\n",
              all.out);
    const Result help = sfdisk("--help");
    EXPECT_EQ(0, help.status);
    EXPECT_NE(std::string::npos, help.out.find("usage: sfdisk")) << help.out;
}

TEST_F(SfdiskTool, DeletingEntries) {
    const std::string disk = image("disk.img", k4GiB);
    make_layout_1(disk);
    const std::string before = sector0(disk);
    run_ok("-N2 -q -f --no-reread -o0 -z0 -t0 -F -D " + disk);
    EXPECT_FALSE(entry(disk, 2).has_value());
    EXPECT_EQ((RawEntry{0, 0, 0}), raw_entry(disk, 2));
    expect_entry(disk, 1, 63, 1574307);
    expect_entry(disk, 3, 2634660, kSectors4GiB - 2634660);
    // Only slot 2 changed.
    const std::string after = sector0(disk);
    EXPECT_EQ(before.substr(0, 462), after.substr(0, 462));
    EXPECT_EQ(before.substr(478), after.substr(478));

    // A missing entry is already deleted: success, nothing written; likewise on a blank disk.
    run_ok("-N2 -q -f --no-reread -o0 -z0 -t0 -F -D " + disk);
    run_ok("-N 4 -q -f --no-reread -o 0 -z 0 -t 0 -F -D " + disk);
    EXPECT_EQ(after, sector0(disk));
    const std::string blank = image("blank.img", 1 << 20);
    run_ok("-N1 -q -f --no-reread -o0 -z0 -t0 -F -D " + blank);
    EXPECT_EQ(std::string(1 << 20, '\0'), read_file(on_host(blank)));

    // The freed space takes a new partition 2 again.
    run_ok("-N2 -q -j0 -z1000 -t83 --no-reread " + disk);
    expect_entry(disk, 2, 1574370, 1000, "83");
}

TEST_F(SfdiskTool, SignatureOnBlankAndLabelledDisks) {
    const std::string disk = image("blank.img", 1 << 20);
    run_ok("-M1 " + disk);
    const std::string mbr = sector0(disk);
    EXPECT_EQ("\x55\xAA", mbr.substr(510, 2));
    EXPECT_EQ(std::string(64, '\0'), mbr.substr(446, 64)) << "an empty table";
    const Result list = sfdisk("-l -uS " + disk);
    EXPECT_EQ(0, list.status);
    EXPECT_EQ("", list.out);

    // On a labelled disk the entries stay as they are.
    run_ok("-N1 -q -j1024 -z100 -tfd " + disk);
    const std::string labelled = sector0(disk);
    run_ok("-M 1 " + disk);
    EXPECT_EQ(labelled, sector0(disk));
    expect_entry(disk, 1, 1024, 100);
}

TEST_F(SfdiskTool, RefusalsLeaveTheImageAlone) {
    const std::string disk = image("disk.img", 16 << 20);  // 32768 sectors
    run_ok("-N1 -q -j63 -z1000 -tfd " + disk);
    run_ok("-N3 -q -j0 -z1000 -tfd " + disk);  // 1063..2062
    const std::string before = read_file(on_host(disk));
    const std::string blank = image("blank.img", 16 << 20);
    const std::string empty = read_file(on_host(blank));
    struct Case {
        const char *args;
        const char *says;
        bool on_blank;  // the same refusal on a blank image
    };
    const Case cases[] = {
        {"-N1 -q -zabc -tfd DISK", "-z abc: bad number", true},
        {"-N1 -q -z 12x -tfd DISK", "bad number", true},
        {"-N1 -q -j -5 -tfd DISK", "bad number", true},
        {"-N5 -q -j0 -z10 -tfd DISK", "-N 5: partition number", true},
        {"-N 0 -q -j0 -z10 -tfd DISK", "partition number", true},
        {"-N1 -t 1ff DISK", "bad type", true},
        {"-N1 -tzz DISK", "bad type", true},
        {"-N1 -uM -z10 DISK", "sector units", true},
        {"-M2 DISK", "-M 2", true},
        {"-N1 -x DISK", "-x: unknown option", true},
        {"--bogus DISK", "--bogus: unknown option", true},
        {"-N1 -z10 -j", "-j: needs a value", false},
        {"-N1 -z10", "DISK: missing", false},
        {"-N1 -z10 DISK DISK", "unexpected argument", true},
        {"-q DISK", "nothing to do", true},
        // 2 would start at 1063, inside 3; 2 may not run over 3 either.
        {"-N2 -q -j0 -z10 -tfd DISK", "overlap partition 3", false},
        {"-N2 -q -o1100 -z100 -tfd DISK", "overlap partition 3", false},
        {"-N4 -q -o100 -z10 -tfd DISK", "overlap partition 1", false},
        {"-N4 -q -o3000 -z40000 -tfd DISK", "do not fit", true},
        {"-N4 -q -j40000 -z10 -tfd DISK", "outside the disk", true},
        {"-N1 -q -j0 -z10 -tfd DISK", "outside the disk", true},  // sector 0 holds the table
    };
    for (const Case &c : cases) {
        for (const std::string &target : {disk, blank}) {
            if (target == blank && !c.on_blank) continue;
            std::string args = c.args;
            for (size_t at; (at = args.find("DISK")) != std::string::npos;)
                args.replace(at, 4, target);
            const Result r = sfdisk(args);
            SCOPED_TRACE(args);
            EXPECT_EQ(1, r.status);
            EXPECT_TRUE(r.err.starts_with("sfdisk: ")) << r.err;
            EXPECT_NE(std::string::npos, r.err.find(c.says)) << r.err;
            EXPECT_EQ(1, std::count(r.err.begin(), r.err.end(), '\n')) << r.err;
        }
    }
    EXPECT_TRUE(read_file(on_host(disk)) == before) << "a refusal changed the image";
    EXPECT_TRUE(read_file(on_host(blank)) == empty) << "a refusal labelled the blank image";

    const Result missing = sfdisk("-N1 -q -j63 -z10 -tfd " + path("/nodisk.img"));
    EXPECT_EQ(1, missing.status);
    EXPECT_NE(std::string::npos, missing.err.find("nodisk.img: cannot open")) << missing.err;
    EXPECT_FALSE(file_exists(path("/nodisk.img")));
    EXPECT_EQ(1, sfdisk("-l -uS -N1 " + path("/nodisk.img")).status);
    // Listing a partition of a blank disk: nothing, quietly.
    const Result none = sfdisk("-l -uS -N1 " + blank);
    EXPECT_EQ(1, none.status);
    EXPECT_EQ("", none.out + none.err);
}

// The same layout on a loop device with partition scanning: the tool's view, the bytes, and the
// kernel's view after the tool's re-read.
// A loop device attached over a file, detached when it goes.
class LoopDevice {
  public:
    // Attaches backing to a free loop device; a reason in why_not when that cannot be done here.
    LoopDevice(const std::string &backing, bool partscan, std::string &why_not) {
        const int control = open("/dev/loop-control", O_RDWR | O_CLOEXEC);
        if (control < 0) {
            why_not = std::string("no /dev/loop-control here: ") + strerror(errno);
            return;
        }
        const int n = ioctl(control, LOOP_CTL_GET_FREE);
        close(control);
        if (n < 0) {
            why_not = "no free loop device";
            return;
        }
        name_ = "loop" + std::to_string(n);
        fd_ = open(device().c_str(), O_RDWR | O_CLOEXEC);
        const int file = open(backing.c_str(), O_RDWR | O_CLOEXEC);
        if (fd_ < 0 || file < 0 || ioctl(fd_, LOOP_SET_FD, file) != 0) {
            why_not = "cannot attach " + device() + ": " + strerror(errno);
            if (file >= 0) close(file);
            return;
        }
        close(file);
        attached_ = true;
        loop_info64 info{};
        info.lo_flags = partscan ? LO_FLAGS_PARTSCAN : 0;
        if (ioctl(fd_, LOOP_SET_STATUS64, &info) != 0)
            why_not = "cannot set up " + device() + ": " + strerror(errno);
    }
    ~LoopDevice() {
        if (attached_) ioctl(fd_, LOOP_CLR_FD, 0);
        if (fd_ >= 0) close(fd_);
    }
    LoopDevice(const LoopDevice &) = delete;
    LoopDevice &operator=(const LoopDevice &) = delete;

    const std::string &name() const { return name_; }
    std::string device() const { return "/dev/" + name_; }

  private:
    std::string name_;
    int fd_ = -1;
    bool attached_ = false;
};

class SfdiskLoop : public SfdiskTool {
  protected:
    void SetUp() override {
        if (geteuid() != 0) GTEST_SKIP() << "needs root for a loop device";
        backing_ = on_host(image("disk.img", k4GiB));
        std::string why_not;
        loop_ = std::make_unique<LoopDevice>(backing_, true, why_not);
        if (!why_not.empty()) GTEST_SKIP() << why_not;
        name_ = loop_->name();
    }

    // What the kernel reports of partition partno, or "" when it has none.
    std::string kernel(int partno, const std::string &field) const {
        const std::string file =
            "/sys/block/" + name_ + "/" + name_ + "p" + std::to_string(partno) + "/" + field;
        if (!file_exists(file)) return "";
        std::string value = read_file(file);
        while (!value.empty() && value.back() == '\n')
            value.pop_back();
        return value;
    }

    // A kernel built without the MS-DOS table reader (some minimal VM kernels) never shows
    // the partitions, whoever wrote them; its configuration says so when it is published.
    static bool kernel_reads_msdos_tables() {
        FILE *pipe = popen("zcat /proc/config.gz 2>/dev/null", "r");
        if (pipe == nullptr) return true;
        std::string config;
        for (int c; (c = fgetc(pipe)) != EOF;)
            config += static_cast<char>(c);
        pclose(pipe);
        return config.empty() || config.find("\nCONFIG_MSDOS_PARTITION=y") != std::string::npos;
    }

    std::string device() const { return loop_->device(); }

    std::string backing_;
    std::unique_ptr<LoopDevice> loop_;
    std::string name_;
};

TEST_F(SfdiskLoop, LayoutOnABlockDevice) {
    // Without --no-reread: the re-read of a partition-scanning loop device must succeed.
    make_layout_1(device(), "");
    expect_entry(device(), 1, 63, 1574307);
    expect_entry(device(), 3, 2634660, kSectors4GiB - 2634660);
    EXPECT_EQ(name_ + "p3", entry(device(), 3)->device) << "the name alone keeps the line short";
    // Through to the backing file.
    EXPECT_EQ((RawEntry{0xfd, 1574370, 787185}), raw_entry(backing_, 2));
    run_ok("-N2 -q -f -o0 -z0 -t0 -F -D " + device());
    EXPECT_EQ((RawEntry{0, 0, 0}), raw_entry(backing_, 2));

    // Without partition scanning the kernel refuses the re-read: said, and a failure.
    std::string why_not;
    const LoopDevice plain(on_host(image("plain.img", 1 << 20)), false, why_not);
    ASSERT_EQ("", why_not);
    const Result refused = sfdisk("-N1 -q -j63 -z10 -t83 " + plain.device());
    EXPECT_EQ(1, refused.status);
    EXPECT_NE(std::string::npos, refused.err.find("cannot re-read the partition table"))
        << refused.err;
    run_ok("-N1 -q -j63 -z10 -t83 --no-reread " + plain.device());
}

TEST_F(SfdiskLoop, KernelSeesTheLayoutAfterReread) {
    if (!kernel_reads_msdos_tables())
        GTEST_SKIP() << "this kernel has no MS-DOS partition table reader (CONFIG_MSDOS_PARTITION)";
    make_layout_1(device(), "");
    EXPECT_EQ("63", kernel(1, "start"));
    EXPECT_EQ("1574307", kernel(1, "size"));
    EXPECT_EQ("1574370", kernel(2, "start"));
    EXPECT_EQ("2634660", kernel(3, "start"));
    EXPECT_EQ(std::to_string(kSectors4GiB - 2634660), kernel(3, "size"));

    // --no-reread leaves the kernel's view behind; the next change without it catches up.
    run_ok("-N2 -q -f --no-reread -o0 -z0 -t0 -F -D " + device());
    EXPECT_EQ("1574370", kernel(2, "start"));
    run_ok("-N3 -q -f -o0 -z0 -t0 -F -D " + device());
    EXPECT_EQ("", kernel(2, "start"));
    EXPECT_EQ("", kernel(3, "start"));
    EXPECT_EQ("63", kernel(1, "start"));
}

}  // namespace
}  // namespace kova::test
