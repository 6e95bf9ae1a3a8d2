#include "support/guest.h"

#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>
#include <fstream>
#include <sstream>

namespace kova::test {
namespace {

constexpr char kSpeedMin[] = "/proc/sys/dev/raid/speed_limit_min";
constexpr char kSpeedMax[] = "/proc/sys/dev/raid/speed_limit_max";

std::string cmdline_value(const std::string &key) {
    std::istringstream words(read_text("/proc/cmdline"));
    std::string word;
    while (words >> word)
        if (word.compare(0, key.size() + 1, key + "=") == 0) return word.substr(key.size() + 1);
    return "";
}

void write_text(const char *path, const std::string &text) {
    std::ofstream out(path);
    out << text << '\n';
}

}  // namespace

bool in_guest() {
    return cmdline_value("kova.guest") == "1";
}

int guest_disks() {
    return atoi(cmdline_value("kova.disks").c_str());
}

int guest_run(const std::string &command) {
    int status = system((command + " > /dev/null 2>&1").c_str());
    return status != -1 && WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

std::string read_text(const std::string &path) {
    std::ifstream in(path);
    std::stringstream text;
    text << in.rdbuf();
    std::string s = text.str();
    while (!s.empty() && s.back() == '\n')
        s.pop_back();
    return s;
}

void wipe_guest_disks() {
    guest_run("for v in /volume*; do umount -f $v; done");
    guest_run("for md in /dev/md[0-9]*; do mdadm -S $md; done");
    guest_run("for d in /dev/sd[a-f]*; do mdadm --zero-superblock $d; done");
    guest_run(
        "for d in /dev/sd[a-f]; do dd if=/dev/zero of=$d bs=1M count=4; "
        "blockdev --rereadpt $d; done");
    unlink("/tmp/volume.1");
    unlink("/tmp/lvm.status");
}

void GuestStorageTest::SetUp() {
    GuestTest::SetUp();
    if (IsSkipped()) return;
    ASSERT_GE(guest_disks(), 4);
    wipe_guest_disks();
}

void GuestStorageTest::TearDown() {
    if (!IsSkipped()) wipe_guest_disks();
}

MdSpeedLimit::MdSpeedLimit(int kib_per_second)
    : saved_min_(read_text(kSpeedMin)), saved_max_(read_text(kSpeedMax)) {
    write_text(kSpeedMin, std::to_string(kib_per_second));
    write_text(kSpeedMax, std::to_string(kib_per_second));
}

MdSpeedLimit::~MdSpeedLimit() {
    write_text(kSpeedMax, saved_max_);
    write_text(kSpeedMin, saved_min_);
}

}  // namespace kova::test
