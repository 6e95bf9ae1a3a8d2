#include "volume/volume_fake.h"

#include <sys/stat.h>

#include <cstdlib>
#include <filesystem>

namespace kova::test {
namespace {

// Each argument in brackets, so that a test sees how the shell split the command.
constexpr char kShim[] = R"sh(#!/bin/sh
line=$(basename "$0")
for a in "$@"; do line="$line [$a]"; done
echo "$line" >> "$KOVA_SHIM/commands"
f="$KOVA_SHIM/status.$(basename "$0")"
[ -f "$f" ] && exit "$(cat "$f")"
exit 0
)sh";

}  // namespace

VolumeWorld::VolumeWorld() {
    std::filesystem::create_directories(path("/proc"));
    std::filesystem::create_directories(path("/tmp"));
    for (const char *program : {"mount", "umount"}) {
        const std::string shim = std::string(getenv("KOVA_SHIM")) + "/" + program;
        write_file(shim, kShim);
        chmod(shim.c_str(), 0755);
    }
}

void VolumeWorld::mirror(int md, const std::string &first, const std::string &second) {
    storage_.add_array(md, {{first, "in_sync", "0"}, {second, "in_sync", "1"}});
}

void VolumeWorld::system_arrays(const std::vector<std::string> &disks) {
    for (int part : {1, 2}) {
        std::vector<FakeMember> members;
        for (size_t i = 0; i < disks.size(); i++)
            members.push_back({disks[i] + std::to_string(part), "in_sync", std::to_string(i)});
        FakeArray array;
        array.raid_disks = static_cast<int>(disks.size());
        storage_.add_array(part - 1, members, array);
    }
}

std::vector<std::string> VolumeWorld::commands() const {
    std::vector<std::string> out;
    for (const std::string &line : storage_.commands())
        if (line.rfind("mount", 0) == 0 || line.rfind("umount", 0) == 0) out.push_back(line);
    return out;
}

void VolumeWorld::set_status(const std::string &program, int status) const {
    write_file(std::string(getenv("KOVA_SHIM")) + "/status." + program, std::to_string(status));
}

}  // namespace kova::test
