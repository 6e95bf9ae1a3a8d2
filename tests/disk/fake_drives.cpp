#include "disk/fake_drives.h"

#include <dirent.h>
#include <linux/fs.h>
#include <linux/hdreg.h>
#include <scsi/sg.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <filesystem>

#include "core/root.h"
#include "core/sys.h"
#include "support/sandbox.h"

namespace kova::test {
namespace {

std::map<std::string, FakeDrive> *g_table = nullptr;
std::vector<unsigned> *g_sleeps = nullptr;
std::set<std::string> *g_empty = nullptr;
std::map<int, FakeDrive *> g_open;

std::string hex(uint8_t b) {
    char s[4];
    snprintf(s, sizeof s, "%02X", b);
    return s;
}

FakeDrive *drive_of(int fd) {
    auto it = g_open.find(fd);
    return it == g_open.end() ? nullptr : it->second;
}

int fake_open(const char *path, int flags, mode_t mode) {
    const std::string bay = std::string(sandbox_root()) + "/dev/";
    if (strncmp(path, bay.c_str(), bay.size()) == 0 && g_empty->count(path + bay.size()) > 0) {
        errno = ENXIO;
        return -1;
    }
    const int fd = sys::real_calls().open(path, flags, mode);
    if (fd < 0) return fd;
    g_open.erase(fd);
    const std::string dev = std::string(sandbox_root()) + "/dev/";
    if (strncmp(path, dev.c_str(), dev.size()) == 0) {
        auto it = g_table->find(path + dev.size());
        if (it != g_table->end()) g_open[fd] = &it->second;
    }
    return fd;
}

int fake_fstat(int fd, struct stat *st) {
    const int rc = sys::real_calls().fstat(fd, st);
    if (FakeDrive *d = drive_of(fd); rc == 0 && d != nullptr) {
        st->st_mode = S_IFBLK | 0660;
        st->st_rdev = makedev(8, 16 * d->index);
    }
    return rc;
}

unsigned fake_sleep(unsigned seconds) {
    g_sleeps->push_back(seconds);
    return 0;
}

void put_identify(const FakeDrive &d, uint8_t *out) {
    for (int i = 0; i < 256; i++) {
        out[2 * i] = static_cast<uint8_t>(d.identify[i]);
        out[2 * i + 1] = static_cast<uint8_t>(d.identify[i] >> 8);
    }
}

// One ATA command: opcode, sector count, feature; data out for the reads. The answer's
// sector-count register in *count. 0 or an errno.
int ata(FakeDrive &d, uint8_t op, uint8_t count_in, uint8_t feature, uint8_t *data,
        uint8_t *count) {
    if (d.fail_errno != 0) return d.fail_errno;
    switch (op) {
        case 0xE5:
            *count = d.power;
            break;
        case 0xE3:
            d.log.push_back("E3 " + std::to_string(count_in));
            return 0;
        case 0xE0:
            d.power = 0x00;
            break;
        case 0xE6:
            d.power = 0x00;
            break;
        case 0xE7:
            break;
        case 0xEC:
            if (data == nullptr) return EINVAL;
            put_identify(d, data);
            break;
        case 0xA1:
            return EIO;
        case 0xEF:
            if (feature == 0x02) d.identify[85] |= 1 << 5;
            if (feature == 0x82) d.identify[85] &= ~(1 << 5);
            d.log.push_back("EF " + hex(feature));
            return 0;
        case 0xB0:
            if (feature != 0xD0 || data == nullptr) return EINVAL;
            memcpy(data, d.smart, sizeof d.smart);
            break;
        default:
            return EINVAL;
    }
    d.log.push_back(hex(op));
    return 0;
}

int answer_sg_io(FakeDrive &d, sg_io_hdr_t *io) {
    const uint8_t *cdb = io->cmdp;
    auto *data = static_cast<uint8_t *>(io->dxferp);
    io->info = SG_INFO_OK;
    io->sb_len_wr = 0;
    if (d.fail_errno != 0) return d.fail_errno;
    if (cdb[0] == 0x1A) {
        d.log.push_back("MODE SENSE");
        memcpy(data, d.caching, std::min<size_t>(io->dxfer_len, sizeof d.caching));
        return 0;
    }
    if (cdb[0] == 0x15) {
        memcpy(d.caching, data, std::min<size_t>(io->dxfer_len, sizeof d.caching));
        d.log.push_back("MODE SELECT " + hex(d.caching[6]));
        return 0;
    }
    if (cdb[0] != 0x85) return EINVAL;
    uint8_t count = 0;
    const int err = ata(d, cdb[14], cdb[6], cdb[4], data, &count);
    d.log.back() = "SG " + d.log.back();
    if (err != 0) return err;
    if (cdb[2] & 0x20) {
        // CHECK CONDITION with the ATA Status Return descriptor.
        static const uint8_t kSense[22] = {0x72, 0x01, 0x00, 0x1D, 0, 0, 0, 14, 0x09, 12, 0, 0, 0};
        memcpy(io->sbp, kSense, sizeof kSense);
        io->sbp[8 + 5] = count;
        io->sb_len_wr = sizeof kSense;
        io->status = 0x02;
        io->info = SG_INFO_CHECK;
    }
    return 0;
}

int fake_ioctl(int fd, unsigned long request, void *argument) {
    FakeDrive *d = drive_of(fd);
    if (d == nullptr) return sys::real_calls().ioctl(fd, request, argument);
    int err = 0;
    switch (request) {
        case BLKGETSIZE:
            *static_cast<unsigned long *>(argument) = static_cast<unsigned long>(d->sectors);
            break;
        case BLKFLSBUF:
            d->log.push_back("BLKFLSBUF");
            break;
        case BLKRASET:
            d->log.push_back("RA " + std::to_string(reinterpret_cast<long>(argument)));
            break;
        case HDIO_DRIVE_RESET:
        case HDIO_SET_DMA:
            d->log.push_back(request == HDIO_DRIVE_RESET
                                 ? "RESET"
                                 : "DMA " + std::to_string(reinterpret_cast<long>(argument)));
            err = d->reset_errno;
            break;
        case HDIO_DRIVE_CMD: {
            auto *args = static_cast<uint8_t *>(argument);
            uint8_t count = 0;
            err = ata(*d, args[0], args[1], args[2], args[3] > 0 ? args + 4 : nullptr, &count);
            if (err == 0) args[2] = count;
            break;
        }
        case SG_IO:
            err = answer_sg_io(*d, static_cast<sg_io_hdr_t *>(argument));
            break;
        default:
            err = ENOTTY;
    }
    if (err != 0) {
        errno = err;
        return -1;
    }
    return 0;
}

}  // namespace

FakeDrives::FakeDrives() {
    g_table = &drives_;
    g_sleeps = &sleeps_;
    g_empty = &empty_;
    g_open.clear();
    sys::calls().open = fake_open;
    sys::calls().fstat = fake_fstat;
    sys::calls().ioctl = fake_ioctl;
    sys::calls().sleep = fake_sleep;
}

FakeDrives::~FakeDrives() {
    sys::calls() = sys::real_calls();
    g_open.clear();
}

FakeDrive &FakeDrives::add(const std::string &name, bool soc, const std::string &model) {
    namespace fs = std::filesystem;
    const std::string root = sandbox_root();
    const int index = static_cast<int>(drives_.size());
    FakeDrive &d = drives_[name];
    d.name = name;
    d.index = index;
    fs::create_directories(root + "/dev");
    write_file(root + "/dev/" + name, std::string(4096, '\0'));
    const std::string port = std::to_string(d.index);
    const std::string controller = soc ? "devices/platform" : "devices/pci0000:00/0000:00:1f.2";
    const std::string device =
        controller + "/host" + port + "/target" + port + ":0:0/" + port + ":0:0:0";
    fs::create_directories(root + "/sys/" + device);
    fs::create_directories(root + "/sys/block/" + name);
    if (!soc) write_file(root + "/sys/" + controller + "/device", "0x2922\n");
    write_file(root + "/sys/" + device + "/model", (model.empty() ? "FAKE " + name : model) + "\n");
    fs::create_symlink("../../" + device, root + "/sys/block/" + name + "/device");
    // A drive of the ATA-8 era with S.M.A.R.T., its error log, and the write cache on.
    d.identify[80] = 0x01F0;
    d.identify[82] = 0x0001;
    d.identify[83] = 0x4000;
    d.identify[84] = 0x4001;
    d.identify[85] = 1 << 5;
    return d;
}

void FakeDrives::add_empty_bay(const std::string &name) {
    std::filesystem::create_directories(std::string(sandbox_root()) + "/dev");
    write_file(std::string(sandbox_root()) + "/dev/" + name, "");
    empty_.insert(name);
}

int open_descriptors() {
    int n = 0;
    DIR *dir = opendir("/proc/self/fd");
    while (dirent *e = readdir(dir))
        if (e->d_name[0] != '.') n++;
    closedir(dir);
    return n - 1;
}

}  // namespace kova::test
