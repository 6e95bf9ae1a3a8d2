#include "raid/raid_fake.h"

#include <linux/fs.h>
#include <linux/major.h>
#include <linux/raid/md_u.h>
#include <sys/stat.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <sstream>

#include "core/root.h"
#include "core/sys.h"
#include "support/sandbox.h"

namespace kova::test {
namespace fs = std::filesystem;
namespace {

std::map<std::string, FakeArray> *g_arrays = nullptr;
std::map<std::string, uint64_t> *g_disks = nullptr;
std::map<int, std::string> g_open;

int fake_open(const char *path, int flags, mode_t mode) {
    const int fd = sys::real_calls().open(path, flags, mode);
    if (fd >= 0) g_open[fd] = path;
    return fd;
}

int fake_ioctl(int fd, unsigned long request, void *argument) {
    auto node = g_open.find(fd);
    if (node == g_open.end()) return sys::real_calls().ioctl(fd, request, argument);
    if (auto a = g_arrays->find(node->second); a != g_arrays->end()) {
        FakeArray &array = a->second;
        if (array.errno_info != 0) {
            errno = array.errno_info;
            return -1;
        }
        if (request == GET_ARRAY_INFO) {
            auto *info = static_cast<mdu_array_info_t *>(argument);
            *info = {};
            info->level = array.md_level;
            info->raid_disks = array.raid_disks;
            info->size = static_cast<int>(array.size_kib);
            return 0;
        }
        if (request == BLKGETSIZE64) {
            *static_cast<uint64_t *>(argument) = array.bytes;
            return 0;
        }
        if (request == BLKRASET) {
            a->second.read_ahead = static_cast<int>(reinterpret_cast<long>(argument));
            return 0;
        }
        if (request == 0x400C0960) {
            if (!array.rebuild_request) {
                errno = ENOTTY;
                return -1;
            }
            memcpy(argument, array.rebuild, sizeof array.rebuild);
            return 0;
        }
        errno = ENOTTY;
        return -1;
    }
    if (auto d = g_disks->find(node->second); d != g_disks->end() && request == BLKGETSIZE) {
        *static_cast<unsigned long *>(argument) = static_cast<unsigned long>(d->second);
        return 0;
    }
    return sys::real_calls().ioctl(fd, request, argument);
}

// The end of a shim: the exit status the test set for the program, one line per run, the last
// line for every run after it.
#define STATUS_TAIL(program)                                \
    "f=\"$KOVA_SHIM/status." program                        \
    "\"\n"                                                  \
    "[ -f \"$f\" ] || exit 0\n"                             \
    "status=$(head -n 1 \"$f\")\n"                          \
    "[ \"$(wc -l < \"$f\")\" -gt 1 ] && sed -i 1d \"$f\"\n" \
    "exit \"$status\"\n"

constexpr char kMdadmShim[] = R"sh(#!/bin/sh
echo "mdadm $*" >> "$KOVA_SHIM/commands"
key=$(echo "$3" | tr / _)
if [ "$1 $2" = "-E -b" ]; then cat "$KOVA_SHIM/brief$key" 2>/dev/null; exit 0; fi
key=$(echo "$2" | tr / _)
if [ "$1" = "-E" ]; then cat "$KOVA_SHIM/full$key" 2>/dev/null; exit 0; fi
)sh" STATUS_TAIL("mdadm");

constexpr char kSfdiskShim[] = R"sh(#!/bin/sh
echo "sfdisk $*" >> "$KOVA_SHIM/commands"
if [ "$1" = "-l" ]; then
    key=$(echo "$4" | tr / _)
    n=${3#-N}
    grep "^$n " "$KOVA_SHIM/table$key" 2>/dev/null | while read -r n start end size type; do
        echo "${4##*/}$n $start $end $size $type"
    done
    exit 0
fi
)sh" STATUS_TAIL("sfdisk");

std::string key(const std::string &path) {
    std::string k = path;
    for (char &c : k)
        if (c == '/') c = '_';
    return k;
}

void write_script(const std::string &path, const char *text) {
    write_file(path, text);
    chmod(path.c_str(), 0755);
}

}  // namespace

FakeStorage::FakeStorage() : root_(sandbox_root()), shim_(root_ + "/shim") {
    fs::create_directories(shim_);
    fs::create_directories(root_ + "/sbin");
    fs::remove(root_ + "/sbin/sfdisk");
    write_script(shim_ + "/mdadm", kMdadmShim);
    write_script(root_ + "/sbin/sfdisk", kSfdiskShim);
    // The appliance's own key reader, as the library runs it.
    fs::create_directories(root_ + "/bin");
    if (!fs::exists(root_ + "/bin/get_key_value"))
        fs::create_symlink(std::string(KOVA_TOOLS_DIR) + "/get_key_value",
                           root_ + "/bin/get_key_value");
    setenv("KOVA_SHIM", shim_.c_str(), 1);
    old_path_ = getenv("PATH") != nullptr ? getenv("PATH") : "";
    setenv("PATH", (shim_ + ":" + old_path_).c_str(), 1);
    g_arrays = &arrays_;
    g_disks = &disks_;
    g_open.clear();
    sys::calls().open = fake_open;
    sys::calls().ioctl = fake_ioctl;
}

FakeStorage::~FakeStorage() {
    sys::calls() = sys::real_calls();
    g_open.clear();
    setenv("PATH", old_path_.c_str(), 1);
    unsetenv("KOVA_SHIM");
}

FakeArray &FakeStorage::add_array(int number, const std::vector<FakeMember> &members,
                                  const FakeArray &array) {
    const std::string md = "md" + std::to_string(number);
    fs::create_directories(root_ + "/dev");
    write_file(root_ + "/dev/" + md, "");
    const std::string dir = root_ + "/sys/block/" + md + "/md";
    fs::create_directories(dir);
    for (const FakeMember &m : members) {
        fs::create_directories(dir + "/dev-" + m.name);
        write_file(dir + "/dev-" + m.name + "/state", m.state + "\n");
        write_file(dir + "/dev-" + m.name + "/slot", m.slot + "\n");
    }
    return arrays_[root_ + "/dev/" + md] = array;
}

void FakeStorage::add_disk(const std::string &name, uint64_t sectors) {
    fs::create_directories(root_ + "/dev");
    write_file(root_ + "/dev/" + name, "");
    disks_[root_ + "/dev/" + name] = sectors;
}

std::vector<std::string> FakeStorage::commands() const {
    std::vector<std::string> out;
    std::istringstream lines(file_exists(shim_ + "/commands") ? read_file(shim_ + "/commands")
                                                              : "");
    for (std::string line; std::getline(lines, line);) {
        for (size_t at; (at = line.find(root_)) != std::string::npos;)
            line.erase(at, root_.size());
        out.push_back(line);
    }
    return out;
}

void FakeStorage::clear_commands() const {
    fs::remove(shim_ + "/commands");
}

void FakeStorage::set_status(const std::string &program, const std::vector<int> &statuses) const {
    std::string lines;
    for (int s : statuses)
        lines += std::to_string(s) + "\n";
    write_file(shim_ + "/status." + program, lines);
}

void FakeStorage::set_examine(const std::string &device, const std::string &brief,
                              const std::string &full) const {
    write_file(shim_ + "/brief" + key(root_ + device), brief);
    write_file(shim_ + "/full" + key(root_ + device), full);
}

void FakeStorage::set_partition(const std::string &disk, int number, uint64_t start,
                                uint64_t sectors, unsigned type) const {
    const std::string file = shim_ + "/table" + key(root_ + disk);
    std::ostringstream line;
    line << number << " " << start << " " << start + sectors - 1 << " " << sectors << " "
         << std::hex << type << "\n";
    write_file(file, (file_exists(file) ? read_file(file) : "") + line.str());
}

}  // namespace kova::test
